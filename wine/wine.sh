#!/usr/bin/env bash
# Runs a Windows program under Wine, in the prefix of the architecture, and ends with its exit code. The current folder
# and the first one of the path contain a decoy of each tool, which must not run.
# usage: wine.sh win64|win32 PROGRAM [ARGUMENT...]
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
wine=$here/../build/wine/$1
shift
cd "$wine/decoys" || exit
export WINEPREFIX=$wine/prefix WINEDEBUG=-all DISPLAY='' LC_ALL=C.UTF-8
# Wine prefers its own netsh to the fake one by default.
export WINEDLLOVERRIDES=netsh.exe=n
export WINEPATH="Z:${wine//\//\\}\\decoys;Z:${wine//\//\\}\\package"
mapfile -t loader <"$wine/loader"
exec "${loader[@]}" "$@"
