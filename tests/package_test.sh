#!/usr/bin/env bash
# The package of one kind: what is in it, how its binaries are made, and that another user's checkout gives the same
# bytes.
# usage: package_test.sh win64|win32 TARGET
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
kind=$1
target=$2
zip=$(echo "$root"/build/Mordwell-*-"$kind.zip")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
verify() { if ! eval "$1"; then echo "FAIL: $2" && failures=$((failures + 1)); fi; }

unzip -q "$zip" -d "$work"
cd "$work"/*/
files=$(find . -type f | LC_ALL=C sort | tr '\n' ' ')
# shellcheck disable=SC2034 # read by verify
expected='./Mordwell.exe ./Qt5Core.dll ./README.txt ./licences/LICENSE.GPL3 ./licences/LICENSE.LGPL3'
expected+=' ./licences/Qt5Core.txt ./licences/gcc-runtime.txt ./licences/mingw-w64.txt ./tessark.dll '
verify '[[ $files == "$expected" ]]' "files: $files"
verify 'grep -aq "level=\"asInvoker\"" Mordwell.exe' 'the manifest asks for asInvoker'

system='ADVAPI32 KERNEL32 MPR NETAPI32 OLEAUT32 SHELL32 USER32 USERENV VERSION WINMM WS2_32 msvcrt ole32'
machine=pei-x86-64 flags='HIGH_ENTROPY_VA DYNAMIC_BASE NX_COMPAT'
[[ $kind == win64 ]] || machine=pei-i386 flags='DYNAMIC_BASE NX_COMPAT'
for binary in Mordwell.exe tessark.dll Qt5Core.dll; do
    headers=$("$target-objdump" -p "$binary")
    verify 'grep -q "file format $machine$" <<<"$headers"' "$binary is $machine"
    [[ $binary != *.exe ]] || verify 'grep -q "^Subsystem.*Windows GUI" <<<"$headers"' "$binary has no console"
    for flag in $flags; do verify 'grep -qw "$flag" <<<"$headers"' "$binary has $flag"; done
    for import in $(sed -n 's/.*DLL Name: //p' <<<"$headers"); do
        verify '[[ " $system " == *" ${import%.[dD][lL][lL]} "* || -f $import ]]' "$binary needs $import"
    done
done

# Both kinds come out of one run, so one test looks at both. Qt is not built again, only found at another place.
if [[ $kind == win64 ]]; then
    mkdir "$work/cache" "$work/another checkout"
    ln -s "${XDG_CACHE_HOME:-$HOME/.cache}/mordwell" "$work/cache/mordwell"
    tar -C "$root" --exclude=./build -cf - . | tar -C "$work/another checkout" -xf -
    (umask 077 && XDG_CACHE_HOME=$work/cache "$work/another checkout/package" >/dev/null)
    for zip in "$root"/build/Mordwell-*.zip; do
        verify 'cmp "$zip" "$work/another checkout/build/${zip##*/}"' 'others make the same bytes'
    done
fi
echo "$kind: $failures failed"
exit $((failures > 0))
