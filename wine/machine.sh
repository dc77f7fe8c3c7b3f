#!/usr/bin/env bash
# Runs the packaged program under Wine on the machine file MORDWELL_MACHINE as the native one runs: the tools'
# doubles act on the file, and the log stands beside it afterwards. A WMI fault makes Wine's WMI unavailable.
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$here/../build/wine
drive=$build/prefix/drive_c
log=$MORDWELL_MACHINE.files/log/tap-log.txt
fact() { jq -e "$1" "$MORDWELL_MACHINE" >/dev/null 2>&1; }

rm -rf "$drive/ProgramData/HalvaneRelayKit"
if fact '.faults.noLogFolder'; then touch "$drive/ProgramData/HalvaneRelayKit"; fi
# put WORD FILE: has the file there unless the machine is without it.
put() { if fact ".system.$1 == false"; then rm -f "$2"; else cp "$build/tools/wmic.exe" "$2"; fi; }
put wmic "$drive/windows/system32/wbem/wmic.exe"
put devcon "$drive/Program Files/HalvaneRelayKit/bin/devcon-x64.exe"
if fact '[.faults.wmi[]? | select(. != 0)] | length > 0'; then export WINEDLLOVERRIDES=wbemprox=; fi

MORDWELL_MACHINE=Z:${MORDWELL_MACHINE//\//\\} "$here/wine.sh" "Z:${build//\//\\}\\package\\Mordwell.exe" "$@"
exit_code=$?
mkdir -p "$(dirname "$log")"
rm -f "$log"
cp "$drive/ProgramData/HalvaneRelayKit/log/tap-log.txt" "$log" || echo "the run left no log" >&2
exit $exit_code
