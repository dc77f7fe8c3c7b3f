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
    docs/{deploy,log}.md licences/LICENSE.{GPL3,LGPL3} licences/{Qt5Core,gcc-runtime,mingw-w64,zlib}.txt \
    make-log-folder.ps1 tessark.dll) ||
    wrong "the package has other files"
while read -r file; do
    [[ -f docs/$file ]] || wrong "a page links to $file, which is not in the package"
done < <(grep -hoP '\]\(\K[^#)]+' docs/*.md)
zlib=$("$target-strings" Qt5Core.dll | sed -n 's/^ inflate \([^ ]*\) .*/\1/p')
grep -q "^    zlib    ${zlib}[+-]" README.txt || wrong "Qt5Core.dll contains zlib $zlib, and README.txt does not say so"

system=' ADVAPI32 KERNEL32 MPR NETAPI32 OLEAUT32 SHELL32 USER32 USERENV VERSION WINMM WS2_32 msvcrt ole32 '
for binary in Mordwell.exe tessark.dll Qt5Core.dll; do
    while read -r import; do
        [[ $system == *" ${import%.[dD][lL][lL]} "* || -f $import ]] || wrong "$binary needs $import"
    done < <("$target-objdump" -p "$binary" | sed -n 's/.*DLL Name: //p')
done
"$target-objdump" -p Mordwell.exe | grep '(Windows GUI)' >/dev/null || wrong "Mordwell.exe opens a console window"

# resource BINARY MANIFESTS
resource() {
    "$target-strings" -el "$1" | paste -sd' ' |
        grep " FileVersion $version InternalName ${1%.*} OriginalFilename $1 " >/dev/null || wrong "$1: version resource"
    [[ $(grep -ac 'level="asInvoker"' "$1") == "$2" ]] || wrong "$1: expected $2 manifests with asInvoker"
}
resource Mordwell.exe 1
resource tessark.dll 0

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

# Rows for check.cmd: title|case|what happens before or during the run|exit code, log in the marker, last log. A log is
# shown as the word that it logs; "older" is the log of an earlier run.
data=$root/build/wine/$arch/prefix/drive_c/ProgramData/HalvaneRelayKit
log=$data/log/tap-log.txt marker=$data/unfinished-check
check() { "$root/wine/wine.sh" "$arch" "$(windows_path "$PWD/check.cmd")" </dev/null; }
log_of() { grep -rshoP "arg: '\K\w+" "$1" || echo "$2"; }
# during_check COMMAND...: waits for the log of a check, and repeats the command until it succeeds.
# shellcheck disable=SC2317 # Rows call it.
during_check() { for _ in {1..200}; do if grep -qs "'check'" "$log" && "$@"; then break; fi; sleep 0.1; done; }
while IFS='|' read -r title case before expected; do
    rm -rf "$data" && mkdir -p "$data/log" && echo "arg: 'older'" >"$log"
    cp "$root/simulation/cases/$case.json" "$MORDWELL_MACHINE"
    eval "$before"
    code=0 && check || code=$?
    held=none
    [[ ! -d $marker ]] || held=$(log_of "$marker/tap-log.txt" empty)
    actual="$code $held $(log_of "$log" none)"
    [[ $actual == "$expected" ]] ||
        wrong "check.cmd, $title: exit code, log in the marker and last log: expected $expected, actual $actual"
    wait
done <<'END'
success|empty||0 none check
check fails|install-fails-late||255 check check
no right name|powershell-and-netsh-fail||104 check list
Mordwell is killed|new-interface-listed-too-late|during_check "$root/wine/wine.sh" "$arch" taskkill /f /im Mordwell.exe &|104 check check
a marker|empty|mkdir "$marker"|103 empty older
two at once|new-interface-listed-too-late|check & during_check true|102 empty check
a marker that stays|empty|during_check touch "$marker/file" &|105 empty check
a log that cannot be opened|empty|ln -sf /nonexistent/log "$log"|255 none none
a folder in place of the log|empty|rm "$log"; mkdir "$log"; echo "arg: 'kept'" >"$log/file"|101 none kept
no data folder|empty|rm -r "$data"|101 none none
a program that does not start|empty|echo >Mordwell.exe|49 none none
no Mordwell.exe|empty|rm Mordwell.exe|101 none older
END

# One run of ./package makes both packages, so one test checks both. Qt is found in another cache folder, not rebuilt.
if [[ $arch == win64 ]]; then
    mkdir "$work/cache" "$work/another checkout"
    ln -s "${XDG_CACHE_HOME:-$HOME/.cache}/mordwell" "$work/cache/mordwell"
    tar -C "$root" --exclude=./build -cf - . | tar -C "$work/another checkout" -xf -
    (umask 077 && XDG_CACHE_HOME=$work/cache "$work/another checkout/package" >/dev/null)
    (cd "$work/another checkout/build" && sha256sum --check "$root/build/SHA256SUMS") || wrong "not reproducible"
fi
exit $((failures > 0))
