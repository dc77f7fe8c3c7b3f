#!/usr/bin/env bash
# Makes what the tests under Wine need in build/wine/KIND: a prefix of that kind with the fake tools where Windows
# has the tools and ours for WMI's locator, decoys of the tools, and the unpacked package.
# usage: prepare.sh win64|win32
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/common.sh"
kind=$1
wine=$root/build/wine/$kind
built=$root/build/$kind
mkdir -p "$wine"

# program PACKAGE NAME...: the first program of one of these names that the package brings.
program() {
    local file
    for file in $(dpkg -L "$1" | grep -E "/lib/.*/($2)\$"); do
        if [[ -f $file && -x $file ]]; then echo "$file" && return; fi
    done
    fail "$1 brings none of $2"
}
if [[ $kind == win64 ]]; then package=wine64; else package=wine32:i386; fi
program "$package" 'wine64|wine' >"$wine/loader"
export WINEARCH=$kind WINEPREFIX=$wine/prefix WINEDEBUG=-all DISPLAY='' WINEDLLOVERRIDES='mscoree,mshtml='
loader=$(<"$wine/loader")
if [[ ! -d $wine/prefix ]]; then
    rm -rf "$wine/prefix.new"
    WINEPREFIX=$wine/prefix.new quietly "making a Wine prefix for $kind" "$loader" wineboot --init
    WINEPREFIX=$wine/prefix.new "$(program "$package" 'wineserver(64|32)?')" --wait
    mv "$wine/prefix.new" "$wine/prefix"
fi

windows=$wine/prefix/drive_c/windows
tools=$windows/system32
rm -rf "$wine/package" "$wine/unpacked" "$wine/decoys"
unzip -q "$root"/build/Mordwell-*-"$kind.zip" -d "$wine/unpacked"
mv "$wine"/unpacked/* "$wine/package"
cp "$built/fake_tool.exe" "$wine/fake_tool.exe"
mkdir -p "$wine/decoys" "$tools/WindowsPowerShell/v1.0" "$wine/prefix/drive_c/Program Files/HalvaneRelayKit/bin"
for decoy in cmd powershell netsh wmic; do cp "$built/fake_tool.exe" "$wine/decoys/$decoy.exe"; done
cp --remove-destination "$built/fake_tool.exe" "$tools/netsh.exe"
cp --remove-destination "$built/fake_tool.exe" "$tools/WindowsPowerShell/v1.0/powershell.exe"
cp "$wine/package/Qt5Core.dll" "$built/fake_locator.dll" "$tools"
# What any user can make, and what must not silence the log.
mkdir -p "$wine/prefix/drive_c/ProgramData/QtProject"
printf '[Rules]\n*.debug=false\n' >"$wine/prefix/drive_c/ProgramData/QtProject/qtlogging.ini"
register() {
    "$loader" reg add 'HKCU\Software\Wine' /v Version /d win10 /f &&
        "$loader" reg add 'HKLM\Software\Classes\CLSID\{4590F811-1D3A-11D0-891F-00AA004B2E24}\InprocServer32' \
            /ve /d 'C:\windows\system32\fake_locator.dll' /f
}
quietly "telling Wine of the version of Windows and of the locator" register
