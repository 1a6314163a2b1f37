@echo off
rem Writes one folder, Quillmarch_COMPUTERNAME, with what a rehearsal needs to know of this machine:
rem   quillmarch-rehearse Quillmarch_COMPUTERNAME
rem The machine itself is only read, never changed. No administrator is needed. Windows XP to 11.
rem
rem   _capture_machine.cmd           the folder is made next to this file, or in TEMP where nothing can be written
rem   _capture_machine.cmd FOLDER    it is made in FOLDER, for example on a share; asks nothing at the end
rem
rem Exit code: 0 the folder is written, 1 it could not be written or no device could be read.
setlocal enableextensions disabledelayedexpansion
set "REG=%SystemRoot%\System32\reg.exe"
set "ENUM=HKLM\SYSTEM\CurrentControlSet\Enum"
set "CONTROL=HKLM\SYSTEM\CurrentControlSet\Control"

set "BASE=%~1"
if not defined BASE set "BASE=%~dp0"
if "%BASE:~-1%"=="\" set "BASE=%BASE:~0,-1%"
call :prepare
if not defined WRITABLE if "%~1"=="" set "BASE=%TEMP%"
if not defined WRITABLE if "%~1"=="" call :prepare
if not defined WRITABLE goto no_folder

echo Reading this machine. This takes up to two minutes; nothing is changed.
call :needless_things
call :devices
if not exist "%WORK%\registry.txt" goto no_devices
call :other_keys
call :properties
call :connected
call :windows
call :product
call :write_folder
echo.
echo Done. The machine is in this folder:
echo   "%OUT%"
if exist "%OUT%\not_read.txt" echo Not readable here, a rehearsal does without:
if exist "%OUT%\not_read.txt" type "%OUT%\not_read.txt"
set "RESULT=0"
goto end

:no_folder
echo Nothing is captured: no file can be written in
echo   "%BASE%"
echo Start this file from a folder in which you may write, or name one:
echo   _capture_machine.cmd D:\captures
set "RESULT=1"
goto end

:no_devices
echo Nothing is captured: Windows gives no access to the list of devices,
echo   "%ENUM%"
set "RESULT=1"

:end
if defined WORK rd /s /q "%WORK%" 2>nul
if "%~1"=="" if not defined QM_NO_PAUSE pause
exit /b %RESULT%

rem ---------------------------------------------------------------------------------------------------------------------
rem OUT: the folder in BASE. WRITABLE: it can be written. WORK: a folder for what is not finished, on this machine.
:prepare
set "OUT=%BASE%\Quillmarch_%COMPUTERNAME%"
set "WRITABLE="
md "%OUT%" 2>nul
del /q "%OUT%\~probe.tmp" 2>nul
copy /y nul "%OUT%\~probe.tmp" >nul 2>nul
if not exist "%OUT%\~probe.tmp" exit /b 1
del /q "%OUT%\~probe.tmp"
set "WRITABLE=1"
set "WORK=%TEMP%\quillmarch_%RANDOM%%RANDOM%"
md "%WORK%" 2>nul
if not exist "%WORK%\" set "WRITABLE="
exit /b 0

