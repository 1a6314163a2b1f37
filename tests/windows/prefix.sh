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

# A prefix of the caller's own, in `prefix`, until the caller ends.
make_prefix() { # NAME
    mkdir -p "$wine"
    [ -e "$wine/pristine/system.reg" ] || make_pristine_prefix >"$wine/prefix.log" 2>&1 </dev/null || fail "no Wine prefix"
    prefix=$(mktemp -d "$wine/$1.XXXXXX")
    export WINEPREFIX=$prefix
    trap remove_prefix EXIT
    cp -a "$wine/pristine/." "$prefix"
}
remove_prefix() {
    wineserver -k || true
    timeout 30 wineserver -w || true
    rm -rf "$prefix"
}

# The caller has a `fail` of its own, which ends it.
checks=0
check() { # MEANING COMMAND...
    local meaning=$1
    shift
    "$@" || fail "not so: $meaning"
    checks=$((checks + 1))
}
not() { ! "$@"; }

# A log or page without the date of the commit at which its tool's build was configured: two builds may differ in that.
undated() { sed -E 's/(Quillmarch\.EXE V[0-9.]+ Win32 build )[0-9-]+ [0-9:]+/\1/' "$1"; }
