#!/usr/bin/env bash
# Checks the package for one architecture: its files, how its binaries were made, and that the checkout of another user
# results in the same bytes.
# usage: package_test.sh win64|win32 TARGET
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
arch=$1 target=$2 failures=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
wrong() { echo "FAIL: $*" && failures=$((failures + 1)); }

unzip -q "$root"/build/Mordwell-*-"$arch.zip" -d "$work"
cd "$work"/*/
version=$(basename "$PWD" | cut -d- -f2)
expected='./Mordwell.exe ./Qt5Core.dll ./README.txt ./licences/LICENSE.GPL3 ./licences/LICENSE.LGPL3'
expected+=' ./licences/Qt5Core.txt ./licences/gcc-runtime.txt ./licences/mingw-w64.txt ./licences/zlib.txt ./tessark.dll '
files=$(find . -type f | LC_ALL=C sort | tr '\n' ' ')
[[ $files == "$expected" ]] || wrong "the files are $files"
zlib=$("$target-strings" Qt5Core.dll | sed -n 's/^ inflate \([^ ]*\) .*/\1/p')
grep -q "^    zlib    ${zlib}[+-]" README.txt || wrong "Qt5Core.dll contains zlib $zlib, and README.txt does not say so"

system=' ADVAPI32 KERNEL32 MPR NETAPI32 OLEAUT32 SHELL32 USER32 USERENV VERSION WINMM WS2_32 msvcrt ole32 '
machine=pei-x86-64 flags='HIGH_ENTROPY_VA DYNAMIC_BASE NX_COMPAT'
[[ $arch == win64 ]] || machine=pei-i386 flags='DYNAMIC_BASE NX_COMPAT'
for binary in Mordwell.exe tessark.dll Qt5Core.dll; do
    headers=$("$target-objdump" -p "$binary")
    grep -q "file format $machine$" <<<"$headers" || wrong "$binary is not $machine"
    [[ $binary != *.exe ]] || grep -q '^Subsystem.*Windows GUI' <<<"$headers" || wrong "$binary has a console"
    [[ $binary == Qt5Core.dll ]] || grep -q 'DLL Name: Qt5Core.dll' <<<"$headers" || wrong "$binary is without Qt"
    for flag in $flags; do grep -qw "$flag" <<<"$headers" || wrong "$binary lacks $flag"; done
    while read -r import; do
        [[ $system == *" ${import%.[dD][lL][lL]} "* || -f $import ]] || wrong "$binary needs $import"
    done < <(sed -n 's/.*DLL Name: //p' <<<"$headers")
done

# resource BINARY TYPE MANIFESTS: a version resource has a signature, and 36 bytes after its start the type of the file.
resource() {
    "$target-strings" -el "$1" | paste -sd' ' |
        grep " FileVersion $version InternalName ${1%.*} OriginalFilename $1 " >/dev/null || wrong "$1: version resource"
    LC_ALL=C grep -qaP "(?s)\xbd\x04\xef\xfe.{32}$2" "$1" || wrong "$1: the version resource has the wrong file type"
    [[ $(grep -ac 'level="asInvoker"' "$1") == "$3" ]] || wrong "$1: expected $3 manifests with asInvoker"
}
resource Mordwell.exe '\x01' 1
resource tessark.dll '\x02' 0

# One run of ./package makes both packages, so one test checks both. Qt is found in another cache folder, not rebuilt.
if [[ $arch == win64 ]]; then
    (cd "$root/build" && sha256sum --check --quiet SHA256SUMS) || wrong "SHA256SUMS does not match the packages"
    mkdir "$work/cache" "$work/another checkout"
    ln -s "${XDG_CACHE_HOME:-$HOME/.cache}/mordwell" "$work/cache/mordwell"
    tar -C "$root" --exclude=./build -cf - . | tar -C "$work/another checkout" -xf -
    (umask 077 && XDG_CACHE_HOME=$work/cache "$work/another checkout/package" >/dev/null)
    cmp "$root/build/SHA256SUMS" "$work/another checkout/build/SHA256SUMS" || wrong "another checkout, other bytes"
fi
exit $((failures > 0))