rem What a rehearsal does not read: printers, disks, networks, screens, sound, cameras, keyboards, batteries. By the class
rem of the device, by its driver, or by the branch below Enum.
:needless_things
for %%c in (4d36e972-e325-11ce-bfc1-08002be10318 4d36e973-e325-11ce-bfc1-08002be10318) do set "NEEDLESS_{%%c}=1"
for %%c in (4d36e974-e325-11ce-bfc1-08002be10318 4d36e975-e325-11ce-bfc1-08002be10318) do set "NEEDLESS_{%%c}=1"
for %%c in (4d36e979-e325-11ce-bfc1-08002be10318 4d36e97a-e325-11ce-bfc1-08002be10318) do set "NEEDLESS_{%%c}=1"
for %%c in (4658ee7e-f050-11d1-b6bd-00c04fa372a7 1ed2bbf9-11f0-4084-b21f-ad83a8e6dcdc) do set "NEEDLESS_{%%c}=1"
for %%c in (48721b56-6795-11d2-b1a8-0080c72e74a2 49ce6ac8-6f86-11d2-b1e5-0080c72e74a2) do set "NEEDLESS_{%%c}=1"
for %%c in (c30ecea0-11ef-4ef9-b02e-6af81e6e65c0 4d36e967-e325-11ce-bfc1-08002be10318) do set "NEEDLESS_{%%c}=1"
for %%c in (4d36e965-e325-11ce-bfc1-08002be10318 71a27cdd-812a-11d0-bec7-08002be2092f) do set "NEEDLESS_{%%c}=1"
for %%c in (533c5b84-ec70-11d2-9505-00c04f79deaf 4d36e97b-e325-11ce-bfc1-08002be10318) do set "NEEDLESS_{%%c}=1"
for %%c in (4d36e96a-e325-11ce-bfc1-08002be10318 4d36e969-e325-11ce-bfc1-08002be10318) do set "NEEDLESS_{%%c}=1"
for %%c in (4d36e980-e325-11ce-bfc1-08002be10318 6d807884-7d21-11cf-801c-08002be10318) do set "NEEDLESS_{%%c}=1"
for %%c in (ce5939ae-ebde-11d0-b181-0000f8753ec4 4d36e968-e325-11ce-bfc1-08002be10318) do set "NEEDLESS_{%%c}=1"
for %%c in (4d36e96e-e325-11ce-bfc1-08002be10318 4d36e96c-e325-11ce-bfc1-08002be10318) do set "NEEDLESS_{%%c}=1"
for %%c in (c166523c-fe0c-4a94-a586-f1a80cfbbf3e 5989fce8-9cd0-467d-8a6a-5419e31529d4) do set "NEEDLESS_{%%c}=1"
for %%c in (6bdd1fc6-810f-11d0-bec7-08002be2092f ca3e7ab9-b4c3-4ae6-8251-579ef933890f) do set "NEEDLESS_{%%c}=1"
for %%c in (eec5ad98-8080-425f-922a-dabf3de3f69a 4d36e96b-e325-11ce-bfc1-08002be10318) do set "NEEDLESS_{%%c}=1"
for %%c in (4d36e96f-e325-11ce-bfc1-08002be10318 745a17a0-74d3-11d0-b6fe-00a0c90f57da) do set "NEEDLESS_{%%c}=1"
for %%c in (50dd5230-ba8a-11d1-bf5d-0000f805f530 990a2bd7-e738-46c7-b26f-1cf8fb9f1391) do set "NEEDLESS_{%%c}=1"
for %%c in (db4f6ddd-9c0e-45e4-9597-78dbbad0f412 53d29ef7-377c-4d14-864b-eb3a85769359) do set "NEEDLESS_{%%c}=1"
for %%c in (5175d334-c371-4806-b3ba-71fd53c9258d 72631e54-78a4-11d0-bcf7-00aa00b7b32a) do set "NEEDLESS_{%%c}=1"
for %%c in (50127dc3-0f36-415e-a6cc-4cb3be910b65 f2e7dd72-6468-4e36-b6f1-6488f42c1b52) do set "NEEDLESS_{%%c}=1"
for %%c in (d94ee5d8-d189-4994-83d2-f68d7d41b0e6 62f9c741-b25a-46ce-b54c-9bccce08b6f2) do set "NEEDLESS_{%%c}=1"
for %%c in (5c4c3332-344d-483c-8739-259e934c9cc8 8ecc055d-047f-11d1-a537-0000f8753ed1) do set "NEEDLESS_{%%c}=1"
for %%c in (6bdd1fc1-810f-11d0-bec7-08002be2092f 7ebefbc0-3200-11d2-b4c2-00a0c9697d07) do set "NEEDLESS_{%%c}=1"
for %%c in (d48179be-ec20-11d1-b6b8-00c04fa372a7 c06ff265-ae09-48f0-812c-16753d7cba83) do set "NEEDLESS_{%%c}=1"
for %%c in (6bdd1fc5-810f-11d0-bec7-08002be2092f 4d36e970-e325-11ce-bfc1-08002be10318) do set "NEEDLESS_{%%c}=1"
for %%c in (5630831c-06c9-4856-b327-f5d32586e060 e2f84ce7-8efa-411c-aa69-97454ca4cb57) do set "NEEDLESS_{%%c}=1"
for %%c in (f01a9d53-3ff6-48d2-9f97-c8a7004be10c) do set "NEEDLESS_{%%c}=1"
for %%s in (USBSTOR UASPStor usbprint usbscan WUDFWpdMtp) do set "NEEDLESS_DRIVER_%%s=1"
for %%e in (SWD SW STORAGE SCSI IDE USBSTOR UASPSTOR SD NVME FDC DISPLAY HDAUDIO INTELAUDIO) do set "SKIP_%%e=1"
for %%e in (HID LPTENUM USBPRINT PRINTENUM DOT4 DOT4PRT WPDBUSENUM WPDBUSENUMROOT UMB) do set "SKIP_%%e=1"
for %%e in (MMDEVAPI RDPBUS TERMINPUT_BUS TS_USB_HUB_ENUMERATOR BTHLE BTHLEDEVICE BTHHFENUM) do set "SKIP_%%e=1"
for %%e in (DRIVERENUM MPIO ISCSIPRT SBP2 1394 UEFI) do set "SKIP_%%e=1"
rem The classes of buses: their devices are needed for the tree, their drivers' keys are not. System, computer,
rem multifunction, Bluetooth, USB device.
for %%c in (4d36e97d-e325-11ce-bfc1-08002be10318 4d36e966-e325-11ce-bfc1-08002be10318) do set "WRITTEN_{%%c}=1"
for %%c in (4d36e971-e325-11ce-bfc1-08002be10318 e0cbf06c-cd8b-4647-bb8a-263b43f0f974) do set "WRITTEN_{%%c}=1"
for %%c in (88bae032-5a81-49f0-bc3d-a4ff138216d6) do set "WRITTEN_{%%c}=1"
exit /b 0

