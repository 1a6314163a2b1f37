# For the scripts beside it: a Wine prefix, made once in build/wine/pristine and only copied afterwards, since that takes
# much less time. A crash in it ends the program without a dialog.
wine=$PWD/build/wine
export WINEDEBUG=-all WINEARCH=win64
unset WINEDLLOVERRIDES WINELOADER WINESERVER DISPLAY WAYLAND_DISPLAY

make_pristine_prefix() {
    rm -rf "$wine/pristine" "$wine/new"
    export WINEPREFIX=$wine/new
    WINEDLLOVERRIDES="mscoree,mshtml=" timeout 300 wineboot -i
    timeout 60 wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f
    timeout 60 wine reg add 'HKLM\Software\Microsoft\Windows NT\CurrentVersion\AeDebug' /v Debugger /d false /f
    timeout 120 wineserver -w
    mv "$wine/new" "$wine/pristine"
}
