#!/usr/bin/env bash
# Builds Qt 5 Core for Windows from Debian's source package of qtbase, in the version of the native Qt and with Debian's
# patches, and prints the folder that contains it. It is built once for each version and kept in the user's cache folder.
# usage: qt.sh x86_64-w64-mingw32 | i686-w64-mingw32
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/common.sh"

target=$1
source=qtbase-opensource-src
version=$(dpkg-query -W -f='${source:Version}' qtbase5-dev)
zlib=$(dpkg-query -W -f='${Version}' libz-mingw-w64-dev)
cache=${XDG_CACHE_HOME:-${HOME:?is not set, nor is XDG_CACHE_HOME}/.cache}/mordwell
prefix=$cache/qt-$version-zlib-$zlib-$target
mkdir -p "$cache"
# A second run at the same time waits here and then finds Qt built.
exec 8>"$cache/lock"
flock -n 8 || { say "waiting for another build of Qt"; flock 8; }
if [[ -d $prefix ]]; then
    echo "$prefix"
    exit
fi

# The result gets its final name in the last step, so an interrupted build never counts as done.
work=$(mktemp -d "$cache/building.XXXXXX")
trap 'rm -rf "$work"' EXIT
# The DLL must contain neither this machine's paths nor the time of the build.
export SOURCE_DATE_EPOCH=0
reproducible=-ffile-prefix-map=$work=.

# A private apt configuration: the machine's own archives of Debian, with their source packages.
mkdir -p "$work"/{sources,lists/partial,archives/partial}
# shellcheck disable=SC2016 # apt replaces these placeholders.
apt-get indextargets --format '$(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' 'Origin: Debian' | sort -u |
    sed 's#^#deb-src [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] #' >"$work/sources/debian.list"
[[ -s $work/sources/debian.list ]] || fail "apt has no package lists of Debian; type: apt-get update"
options=(-o Dir::Etc::sourcelist=/dev/null -o "Dir::Etc::sourceparts=$work/sources" -o "Dir::State::Lists=$work/lists"
         -o "Dir::Cache=$work" -o APT::Sandbox::User=root)

# apt verifies the signatures, and dpkg-source applies Debian's patches.
fetch() {
    cd "$work" && apt-get "${options[@]}" source "$source=$version" && mv "$source"-*/ qtbase
}
configure() {
    mkdir "$work/build" && cd "$work/build" &&
        ../qtbase/configure -release -shared -opensource -confirm-license -prefix /qt \
            -xplatform win32-g++ -device-option "CROSS_COMPILE=$target-" \
            -no-gui -no-widgets -no-dbus -nomake examples -nomake tests -nomake tools -no-opengl \
            -system-zlib -qt-pcre -qt-doubleconversion -no-icu -no-glib \
            -no-feature-sql -no-feature-network -no-feature-xml -no-feature-concurrent -no-feature-testlib \
            "QMAKE_CFLAGS+=$reproducible" "QMAKE_CXXFLAGS+=$reproducible" QMAKE_LFLAGS+=-static
}
compile() { cd "$work/build" && make qmake_all && make -C src -j"$(nproc)" sub-corelib sub-winmain; }
# Installs what Qt's CMake package asks for and the licences of the DLL, and records the versions that it contains.
install_parts() {
    local part pcre2
    cd "$work/build" || return
    for part in src/corelib src/winmain src/tools/moc src/tools/rcc; do
        make -C "$part" INSTALL_ROOT="$work/root" install || return
    done
    pcre2=$(sed -nE 's/^#define PCRE2_(MAJOR|MINOR) +//p' ../qtbase/src/3rdparty/pcre2/src/pcre2.h | paste -sd.)
    printf 'set(QT_SOURCE_VERSION "%s")\nset(QT_ZLIB_VERSION "%s")\nset(QT_PCRE2_VERSION "%s")\n' \
        "$version" "$zlib" "$pcre2" >"$work/root/qt/versions.cmake" &&
        make INSTALL_ROOT="$work/root" install_mkspecs && install -t "$work/root/qt/bin" bin/qmake &&
        install -m 644 -t "$work/root/qt" ../qtbase/LICENSE.{LGPL3,GPL3}
}

quietly "reading Debian's lists of source packages" apt-get "${options[@]}" update
apt-cache "${options[@]}" showsrc --only-source "$source" | grep -x "Version: $version" >/dev/null ||
    fail "Debian's archive no longer has the source of Qt $version, the installed version; upgrade qtbase5-dev"
quietly "fetching the source of Qt $version from Debian" fetch
quietly "configuring Qt $version for $target (a minute or two)" configure
quietly "building Qt 5 Core for $target (about five minutes, once)" compile
quietly "installing Qt for $target" install_parts
mv -T "$work/root/qt" "$prefix"
echo "$prefix"