rem Goes through the branches below Enum.
:devices
for /f "tokens=5 delims=\" %%e in ('%REG% query "%ENUM%" 2^>nul') do (
    set "BRANCH=%%e"
    if not defined SKIP_%%e call :branch
)
exit /b 0

rem Goes through the devices of BRANCH. The tokens of a line of `reg query` are, for a key, HKEY_LOCAL_MACHINE, SYSTEM,
rem CurrentControlSet, Enum, branch, device, instance, what is below; for a value its name, type, data. They are split at
rem backslashes, tabs (Windows XP) and blanks, which no id has. The letters are at the end of the alphabet, since Wine expands
rem %vendor% in a text once more, as the variable %%v and the rest.
:branch
echo   %BRANCH%
%REG% query "%ENUM%\%BRANCH%" /s >"%WORK%\branch.txt" 2>nul
set "DEVICE="
for /f "usebackq tokens=1,3,6-8 delims=\	 " %%V in ("%WORK%\branch.txt") do (
    set "NEXT_DEVICE=%%X"
    set "NEXT_INSTANCE=%%Y"
    if "%%V"=="HKEY_LOCAL_MACHINE" if not "%%Y"=="" if "%%Z"=="" call :next_instance
    if /i "%%V\%%Z"=="HKEY_LOCAL_MACHINE\Control" set "PRESENT=1"
    if /i "%%V"=="ClassGUID" set "CLASS=%%W"
    if /i "%%V"=="Service" set "DRIVER=%%W"
)
call :instance
exit /b 0

rem A serial number may have quotes; what stands after one would be run as a command.
:next_instance
call :instance
set "DEVICE=%NEXT_DEVICE:"=%"
set "INSTANCE=%NEXT_INSTANCE:"=%"
exit /b 0

rem The instance that has been read is over: if it is needed, it goes into the lists, and its device into the export.
:instance
if not defined DEVICE goto instance_over
if not defined CLASS goto instance_over
if defined NEEDLESS_%CLASS% goto instance_over
if defined NEEDLESS_DRIVER_%DRIVER% goto instance_over
rem Telephones and headsets that were paired are no part of the tree.
if /i "%BRANCH%\%CLASS%"=="BTHENUM\{e0cbf06c-cd8b-4647-bb8a-263b43f0f974}" goto instance_over
>>"%WORK%\known.txt" echo "%BRANCH%\%DEVICE%\%INSTANCE%"
if defined PRESENT >>"%WORK%\marked.txt" echo "%BRANCH%\%DEVICE%\%INSTANCE%"
set "KEY=%ENUM%\%BRANCH%\%DEVICE%"
if not "%WRITTEN%"=="%BRANCH%\%DEVICE%" call :export
set "WRITTEN=%BRANCH%\%DEVICE%"
set "KNOWN_%BRANCH%\%DEVICE%=1"
if defined WRITTEN_%CLASS% goto instance_over
set "WRITTEN_%CLASS%=1"
set "KEY=%CONTROL%\Class\%CLASS%"
call :export_if_there
:instance_over
set "DEVICE="
set "CLASS="
set "DRIVER="
set "PRESENT="
exit /b 0

