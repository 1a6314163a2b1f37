@echo off
rem Shows what the rules of Quillmarch.ini, next to this file, would do on this machine. Nothing is changed: the machine
rem is read by _capture_machine.cmd, and Quillmarch runs on a simulated copy of it. No administrator is needed.
rem
rem   _rehearse_here.cmd           opens the report, and waits for a key at the end
rem   _rehearse_here.cmd /quiet    does neither
rem
rem Exit code: 0 all is well, 1 there is something to look at, 2 it could not be done, 3 the machine is only captured,
rem since this Windows cannot run the rehearsal tool or the tool is not there.
setlocal enableextensions disabledelayedexpansion
set "HERE=%~dp0"
set "HERE=%HERE:~0,-1%"
set "TOOL=%HERE%\quillmarch-rehearse.exe"
set "QM_INI=%HERE%\Quillmarch.ini"
if not exist "%QM_INI%" goto no_ini
if not exist "%HERE%\_capture_machine.cmd" goto no_capture

rem On a share that cannot be written, the results go to this machine.
set "BASE=%HERE%"
set "OUT=%BASE%\Quillmarch_%COMPUTERNAME%"
md "%OUT%" 2>nul
del /q "%OUT%\~probe.tmp" 2>nul
copy /y nul "%OUT%\~probe.tmp" >nul 2>nul
if not exist "%OUT%\~probe.tmp" set "BASE=%TEMP%"
del /q "%OUT%\~probe.tmp" 2>nul
set "OUT=%BASE%\Quillmarch_%COMPUTERNAME%"
if not "%BASE%"=="%HERE%" echo This folder cannot be written. The results go to "%BASE%".

call "%HERE%\_capture_machine.cmd" "%BASE%"
if errorlevel 1 goto not_captured
if /i "%PROCESSOR_ARCHITECTURE%"=="x86" if not defined PROCESSOR_ARCHITEW6432 goto only_captured
if not exist "%TOOL%" goto only_captured

set "LANGUAGE=en"
set "UI="
for /f "tokens=2,3" %%t in ('%SystemRoot%\System32\reg.exe query "HKLM\SYSTEM\CurrentControlSet\Control\Nls\Language" /v InstallLanguage 2^>nul') do if "%%t"=="REG_SZ" set "UI=%%u"
if "%UI:~-2%"=="07" set "LANGUAGE=de"
del /q "%OUT%\report.html" 2>nul

echo.
echo Checking the rules:
"%TOOL%" --rules "%QM_INI%" "%OUT%"
set "RULES=%errorlevel%"
echo.
echo Rehearsing: the start of Windows, adapters that are pulled and plugged, sleep.
"%TOOL%" --quiet --strict --language %LANGUAGE% --html "%OUT%\report.html" "%OUT%"
set "RESULT=%errorlevel%"
echo.
if %RESULT% gtr 1 goto not_rehearsed
if %RULES% gtr 1 goto not_rehearsed
rem Such as a program that crashed, or that a policy does not let run.
if not exist "%OUT%\report.html" goto not_rehearsed
if not "%RULES%%RESULT%"=="00" set "RESULT=1"
if "%RESULT%"=="0" echo ALL IS WELL. Each port gets the number that its rule wants.
if "%RESULT%"=="1" echo THERE IS SOMETHING TO LOOK AT. The lines above and the report say what.
echo The report:
echo   "%OUT%\report.html"
if /i not "%~1"=="/quiet" start "" "%OUT%\report.html"
goto end

:no_ini
echo There is no Quillmarch.ini in this folder. _edit_ini.cmd makes one.
echo   "%HERE%"
set "RESULT=2"
goto end

:no_capture
echo _capture_machine.cmd is missing. Unpack the whole package, or copy all of its files.
set "RESULT=2"
goto end

:not_captured
echo The machine could not be read, so that nothing was rehearsed.
set "RESULT=2"
goto end

:only_captured
echo.
echo This machine is only captured: a rehearsal needs 64-bit Windows, and the program
echo quillmarch-rehearse.exe next to this file. Or copy the folder to a machine that has the
echo rehearsal tool, and enter there:
echo   quillmarch-rehearse --html report.html Quillmarch_%COMPUTERNAME%
set "RESULT=3"
goto end

:not_rehearsed
echo IT COULD NOT BE REHEARSED. The lines above say why. The captured machine is here:
echo   "%OUT%"
set "RESULT=2"

:end
if /i not "%~1"=="/quiet" pause
exit /b %RESULT%
