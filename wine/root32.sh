#!/usr/bin/env bash
# Makes a root file system with Debian's 32-bit Wine in build/wine/win32/root, from the release and the archive of this
# machine, which stays as it is. Exits with 1 and prints the reason in one line if that is not possible.
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/common.sh"
wine=$root/build/wine/win32
mkdir -p "$wine"

# unpack FOLDER: unpacks wine32 with what it depends on, and libc-bin, whose locale C.UTF-8 Wine needs for non-ASCII
# names. No maintainer script runs, so this needs neither root nor a user namespace. As on the machine itself, /lib is a
# link to usr/lib.
unpack() {
    local release archive dlls
    release=$(. /etc/os-release && echo "${VERSION_CODENAME-}")
    # shellcheck disable=SC2016 # apt replaces these placeholders.
    archive=$(apt-get indextargets --format 'deb $(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' \
        'Origin: Debian' 'Label: Debian' 'Component: main' "Codename: $release" | sed -n 1p)
    [[ -n $archive ]] || { echo "apt has no package lists of Debian $release" && return 1; }
    # shellcheck disable=SC2016 # mmdebstrap's shell replaces the argument.
    mmdebstrap --mode=chrootless --variant=extract --architectures=i386 --include=wine32,libc-bin \
        --setup-hook='mkdir -p "$1/usr/lib" && ln -s usr/lib "$1/lib"' "$release" "$1" "$archive" || return
    # This much of libwine's maintainer script is needed: zlib's DLL becomes a part of Wine, by the mark in its header.
    dlls=$1/usr/lib/i386-linux-gnu/wine/i386-windows
    cp "$1/usr/i686-w64-mingw32/lib/zlib1.dll" "$dlls" &&
        printf 'Wine builtin DLL\0' | dd of="$dlls/zlib1.dll" bs=1 seek=64 conv=notrunc status=none
}

# The root gets its final name in the last step, so an interrupted unpacking never counts as done.
if [[ ! -d $wine/root ]]; then
    say "unpacking 32-bit Wine (0.7 GB, some 20 seconds)"
    rm -rf "$wine/root.new"
    output=$(unpack "$wine/root.new" 2>&1) || {
        reason=$(grep -m 1 '^E: ' <<<"$output" || tail -n 1 <<<"$output")
        echo "${reason#E: }"
        exit 1
    }
    mv "$wine/root.new" "$wine/root"
fi

# Wine runs in the machine's own file system with only /usr replaced; a checkout below /usr is still there.
loader=(bwrap --dev-bind / / --bind "$wine/root/usr" /usr --bind "$root" "$root"
    --setenv WINESERVER /usr/lib/wine/wineserver32 /usr/lib/wine/wine)
output=$("${loader[@]}" --version 2>&1) || { tail -n 1 <<<"$output"; exit 1; }
printf '%s\n' "${loader[@]}" >"$wine/loader"
