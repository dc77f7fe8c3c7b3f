@echo off
rem Acceptance test of Mordwell on a real machine with Windows 10 or 11, or Server 2016 or later. It takes about two
rem minutes. It cannot pass on Windows 7 and Server 2008 R2, which have no powershell commands for adapters.
rem
rem Put the files of the package, devcon and the TAP driver into the folders that README.txt names, and this file into
rem the folder of Mordwell.exe. Open cmd with "Run as administrator", change to that folder and enter one of these:
rem
rem     acceptance.cmd           on a machine that has no TAP interface
rem     acceptance.cmd remove    removes ALL TAP interfaces of the machine first, whichever product uses them
rem
rem A step that fails prints what is wrong and the log of its run. A test that passes leaves no TAP interface.
rem Exit code: 0 if all steps passed, 1 if a step failed, 2 if the test did not start.
setlocal EnableExtensions DisableDelayedExpansion
set "tools=%SystemRoot%\System32"
set "answer=%TEMP%\Mordwell answer.txt"
set "log=%ProgramData%\HalvaneRelayKit\log\tap-log.txt"
set "decoys=%TEMP%\Mordwell decoys"
set /a passed=0, failed=0

if not exist "%~dp0Mordwell.exe" (echo Mordwell.exe is not in the folder of this file.& exit /b 2)
rem Windows denies this key to a process that is not elevated.
"%tools%\reg.exe" query HKU\S-1-5-19 >nul 2>&1
if errorlevel 1 (echo This prompt is not elevated: open cmd with "Run as administrator".& exit /b 2)
if /i "%~1"=="remove" start "" /wait "%~dp0Mordwell.exe" remove

rem A state is the number of TAP interfaces, and whether HalvaneRelayKit is absent, enabled or disabled. PowerShell
rem reads it. Windows can finish a change late, so it is read again, for some seconds, until it is the expected one.
set "taps=Get-WmiObject Win32_NetworkAdapter -Filter 'Description=''TAP-Windows Adapter V9'''"
set "kit=switch ($_.ConfigManagerErrorCode) {0 {'enabled'}; 22 {'disabled'}; default {'error ' + $_}}"
set "each=$n++; if ($_.NetConnectionID -eq 'HalvaneRelayKit') {$kit = %kit%}"
set "read=$n = 0; $kit = 'absent'; %taps% | ForEach-Object {%each%}; $state = [string]$n + ' ' + $kit"
set "ask=foreach ($try in 1..9) {%read%; if ($state -eq $expected) {break}; Start-Sleep 1}; $state"

rem        Step                              Word             State after   The log contains
call :step "no TAP interface at first"       list             "0 absent"    "ZELK::Tap::readInterfaces"
if %failed% gtr 0 (echo The test did not start. To remove ALL TAP interfaces first: acceptance.cmd remove& exit /b 2)
call :step "check adds a named interface"    check            "1 disabled"  "ZELK::Tap::rename"
call :step "a second check only updates"     check            "1 disabled"  "Drivers installed successfully."
call :step "enable"                          enable           "1 enabled"   "ZELK::Tap::enable"
call :step "disable"                         disable          "1 disabled"  "ZELK::Tap::disable"

rem The decoys of the two tools that enable needs are copies of hostname, which fails when it is given an argument.
if not exist "%decoys%" md "%decoys%"
for %%t in (cmd powershell) do copy /y "%tools%\hostname.exe" "%decoys%\%%t.exe" >nul
pushd "%decoys%"
if not exist powershell.exe (echo FAIL  the decoys could not be copied& set /a failed+=1)
call :step "enable runs no decoy of a tool"  enable           "1 enabled"   "ZELK::Tap::enable"
popd
rd /s /q "%decoys%"

call :step "create adds a second interface"  create           "2 enabled"   "ZELK::Tap::create"
call :step "removeInterface"                 removeInterface  "1 absent"    "HalvaneRelayKit"
call :step "update"                          update           "1 absent"    "Drivers installed successfully."
call :step "remove"                          remove           "0 absent"    "ZELK::Tap::remove"

echo Question: Did any window flash up? None should.
echo %passed% passed, %failed% failed
if %failed% gtr 0 (exit /b 1) else exit /b 0

rem step NAME WORD STATE TEXT: runs the word, which must exit with 0, lead to STATE, and log TEXT and no error.
:step
if exist "%log%" del "%log%"
set "wrong="& set "state="
start "" /wait "%~dp0Mordwell.exe" %2
if not "%errorlevel%"=="0" set "wrong=, exit code %errorlevel%"
"%tools%\WindowsPowerShell\v1.0\powershell.exe" -NoProfile -NonInteractive -Command "$expected = '%~3'; %ask%" >"%answer%"
set /p state=<"%answer%"
del "%answer%"
if not "%state%"=="%~3" set "wrong=%wrong%, state: %state%, expected: %~3"
"%tools%\find.exe" %4 "%log%" >nul 2>&1
if errorlevel 1 set "wrong=%wrong%, not in the log: %~4"
"%tools%\find.exe" "[ERROR]" "%log%" >nul 2>&1
if not errorlevel 1 set "wrong=%wrong%, in the log: [ERROR]"
if defined wrong (set /a failed+=1& echo FAIL  %~1%wrong%& type "%log%") else (set /a passed+=1& echo PASS  %~1)
