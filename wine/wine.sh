#!/usr/bin/env bash
# Runs a Windows program under Wine, in the prefix of the architecture and on the machine file MORDWELL_MACHINE. Exits
# with the program's exit code. The current folder and the first one of the path contain a decoy of each tool. No decoy
# may run.
# usage: wine.sh win64|win32 PROGRAM [ARGUMENT...]
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/common.sh"
wine=$root/build/wine/$1
shift
cd "$wine/decoys"
if [[ -v MORDWELL_MACHINE ]]; then MORDWELL_MACHINE=$(windows_path "$MORDWELL_MACHINE"); fi
WINEPATH="$(windows_path "$wine/decoys");$(windows_path "$wine/package")"
export WINEPATH WINEPREFIX=$wine/prefix WINEDEBUG=-all DISPLAY='' LC_ALL=C.UTF-8
# Wine prefers its own netsh to the fake one by default.
export WINEDLLOVERRIDES=netsh.exe=n
mapfile -t loader <"$wine/loader"
errors=$(mktemp)
trap 'rm -f "$errors"' EXIT
# In about one of several thousand starts, Wine cannot start the program, and says so. Only then is it started again.
for _ in 1 2; do
    exit_code=0
    "${loader[@]}" "$@" 2>"$errors" || exit_code=$?
    cat "$errors" >&2
    grep -Eq '^wine(: (could not|cannot|failed to)| client error)' "$errors" || break
done
exit "$exit_code"
