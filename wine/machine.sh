#!/usr/bin/env bash
# Runs the packaged program under Wine on the machine file MORDWELL_MACHINE, as the native program runs on it: the fake
# tools and the fake locator act on the file, and the log is in the folder next to it afterwards.
# usage: machine.sh win64|win32 [WORD...]
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/common.sh"
arch=$1
shift
wine=$root/build/wine/$arch
devcon="devcon-x64.exe"
[[ $arch == win64 ]] || devcon="devcon-x86.exe"
drive=$wine/prefix/drive_c
data=$drive/ProgramData/HalvaneRelayKit
log=$MORDWELL_MACHINE.files/log/tap-log.txt
fact() { jq -e "$1" "$MORDWELL_MACHINE" >/dev/null 2>&1; }

rm -rf "$data"
if fact '.system.logFolder == false'; then touch "$data"; fi
# put WORD FILE: puts the fake tool there unless the machine file says that the machine has no WORD.
put() { if fact ".system.$1 == false"; then rm -f "$2"; else cp "$wine/fake_tool.exe" "$2"; fi; }
put wmic "$drive/windows/system32/wbem/wmic.exe"
put devcon "$drive/Program Files/HalvaneRelayKit/bin/$devcon"

exit_code=0
"$root/wine/wine.sh" "$arch" "$wine/package/Mordwell.exe" "$@" || exit_code=$?
[[ ! -e $MORDWELL_MACHINE.decoy ]] || { echo "a decoy of a tool was run" >&2; exit 99; }
mkdir -p "$(dirname "$log")"
rm -f "$log"
cp "$data/log/tap-log.txt" "$log" || echo "the run left no log" >&2
exit $exit_code
