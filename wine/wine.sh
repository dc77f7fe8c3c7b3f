#!/usr/bin/env bash
# Starts a Windows program under Wine, in the prefix of the build and with the tools' doubles in front of Wine's
# own. Ends with its exit code.
build=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)/build/wine
# A tool started directly is looked for in the current folder before Wine's; one started by cmd, on the path.
cd "$build/tools" || exit
export WINEPREFIX=$build/prefix WINEDEBUG=-all
export WINEPATH="Z:${build//\//\\}\\tools;Z:${build//\//\\}\\package"
exec /usr/lib/wine/wine64 "$@"
