#!/usr/bin/env bash
# Runs acceptance.cmd beside the packaged program under Wine, on a simulated machine that has no TAP interface. Decoys
# of the tools are in the current folder all the time.
# usage: acceptance_test.sh win64|win32
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
work="$root/build/$1/acceptance test"
rm -rf "$work"
unzip -qj "$root"/build/Mordwell-*-"$1.zip" '*/*.exe' '*/*.dll' -d "$work"
cp "$root/tests/acceptance.cmd" "$work"

# A first run puts the fake tools in place.
machine=$work/machine.json
MORDWELL_MACHINE=$machine "$root/wine/machine.sh" "$1" help
# Wine lacks the key that shows elevation.
MORDWELL_MACHINE=Z:${machine//\//\\} "$root/wine/wine.sh" "$1" 'C:\windows\system32\cmd.exe' \
    /c reg add 'HKU\S-1-5-19' /f '>nul' '&' "Z:${work//\//\\}\\acceptance.cmd" | tee "$work/output.txt"
grep -Eq '^[1-9][0-9]* passed, 0 failed' "$work/output.txt"
[[ ! -e $machine.decoy ]] || { echo "A decoy of a tool was run." && exit 1; }
