#!/usr/bin/env bash
# Brings Qt 5 Core for Windows from Debian's source package of qtbase, in the version of the native Qt,
# and prints the folder that holds it. It is built once and kept in the user's cache folder.
source "$(dirname "${BASH_SOURCE[0]}")/../tools/common.sh"

target=x86_64-w64-mingw32
need qtbase5-dev g++-mingw-w64-x86-64 make perl python3 xz-utils ca-certificates
version=$(dpkg-query -W -f='${Version}' qtbase5-dev)
version=${version%%+*}
version=${version%%-*}
cache=${XDG_CACHE_HOME:-$HOME/.cache}/mordwell
prefix=$cache/qt-$version-$target
if [[ -d $prefix ]]; then
    echo "$prefix"
    exit
fi

mkdir -p "$cache"
# Neither this machine's folders nor the hour shall show in the DLL: its own CMake files find it where it lies.
export SOURCE_DATE_EPOCH=0
# Qt is installed into a folder of its own and gets its name by the last command only, so a build that was
# cut off never counts as done.
work=$(mktemp -d "$cache/building.XXXXXX")
trap 'rm -rf "$work"' EXIT

# The machine's own package sources for its Debian release, asked for source packages instead of binary ones.
release=$(. /etc/os-release && echo "$VERSION_CODENAME")
mkdir -p "$work/sources" "$work/lists/partial"
for list in /etc/apt/sources.list /etc/apt/sources.list.d/*; do
    case $list in
        *.sources) grep -qE "^Suites:(.* )?$release( |$)" "$list" || continue
                   sed -E 's/^Types:.*/Types: deb-src/' "$list" >"$work/sources/$(basename "$list")" ;;
        *.list) [[ -f $list ]] || continue
                sed -nE "s/^deb (.* ${release}[^ ]* .*)/deb-src \1/p" "$list" >"$work/sources/$(basename "$list")" ;;
    esac
done
apt=(apt-get -o Dir::Etc::sourcelist=/dev/null -o "Dir::Etc::sourceparts=$work/sources"
     -o "Dir::State::Lists=$work/lists" -o APT::Sandbox::User=root)

fetch() {
    "${apt[@]}" update && cd "$work" && "${apt[@]}" source --download-only qtbase-opensource-src
}
verify() {
    cd "$work" && sed -n '/^Checksums-Sha256:/,/^[^ ]/p' ./*.dsc |
        awk '/orig\.tar/ && !/\.asc$/ { print $1 "  " $3 }' | tee checksum | sha256sum --check --strict -
}
unpack() {
    grep -q "_$version+" "$work/checksum" || { echo "Debian's source is not Qt $version: $(cat "$work/checksum")"; return 1; }
    mkdir "$work/qtbase" && tar -xf "$work"/*.orig.tar.* -C "$work/qtbase" --strip-components=1
}
configure() {
    mkdir "$work/build" && cd "$work/build" &&
        ../qtbase/configure -release -shared -opensource -confirm-license -prefix /qt \
            -xplatform win32-g++ -device-option CROSS_COMPILE=$target- \
            -no-gui -no-widgets -no-dbus -nomake examples -nomake tests -nomake tools -no-opengl \
            -qt-zlib -qt-pcre -qt-doubleconversion -no-icu -no-glib \
            -no-feature-sql -no-feature-network -no-feature-xml -no-feature-concurrent -no-feature-testlib \
            "QMAKE_CFLAGS+=-ffile-prefix-map=$work=." "QMAKE_CXXFLAGS+=-ffile-prefix-map=$work=."
}
compile() {
    cd "$work/build" && make qmake_all && make -C src -j"$(nproc)" sub-corelib sub-winmain
}
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
quietly "verifying its checksum" verify
quietly "unpacking it" unpack
quietly "configuring Qt $version for $target (a minute or two)" configure
quietly "building Qt 5 Core for $target (five minutes or so, once)" compile
quietly "installing it" install_parts
mv -T "$work/root/qt" "$prefix"
echo "$prefix"
