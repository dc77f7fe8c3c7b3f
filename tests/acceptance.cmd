@echo off
rem Acceptance test of Mordwell on a real machine with Windows 7 to 11. It takes about two minutes.
rem
rem Install the driver package and copy this file to the folder of Mordwell.exe. Open Network Connections (ncpa.cpl)
rem to watch it, open cmd with "Run as administrator", change to that folder and enter one of these lines:
rem
rem     acceptance.cmd           on a machine that has no TAP interface
rem     acceptance.cmd remove    removes ALL TAP interfaces of the machine first, whichever product uses them
rem
rem A step that fails prints what is wrong and the log of its run. A test that passes leaves no TAP interface.
rem Exit code: 0 if all steps passed, 1 if a step failed, 2 if the test did not start.
setlocal EnableExtensions DisableDelayedExpansion
set "log=%ProgramData%\HalvaneRelayKit\log\tap-log.txt"
set "decoys=%TEMP%\Mordwell decoys"
set /a passed=0, failed=0
rem A good run logs no error. Windows 7 is an exception: it has no powershell commands for adapters, so netsh is tried.
set "error=ERROR"
ver | find " 6.1." >nul
if not errorlevel 1 set "error=Failed to read interfaces"

if not exist "%~dp0Mordwell.exe" (echo Mordwell.exe is not in the folder of this file.& exit /b 2)
rem Windows denies this key to a process that is not elevated.
reg query HKU\S-1-5-19 >nul 2>&1
if errorlevel 1 (echo This prompt is not elevated: open cmd with "Run as administrator".& exit /b 2)
if /i "%~1"=="remove" start "" /wait "%~dp0Mordwell.exe" remove

rem readInterfacesProgrammatically() logs each interface, and each failure of WMI, such as that to initialize security.
rem        Step                                     Word             The log contains             and does not contain
call :step "the machine has no TAP interface"       list             "ZELK::Tap::readInterfaces"  "Programmatically"
if %failed% gtr 0 (echo The test did not start. If all TAP interfaces may go: acceptance.cmd remove& exit /b 2)
call :step "help logs the usage"                    help             "Usage: Mordwell"            "%error%"
call :step "check creates and names an interface"   check            "ZELK::Tap::rename"          "%error%"
call :step "a second check creates nothing"         check            "interface already present"  "ZELK::Tap::create"
call :step "list finds the interface by its name"   list             "HalvaneRelayKit"            "%error%"
call :step "enable"                                 enable           "ZELK::Tap::enable"          "%error%"
call :step "disable"                                disable          "ZELK::Tap::disable"         "%error%"

rem The decoys are copies of hostname, which fails when it is given an argument.
if not exist "%decoys%" md "%decoys%"
for %%t in (cmd powershell netsh wmic) do copy /y "%SystemRoot%\System32\hostname.exe" "%decoys%\%%t.exe" >nul
pushd "%decoys%"
if not exist wmic.exe (echo FAIL  the decoys could not be copied& set /a failed+=1)
call :step "enable runs no decoy of a tool"         enable           "ZELK::Tap::enable"          "%error%"
popd
rd /s /q "%decoys%"

call :step "create adds a second interface"         create           "ZELK::Tap::create"          "%error%"
call :step "removeInterface"                        removeInterface  "HalvaneRelayKit"            "%error%"
call :step "the second interface is still there"    list             "PNPDeviceID"                "HalvaneRelayKit"
call :step "remove"                                 remove           "ZELK::Tap::remove"          "%error%"
call :step "no TAP interface is left"               list             "ZELK::Tap::readInterfaces"  "Programmatically"

echo Question 1: Did any window flash up? None should.
echo Question 2: Did Network Connections show HalvaneRelayKit disabled after check, and then as each step leaves it?
echo %passed% passed, %failed% failed
if %failed% gtr 0 (exit /b 1) else exit /b 0

rem step NAME WORD TEXT ABSENT: runs the word, which must exit with 0, log TEXT and not log ABSENT.
:step
if exist "%log%" del "%log%"
set "wrong="
start "" /wait "%~dp0Mordwell.exe" %2
if not "%errorlevel%"=="0" set "wrong=, exit code %errorlevel%"
find %3 "%log%" >nul 2>&1
if errorlevel 1 set "wrong=%wrong%, not in the log: %~3"
find %4 "%log%" >nul 2>&1
if not errorlevel 1 set "wrong=%wrong%, in the log: %~4"
if defined wrong (set /a failed+=1& echo FAIL  %~1%wrong%& type "%log%") else (set /a passed+=1& echo PASS  %~1)
