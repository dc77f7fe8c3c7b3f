#!/usr/bin/env bash
# Brings Qt 5 Core for Windows, built from Debian's source package of qtbase with Debian's patches, in the version of
# the native Qt, and prints the folder that holds it. It is built once and kept in the user's cache folder.
# usage: qt.sh x86_64-w64-mingw32 | i686-w64-mingw32
source "$(dirname "${BASH_SOURCE[0]}")/../tools/common.sh"

target=$1
source=qtbase-opensource-src
version=$(dpkg-query -W -f='${source:Version}' qtbase5-dev)
cache=${XDG_CACHE_HOME:-${HOME:?is not set, nor is XDG_CACHE_HOME}/.cache}/mordwell
prefix=$cache/qt-$version-$target
mkdir -p "$cache"
# Who comes second waits and finds it done.
exec 8>"$cache/lock"
flock 8
if [[ -d $prefix ]]; then
    echo "$prefix"
    exit
fi

# Qt is installed into a folder of its own and gets its name by the last command only, so a build that was
# cut off never counts as done.
work=$(mktemp -d "$cache/building.XXXXXX")
trap 'rm -rf "$work"' EXIT
# Neither this machine's folders nor the hour shall show in the DLL: its own CMake files find it where it lies.
export SOURCE_DATE_EPOCH=0
unchanged=-ffile-prefix-map=$work=.

# The places that the machine's apt has Debian's packages from, asked for source packages.
mkdir -p "$work"/{sources,lists/partial,archives/partial}
# shellcheck disable=SC2016 # apt puts in what stands for these.
apt-get indextargets --format 'deb-src $(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' 'Origin: Debian' |
    sort -u >"$work/sources/debian.list"
[[ -s $work/sources/debian.list ]] || fail "apt knows no place for Debian's packages; type: apt-get update"
apt=(apt-get -o Dir::Etc::sourcelist=/dev/null -o "Dir::Etc::sourceparts=$work/sources"
     -o "Dir::Etc::trusted=/usr/share/keyrings/debian-archive-keyring.gpg"
     -o "Dir::State::Lists=$work/lists" -o "Dir::Cache=$work" -o APT::Sandbox::User=root)

# apt verifies what it fetches, and dpkg-source applies the patches.
fetch() { "${apt[@]}" update && cd "$work" && "${apt[@]}" source "$source=$version" && mv "$source"-*/ qtbase; }
configure() {
    mkdir "$work/build" && cd "$work/build" &&
        ../qtbase/configure -release -shared -opensource -confirm-license -prefix /qt \
            -xplatform win32-g++ -device-option "CROSS_COMPILE=$target-" \
            -no-gui -no-widgets -no-dbus -nomake examples -nomake tests -nomake tools -no-opengl \
            -qt-zlib -qt-pcre -qt-doubleconversion -no-icu -no-glib \
            -no-feature-sql -no-feature-network -no-feature-xml -no-feature-concurrent -no-feature-testlib \
            "QMAKE_CFLAGS+=$unchanged" "QMAKE_CXXFLAGS+=$unchanged" QMAKE_LFLAGS+=-static
}
compile() { cd "$work/build" && make qmake_all && make -C src -j"$(nproc)" sub-corelib sub-winmain; }
# What the CMake package of Qt asks for, and the licence texts that go with the DLL.
install_parts() {
    local part
    cd "$work/build" || return
    for part in src/corelib src/winmain src/tools/moc src/tools/rcc; do
        make -C "$part" INSTALL_ROOT="$work/root" install || return
    done
    make INSTALL_ROOT="$work/root" install_mkspecs && install -t "$work/root/qt/bin" bin/qmake &&
        install -m 644 -t "$work/root/qt" ../qtbase/LICENSE.{LGPL3,GPL3}
}

quietly "fetching the source of Qt $version from Debian" fetch
quietly "configuring Qt $version for $target (a minute or two)" configure
quietly "building Qt 5 Core for $target (five minutes or so, once)" compile
quietly "installing it" install_parts
mv -T "$work/root/qt" "$prefix"
echo "$prefix"
