#!/usr/bin/env bash
# Starts a Windows program under Wine, in the prefix of its kind, and ends with its exit code. The current folder and
# the first one of the path hold a decoy of each tool, which must not run.
# usage: wine.sh win64|win32 PROGRAM [ARGUMENT...]
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
wine=$here/../build/wine/$1
shift
cd "$wine/decoys" || exit
export WINEPREFIX=$wine/prefix WINEDEBUG=-all DISPLAY='' LC_ALL=C.UTF-8
# Wine takes its own netsh before any other, unless it is told.
export WINEDLLOVERRIDES=netsh.exe=n
export WINEPATH="Z:${wine//\//\\}\\decoys;Z:${wine//\//\\}\\package"
exec "$(<"$wine/loader")" "$@"