rem Appends KEY to the export; exports that stand one after another are one file for the rehearsal.
:export
del /q "%WORK%\part.reg" 2>nul
%REG% export "%KEY%" "%WORK%\part.reg" >nul 2>nul
if not exist "%WORK%\part.reg" (
    >>"%WORK%\not_read.txt" echo   the key "%KEY%"
    exit /b 1
)
if not exist "%WORK%\registry.txt" (
    copy /b /y "%WORK%\part.reg" "%WORK%\registry.txt" >nul
) else (
    copy /b /y "%WORK%\registry.txt"+"%WORK%\part.reg" "%WORK%\registry.txt" >nul
)
exit /b 0

rem A key that not every machine has.
:export_if_there
%REG% query "%KEY%" >nul 2>nul
if not errorlevel 1 call :export
exit /b 0

rem The numbers that are taken, the interfaces of ports and modems, a configuration in the registry.
:other_keys
set "KEY=%CONTROL%\COM Name Arbiter"
call :export_if_there
for %%c in (86e0d1e0-8089-11d0-9ce4-08003e301f73 2c7089aa-2e0e-11d1-b114-00c04fc2aae4) do (
    set "KEY=%CONTROL%\DeviceClasses\{%%c}"
    call :export_if_there
)
set "KEY=HKLM\SOFTWARE\Tarn Holve\Quillmarch"
call :export_if_there
exit /b 0

rem What is connected: pnputil of Windows 10 1903 and later knows it, PowerShell of Windows 10, else the keys that
rem Windows keeps only for what is there. Of pnputil's list, in whatever language, only the devices of the export are taken.
:connected
set "PNPUTIL=%SystemRoot%\System32\pnputil.exe"
if exist "%PNPUTIL%" "%PNPUTIL%" /enum-devices /connected >"%WORK%\pnputil.txt" 2>nul
if not exist "%WORK%\pnputil.txt" goto by_registry
for /f "usebackq tokens=1,* delims=:" %%a in ("%WORK%\pnputil.txt") do (
    set "LISTED=%%b"
    call :listed
)
:by_registry
if not exist "%WORK%\connected.txt" if exist "%WORK%\present.txt" copy /y "%WORK%\present.txt" "%WORK%\connected.txt" >nul
if not exist "%WORK%\connected.txt" if exist "%WORK%\marked.txt" copy /y "%WORK%\marked.txt" "%WORK%\connected.txt" >nul
if not exist "%WORK%\connected.txt" >>"%WORK%\not_read.txt" echo   which devices are connected: all that Windows knows are taken for connected
exit /b 0

:listed
if defined LISTED set "LISTED=%LISTED:"=%"
if not defined LISTED exit /b 0
for /f "tokens=1-3 delims=\ " %%x in ("%LISTED%") do (
    if not "%%z"=="" if defined KNOWN_%%x\%%y >>"%WORK%\connected.txt" echo "%%x\%%y\%%z"
)
exit /b 0

rem Parents, location paths, presence: Windows 10 and later, through PowerShell; nothing else has the cmdlet. The last
rem parent is asked for alone and only where there is none: one name that a version does not know fails the whole question.
:properties
echo   what is connected, and where
set "SHELL=%SystemRoot%\System32\WindowsPowerShell\v1.0\powershell.exe"
if exist "%SHELL%" "%SHELL%" -NoProfile -NonInteractive -ExecutionPolicy Bypass -Command "$ErrorActionPreference='SilentlyContinue'; $k=@('DEVPKEY_Device_Parent','DEVPKEY_Device_LocationPaths','DEVPKEY_Device_IsPresent'); $t=[string][char]9; $there=@(); if(Get-Command Get-PnpDeviceProperty){ $lines=@(foreach($i in Get-Content -LiteralPath ($env:WORK+'\known.txt')){ $i=$i.Trim([char]34); $v=@{}; foreach($p in Get-PnpDeviceProperty -InstanceId $i -KeyName $k){ $v[$p.KeyName]=@($p.Data)[0] }; $u=$v[$k[0]]; if(-not $u){ $u=@((Get-PnpDeviceProperty -InstanceId $i -KeyName DEVPKEY_Device_LastKnownParent).Data)[0] }; if($v[$k[2]]){ $there+=$i }; if($u -or $v[$k[1]]){ $i+$t+$u+$t+$v[$k[1]] } }); if($lines){ [IO.File]::WriteAllLines($env:WORK+'\properties.txt',[string[]]$lines) }; if($there){ [IO.File]::WriteAllLines($env:WORK+'\present.txt',[string[]]$there) } }" >nul 2>nul <nul
if not exist "%WORK%\properties.txt" >>"%WORK%\not_read.txt" echo   parents and location paths of devices: the tree follows from the registry
exit /b 0

