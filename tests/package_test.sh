#!/usr/bin/env bash
# Checks the package for one architecture: its files, how its binaries were made, that it passes acceptance.cmd under
# Wine, and that another checkout results in the same bytes.
# usage: package_test.sh win64|win32 TARGET
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/common.sh"
arch=$1 target=$2 failures=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
wrong() { echo "FAIL: $*" && failures=$((failures + 1)); }

unzip -q "$root"/build/Mordwell-*-"$arch.zip" -d "$work/a package"
cd "$work/a package"/*/
version=$(basename "$PWD" | cut -d- -f2)
find . -type f | LC_ALL=C sort | diff - <(printf './%s\n' Mordwell.exe Qt5Core.dll README.txt check.cmd \
    licences/LICENSE.{GPL3,LGPL3} licences/{Qt5Core,gcc-runtime,mingw-w64,zlib}.txt tessark.dll) || wrong "the package has other files"
zlib=$("$target-strings" Qt5Core.dll | sed -n 's/^ inflate \([^ ]*\) .*/\1/p')
grep -q "^    zlib    ${zlib}[+-]" README.txt || wrong "Qt5Core.dll contains zlib $zlib, and README.txt does not say so"

system=' ADVAPI32 KERNEL32 MPR NETAPI32 OLEAUT32 SHELL32 USER32 USERENV VERSION WINMM WS2_32 msvcrt ole32 '
all=('file format pei-x86-64' HIGH_ENTROPY_VA DYNAMIC_BASE NX_COMPAT)
[[ $arch == win64 ]] || all=('file format pei-i386' DYNAMIC_BASE NX_COMPAT)
for binary in Mordwell.exe tessark.dll Qt5Core.dll; do
    texts=("${all[@]}")
    [[ $binary != *.exe ]] || texts+=('(Windows GUI)')
    headers=$("$target-objdump" -p "$binary")
    for text in "${texts[@]}"; do [[ $headers == *"$text"* ]] || wrong "$binary lacks $text"; done
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

# ./test says when there is no Wine for the architecture.
[[ -e $root/build/wine/$arch/loader ]] || exit $((failures > 0))
# The acceptance test runs on a simulated machine without TAP interfaces. A first run puts the fake tools in place; decoys
# of the tools are in the current folder. Wine lacks the key that shows elevation.
cp "$root/tests/acceptance.cmd" .
export MORDWELL_MACHINE=$work/machine.json
"$root/wine/machine.sh" "$arch" help
"$root/wine/wine.sh" "$arch" 'C:\windows\system32\cmd.exe' /c 'C:\windows\system32\reg.exe' \
    add 'HKU\S-1-5-19' /f '>nul' '&' "$(windows_path "$PWD/acceptance.cmd")" |
    tee /dev/stderr | grep -Eq '^[1-9][0-9]* passed, 0 failed' || wrong "the package does not pass the acceptance test"
[[ ! -e $MORDWELL_MACHINE.decoy ]] || wrong "a decoy of a tool was run"

# One run of ./package makes both packages, so one test checks both. Qt is found in another cache folder, not rebuilt.
if [[ $arch == win64 ]]; then
    mkdir "$work/cache" "$work/another checkout"
    ln -s "${XDG_CACHE_HOME:-$HOME/.cache}/mordwell" "$work/cache/mordwell"
    tar -C "$root" --exclude=./build -cf - . | tar -C "$work/another checkout" -xf -
    (umask 077 && XDG_CACHE_HOME=$work/cache "$work/another checkout/package" >/dev/null)
    (cd "$work/another checkout/build" && sha256sum --check "$root/build/SHA256SUMS") || wrong "not reproducible"
fi
exit $((failures > 0))
