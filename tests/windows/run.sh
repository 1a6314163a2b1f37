#!/usr/bin/env bash
# The whole of `./quill windows`: builds both editions twice, checks what is written in them, and runs the tests of x64
# under Wine, in a prefix and on a screen of their own. Arguments go to ctest.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/../.."
build=build/windows
# shellcheck source=tests/windows/prefix.sh
. tests/windows/prefix.sh

fail() {
    echo "windows: $*" >&2
    exit 1
}

# Fails on any warning: the linker and the resource compiler know no -Werror.
build_without_warning() { # FOLDER LOG ARGUMENTS
    local folder=$1 log=$2
    shift 2
    ninja -C "$folder" "$@" >"$log" 2>&1 || { cat "$log" >&2; fail "the build has failed"; }
    ! grep -i 'warning:' "$log" >&2 || { rm -f "$folder/Quillmarch.exe"; fail "the build warns"; }
}

# Ends what this run has started, and only that.
screen=""
prefix=""
prefix_maker=""
clean_up() {
    [ -z "$prefix_maker" ] || wait "$prefix_maker" || true
    if [ -n "$prefix" ]; then
        WINEPREFIX=$prefix wineserver -k || true
        WINEPREFIX=$prefix timeout 30 wineserver -w || true
        rm -rf "$prefix"
    fi
    [ -z "$screen" ] || kill "$screen" 2>/dev/null || true
}
trap clean_up EXIT

# A screen that picks its own number and writes it to a file.
start_screen() {
    local display=$prefix/screen
    Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp 3>"$display" </dev/null >/dev/null 2>&1 &
    screen=$!
    for _ in $(seq 100); do
        [ ! -s "$display" ] || break
        sleep 0.1
    done
    [ -s "$display" ] || fail "the virtual screen does not start"
    DISPLAY=:$(cat "$display")
    export DISPLAY
}

# The one program that keeps the server, detached from every pipe: else whoever waits for a test's output would wait
# for the server that the test has started.
start_server() {
    setsid wine "$build/keep.exe" </dev/null >/dev/null 2>&1 &
    for _ in $(seq 60); do
        ! timeout 60 wine cmd /c exit 0 </dev/null >/dev/null 2>&1 || return 0
        sleep 0.5
    done
    fail "Wine does not start"
}

mkdir -p "$wine"
if [ ! -e "$wine/pristine/system.reg" ]; then
    make_pristine_prefix >"$wine/prefix.log" 2>&1 </dev/null &
    prefix_maker=$!
fi

# Builds an edition, checks it, builds it again in another folder, and compares. The tests are built with the first.
build_edition() { # EDITION PRESET FOLDER TESTS
    local edition=$1 preset=$2 folder=$3 tests=$4 size
    # Configured each time: the version line has the date of the commit.
    for part in "$folder:$tests" "$folder-again:OFF"; do
        cmake --preset "$preset" -B "${part%:*}" -DQM_WINDOWS_TESTS="${part#*:}" >"${part%:*}-configure.log" 2>&1 ||
            { cat "${part%:*}-configure.log" >&2; fail "the configuration has failed"; }
    done
    if [ "$tests" = ON ]; then
        build_without_warning "$folder" "$folder.log"
    else
        build_without_warning "$folder" "$folder.log" Quillmarch
    fi
    size=$(stat -c %s "$folder/Quillmarch.exe")
    [ "$size" -lt 1048576 ] || fail "$folder/Quillmarch.exe has $size bytes"
    echo "built $folder/Quillmarch.exe without a warning, $size bytes"
    bash tests/windows/check-imports.sh "$edition" "$folder/Quillmarch.exe"
    bash tests/windows/check-header.sh "$edition" "$folder/Quillmarch.exe"
    CCACHE_DISABLE=1 build_without_warning "$folder-again" "$folder-again.log" Quillmarch
    cmp "$folder/Quillmarch.exe" "$folder-again/Quillmarch.exe" || fail "two builds of $edition differ"
    echo "built $edition twice, in two folders: the same bytes"
}
build_edition x64 windows "$build" ON
build_edition x86 windows-x86 "$build-x86" OFF

if [ -n "$prefix_maker" ]; then
    wait "$prefix_maker" || { cat "$wine/prefix.log" >&2; fail "no Wine prefix could be made"; }
fi
prefix=$(mktemp -d "$wine/run.XXXXXX")
cp -a "$wine/pristine/." "$prefix"
export WINEPREFIX=$prefix
start_screen
start_server

# The simulated machine's half of the comparison of logs; the tests of Linux need the same files.
[ -e build/dev/build.ninja ] || cmake --preset dev >build/dev-configure.log 2>&1 ||
    { cat build/dev-configure.log >&2; fail "the configuration has failed"; }
ninja -C build/dev quillmarch-rehearse storm >build/dev.log 2>&1 || { cat build/dev.log >&2; fail "the build has failed"; }
rm -rf "$build/bed.log" "$build/pictures"

# Known differences, and what the layouts came to, are printed before CTest's last lines.
status=0
outputs=$build/Testing/Temporary/LastTest.log
ctest --test-dir "$build" --output-on-failure -j "$(nproc)" "$@" </dev/null | awk -v outputs="$outputs" '
    / tests passed, / { closing = 1 }
    closing { last = last $0 "\n"; next }
    { print; fflush() }
    END {
        while ((getline line < outputs) > 0)
            if (line ~ /^(known difference|layout): /) { print line; count += line ~ /^known/ }
        print "known differences between Wine and Windows: " count + 0
        printf "%s", last
    }' || status=1

[ ! -d "$build/pictures" ] || echo "balloons as they were seen: $build/pictures"

# One debug run, line by line, here and there; without its test, when arguments have chosen others, there is none.
if [ -e "$build/bed.log" ]; then
    build/dev/quillmarch-rehearse --ini "$build/bed.ini" --log "$build/bed-simulated.log" tests/rehearse/wine-bed.toml \
        >"$build/bed-simulated.txt" 2>&1 || { cat "$build/bed-simulated.txt" >&2; fail "the rehearsal has failed"; }
    python3 tests/windows/compare-logs.py "$build/bed-simulated.log" "$build/bed.log" || status=1
elif [ $# -eq 0 ]; then
    fail "the debug run has left no log"
fi
exit $status