rem Version, edition, language and uptime of Windows.
:windows
set "NT=HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion"
for /f "tokens=2,3" %%t in ('%REG% query "%NT%" /v CurrentVersion 2^>nul') do if "%%t"=="REG_SZ" set "VERSION=%%u"
for /f "tokens=2,3" %%t in ('%REG% query "%NT%" /v CurrentMajorVersionNumber 2^>nul') do if "%%t"=="REG_DWORD" set /a MAJOR=%%u
for /f "tokens=2,3" %%t in ('%REG% query "%NT%" /v CurrentMinorVersionNumber 2^>nul') do if "%%t"=="REG_DWORD" set /a MINOR=%%u
for /f "tokens=2,3" %%t in ('%REG% query "%NT%" /v CurrentBuildNumber 2^>nul') do if "%%t"=="REG_SZ" set "BUILD=%%u"
if defined MAJOR set "VERSION=%MAJOR%.%MINOR%"
set "EDITION=x64"
if /i "%PROCESSOR_ARCHITECTURE%"=="x86" if not defined PROCESSOR_ARCHITEW6432 set "EDITION=x86"
for /f "tokens=2,3" %%t in ('%REG% query "%CONTROL%\Nls\Language" /v InstallLanguage 2^>nul') do if "%%t"=="REG_SZ" set "LANGUAGE=%%u"
set "UPTIME="
if exist "%SHELL%" for /f %%s in ('%SHELL% -NoProfile -NonInteractive -Command "[int64]([Diagnostics.Stopwatch]::GetTimestamp()/[Diagnostics.Stopwatch]::Frequency)" 2^>nul ^<nul') do set "UPTIME=%%s"
if not defined UPTIME if exist "%SystemRoot%\System32\wbem\wmic.exe" call :uptime_by_wmic
if not defined UPTIME >>"%WORK%\not_read.txt" echo   the uptime: one hour is taken
exit /b 0

:uptime_by_wmic
set "BOOT="
set "NOW="
set "WMIC=%SystemRoot%\System32\wbem\wmic.exe"
for /f "tokens=1,2 delims=." %%a in ('%WMIC% os get LastBootUpTime 2^>nul ^<nul') do if not "%%b"=="" set "BOOT=%%a"
for /f "tokens=1,2 delims=." %%a in ('%WMIC% os get LocalDateTime 2^>nul ^<nul') do if not "%%b"=="" set "NOW=%%a"
if not defined BOOT exit /b 1
if not defined NOW exit /b 1
set "STAMP=%BOOT%"
call :seconds
set "FROM=%SECONDS%"
set "STAMP=%NOW%"
call :seconds
set /a UPTIME=SECONDS-FROM
if %UPTIME% lss 0 set "UPTIME="
exit /b 0

rem SECONDS of STAMP, which is YYYYMMDDhhmmss: the number of the day by the calendar, counted from 1991 on so that it
rem fits. The digit 1 in front keeps 08 from being an octal number.
:seconds
set /a Y=%STAMP:~0,4%
set /a M=1%STAMP:~4,2%-100
set /a D=1%STAMP:~6,2%-100
set /a A=(14-M)/12
set /a Y=Y-A
set /a M=M+12*A-3
set /a D=D+(153*M+2)/5+365*Y+Y/4-Y/100+Y/400-727000
set /a SECONDS=((D*24+1%STAMP:~8,2%-100)*60+1%STAMP:~10,2%-100)*60+1%STAMP:~12,2%-100
exit /b 0

