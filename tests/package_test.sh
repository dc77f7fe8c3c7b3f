#!/usr/bin/env bash
# The package of one kind: what is in it, how its binaries are made, and that another user's checkout gives the same
# bytes.
# usage: package_test.sh win64|win32 TARGET
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
kind=$1
target=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
wrong() { echo "FAIL: $*" && failures=$((failures + 1)); }

unzip -q "$root"/build/Mordwell-*-"$kind.zip" -d "$work"
cd "$work"/*/
expected='./Mordwell.exe ./Qt5Core.dll ./README.txt ./licences/LICENSE.GPL3 ./licences/LICENSE.LGPL3'
expected+=' ./licences/Qt5Core.txt ./licences/gcc-runtime.txt ./licences/mingw-w64.txt ./tessark.dll '
files=$(find . -type f | LC_ALL=C sort | tr '\n' ' ')
[[ $files == "$expected" ]] || wrong "the files are $files"
grep -aq 'level="asInvoker"' Mordwell.exe || wrong "the manifest does not ask for asInvoker"

system=' ADVAPI32 KERNEL32 MPR NETAPI32 OLEAUT32 SHELL32 USER32 USERENV VERSION WINMM WS2_32 msvcrt ole32 '
machine=pei-x86-64 flags='HIGH_ENTROPY_VA DYNAMIC_BASE NX_COMPAT'
[[ $kind == win64 ]] || machine=pei-i386 flags='DYNAMIC_BASE NX_COMPAT'
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

# Both kinds come out of one run, so one test looks at both. Qt is not built again, only found at another place.
if [[ $kind == win64 ]]; then
    mkdir "$work/cache" "$work/another checkout"
    ln -s "${XDG_CACHE_HOME:-$HOME/.cache}/mordwell" "$work/cache/mordwell"
    tar -C "$root" --exclude=./build -cf - . | tar -C "$work/another checkout" -xf -
    (umask 077 && XDG_CACHE_HOME=$work/cache "$work/another checkout/package" >/dev/null)
    for zip in "$root"/build/Mordwell-*.zip; do
        cmp "$zip" "$work/another checkout/build/${zip##*/}" || wrong "others do not make the same bytes"
    done
fi
echo "$kind: $failures failed"
exit $((failures > 0))
