@echo off
rem Runs "Mordwell.exe check", but not again after a check that failed or was killed: after some failures, each further
rem check adds an interface or disables the wrong one, and deployment tools repeat what failed.
rem
rem The folder C:\ProgramData\HalvaneRelayKit\unfinished-check is the marker. This file creates it before the check and
rem removes it after a success. While the marker exists, this file runs nothing. When the check has ended, the marker
rem contains its log. If it is empty, this file was killed during the check, whose log is log\tap-log.txt; if there is
rem no log at all, the check changed nothing.
rem
rem Exit code:
rem     0    The check succeeded, and an interface is named HalvaneRelayKit.
rem     101  Nothing was run, and no marker was made: a file or folder is missing, or the old log cannot be deleted.
rem     102  Nothing was run: another check.cmd is running, or the data folder cannot be written.
rem     103  Nothing was run: the marker of an earlier check exists.
rem     104  The check exited with 0, but its log is missing or stops early, or list shows no interface that is named
rem          HalvaneRelayKit. The marker stays.
rem     105  The check succeeded, but the marker could not be removed.
rem     Any other code is that of the check: it failed (-1) or was killed (usually 1). The marker stays, unless the
rem          check left no log and so changed nothing.
setlocal EnableExtensions DisableDelayedExpansion
set "program=%~dp0Mordwell.exe"
set "data=%ProgramData%\HalvaneRelayKit"
set "log=%data%\log\tap-log.txt"
set "marker=%data%\unfinished-check"
set "find=%SystemRoot%\System32\find.exe"

rem Before each step, code and message are set to what this file reports if the step fails.
set "code=101"
set "message=Nothing was run: Mordwell.exe is not in the folder of check.cmd."
if not exist "%program%" goto end
set "message=Nothing was run: run elevated, after make-log-folder.ps1 has made '%data%\log'."
if not exist "%data%\log\" goto end

rem The lock is an open file: while one process redirects to it, the redirection of another one fails, and with it the
rem call. When this file and the programs that it started have ended, a file that they left locks nothing.
set "code=102"
set "message=Nothing was run: another check.cmd is running, or '%data%' cannot be written."
call :check 9>"%data%\check.lock"
:end
echo %message%
exit /b %code%

:check
set "code=103"
set "message=Nothing was run: an earlier check failed or was killed. Follow docs\log.md, then delete '%marker%'."
if exist "%marker%" exit /b
set "code=101"
set "message=Nothing was run: '%log%' cannot be deleted. Another program may have it open."
rem If a folder has the place of the log, del would delete the files in it.
if not exist "%log%\*" if exist "%log%" del /f /q "%log%"
if exist "%log%" exit /b
set "message=Nothing was run: '%marker%' cannot be created."
md "%marker%"
if not exist "%marker%\" exit /b

"%program%" check
set "code=%errorlevel%"
set "message=The check ended with code %code%. Its log, if any, is in '%marker%'. Follow docs\log.md."
if exist "%log%" copy /y "%log%" "%marker%" >nul
rem A check without a log changed nothing, so it can be repeated.
if not "%code%"=="0" if not exist "%log%" rd "%marker%"
if not "%code%"=="0" exit /b

rem A check that was killed can exit with 0, too. Its last step is to disable the interface: a log in which this step has
rem begun counts as complete.
set "code=104"
set "message=The check exited with 0, but '%marker%' does not contain a complete log."
"%find%" "ZELK::Tap::disable()" "%marker%\tap-log.txt" >nul
if not "%errorlevel%"=="0" exit /b

rem A check exits with 0 even if it could not name the new interface.
set "message=No interface is named HalvaneRelayKit, or list failed. The log of the check is in '%marker%'."
"%program%" list
if not "%errorlevel%"=="0" exit /b
"%find%" """HalvaneRelayKit""" "%log%" >nul
if not "%errorlevel%"=="0" exit /b

set "code=105"
set "message=The check succeeded. '%marker%' cannot be removed: delete it."
move /y "%marker%\tap-log.txt" "%log%" >nul
rd "%marker%"
if exist "%marker%" exit /b
set "code=0"
set "message=The check succeeded."
exit /b