rem The INI file: the one that QM_INI names, the installed service's, or the one next to this file. And the log.
:product
set "INI=%QM_INI%"
set "IMAGE="
for /f "tokens=2,*" %%t in ('%REG% query "HKLM\SYSTEM\CurrentControlSet\Services\Quillmarch" /v ImagePath 2^>nul') do if "%%t"=="REG_EXPAND_SZ" set "IMAGE=%%u"
if defined IMAGE call set "IMAGE=%IMAGE%"
if defined IMAGE set "IMAGE=%IMAGE:"=%"
if defined IMAGE call set "IMAGE=%IMAGE%"
if not defined INI if defined IMAGE for %%i in ("%IMAGE%") do if exist "%%~dpiQuillmarch.ini" set "INI=%%~dpiQuillmarch.ini"
if not defined INI if exist "%~dp0Quillmarch.ini" set "INI=%~dp0Quillmarch.ini"
set "LOG="
if not defined INI goto usual_log
for /f "usebackq tokens=1,* delims== " %%a in ("%INI%") do if /i "%%a"=="Logfile" set "LOG=%%b"
if not defined LOG goto usual_log
rem With variables, relative to the executable.
set "LOG=%LOG:"=%"
call set "LOG=%LOG%"
if not "%LOG:~1,1%"==":" if not "%LOG:~0,1%"=="\" for %%i in ("%INI%") do set "LOG=%%~dpi%LOG%"
:usual_log
if not defined LOG set "LOG=%SystemDrive%\_Quillmarch.log"
if not exist "%LOG%" set "LOG="
exit /b 0

rem From WORK to OUT, the description last: a folder without it was not finished.
:write_folder
for %%f in (machine.toml registry.txt connected.txt properties.txt not_read.txt Quillmarch.ini Quillmarch.log readme.txt) do del /q "%OUT%\%%f" 2>nul
for %%f in (registry.txt connected.txt properties.txt) do if exist "%WORK%\%%f" copy /b /y "%WORK%\%%f" "%OUT%\%%f" >nul
if defined INI copy /b /y "%INI%" "%OUT%\Quillmarch.ini" >nul
set "SIZE=0"
if defined LOG for %%f in ("%LOG%") do set "SIZE=%%~zf"
if %SIZE% gtr 50000000 >>"%WORK%\not_read.txt" echo   the log "%LOG%": it is larger than 50 MB
if %SIZE% gtr 50000000 set "LOG="
if defined LOG copy /b /y "%LOG%" "%OUT%\Quillmarch.log" >nul
if exist "%WORK%\not_read.txt" copy /y "%WORK%\not_read.txt" "%OUT%\not_read.txt" >nul
call :readme >"%OUT%\readme.txt"
call :description >"%WORK%\machine.toml"
copy /y "%WORK%\machine.toml" "%OUT%\machine.toml" >nul
exit /b 0

:description
echo # Written by _capture_machine.cmd; see readme.txt.
echo registry = ["registry.txt"]
if exist "%OUT%\connected.txt" echo connected = "connected.txt"
if exist "%OUT%\properties.txt" echo properties = "properties.txt"
echo.
echo [windows]
if defined VERSION if defined BUILD echo version = "%VERSION%.%BUILD%"
echo edition = "%EDITION%"
if defined LANGUAGE echo language = 0x%LANGUAGE%
if defined UPTIME echo uptime = "%UPTIME%s"
if not exist "%OUT%\Quillmarch.ini" exit /b 0
echo.
echo [quillmarch]
echo ini = "Quillmarch.ini"
exit /b 0

:readme
echo What _capture_machine.cmd read on %COMPUTERNAME%, for a rehearsal of Quillmarch:
echo.
echo   quillmarch-rehearse --html report.html FOLDER
echo.
echo machine.toml     which files belong together; version, language and uptime of Windows
echo registry.txt     exports of the registry: ports, modems, USB devices and the buses above
echo                  them, the numbers that are taken. No printers, disks or networks.
echo                  Do not import it into a registry.
echo connected.txt    which of these devices were connected
echo properties.txt   where they were connected
echo Quillmarch.ini   the configuration of Quillmarch, if there was one
echo Quillmarch.log   its log, if there was one: IT HAS NAMES OF USERS
echo not_read.txt     what could not be read
echo.
echo Serial numbers are here only where they are part of a device's id. The ids of Bluetooth
echo ports have the addresses of the devices that they are paired with.
exit /b 0
