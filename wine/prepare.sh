#!/usr/bin/env bash
# Prepares build/wine/ARCH for the tests under Wine: a prefix with the fake tools in the place of Windows' own and with
# the fake locator registered for WMI's, a folder of decoys of the tools, and the unpacked package.
# usage: prepare.sh win64|win32, for win32 after root32.sh
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/common.sh"
arch=$1
wine=$root/build/wine/$arch
built=$root/build/$arch
mkdir -p "$wine"

[[ $arch == win32 ]] || echo /usr/lib/wine/wine64 >"$wine/loader"
mapfile -t loader <"$wine/loader"
# The loader's last word is Wine's own program.
server=("${loader[@]:0:${#loader[@]}-1}" "/usr/lib/wine/wineserver${arch#win}")
export WINEARCH=$arch WINEPREFIX=$wine/prefix WINEDEBUG=-all DISPLAY='' WINEDLLOVERRIDES='mscoree,mshtml='
if [[ ! -d $wine/prefix ]]; then
    rm -rf "$wine/prefix.new"
    WINEPREFIX=$wine/prefix.new quietly "making a Wine prefix for $arch" "${loader[@]}" wineboot --init
    WINEPREFIX=$wine/prefix.new "${server[@]}" --wait
    mv "$wine/prefix.new" "$wine/prefix"
fi

windows=$wine/prefix/drive_c/windows
tools=$windows/system32
rm -rf "$wine/package" "$wine/unpacked" "$wine/decoys"
unzip -q "$root"/build/Mordwell-*-"$arch.zip" -d "$wine/unpacked"
mv "$wine"/unpacked/* "$wine/package"
cp "$built/fake_tool.exe" "$wine/fake_tool.exe"
mkdir -p "$wine/decoys" "$tools/WindowsPowerShell/v1.0" "$wine/prefix/drive_c/Program Files/HalvaneRelayKit/bin"
for decoy in cmd find netsh powershell reg wmic; do cp "$built/fake_tool.exe" "$wine/decoys/$decoy.exe"; done
cp --remove-destination "$built/fake_tool.exe" "$tools/netsh.exe"
cp --remove-destination "$built/fake_tool.exe" "$tools/WindowsPowerShell/v1.0/powershell.exe"
cp "$built/fake_locator.dll" "$tools"
# The fakes load Qt under this name.
cp "$wine/package/Qt5Core.dll" "$tools/FakeQt5.dll"
# Any user can create this file, and it must not silence the log.
mkdir -p "$wine/prefix/drive_c/ProgramData/QtProject"
printf '[Rules]\n*.debug=false\n' >"$wine/prefix/drive_c/ProgramData/QtProject/qtlogging.ini"
register() {
    "${loader[@]}" reg add 'HKCU\Software\Wine' /v Version /d win10 /f &&
        "${loader[@]}" reg add 'HKLM\Software\Classes\CLSID\{4590F811-1D3A-11D0-891F-00AA004B2E24}\InprocServer32' \
            /ve /d 'C:\windows\system32\fake_locator.dll' /f
}
quietly "registering the version of Windows and the fake locator" register
