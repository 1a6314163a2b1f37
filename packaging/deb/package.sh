#!/usr/bin/env bash
# Makes the package of the rehearsal tool for Debian in build/packages, and tests it. Usage: package.sh [PRESET]
# PRESET: whose build is packed, release if none is named. CI takes that of the tests, which it has anyway.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/../.."
preset=${1:-release}
build=build/$preset
out=$PWD/build/packages
[ -e "$build/build.ninja" ] || cmake --preset "$preset" >"$build.log" 2>&1
ninja -C "$build" quillmarch-rehearse manual >"$build.log" 2>&1 || { cat "$build.log" >&2; exit 1; }
mkdir -p "$out"
rm -f "$out"/*.deb
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct 2>/dev/null || echo 0)
export SOURCE_DATE_EPOCH
cpack --config "$build/CPackConfig.cmake" -B "$out/cpack" >"$build.log" 2>&1 || { cat "$build.log" >&2; exit 1; }
mv "$out"/cpack/*.deb "$out"
rm -rf "$out/cpack"
bash tests/package/deb.sh "$out"/*.deb
(cd "$out" && stat -c '%n: %s bytes' ./*.deb)
