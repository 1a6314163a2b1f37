#!/usr/bin/env bash
# Checks what the header of the executable promises to the loader: protections, oldest system, no date of the build.
# usage: check-header.sh x64|x86 EXE
set -eu
edition=$1
exe=$2
objdump=x86_64-w64-mingw32-objdump
minor=2
if [ "$edition" = x86 ]; then
    objdump=i686-w64-mingw32-objdump
    minor=1
fi
header=$(TZ=UTC LC_ALL=C $objdump -p -h "$exe")
failed=0
wants() { # PATTERN MEANING
    grep -qE "$1" <<<"$header" || { echo "check-header: not so: $2" >&2; failed=1; }
}
[ "$edition" = x86 ] || wants '^[[:space:]]+HIGH_ENTROPY_VA' "addresses of 64 bits are randomised"
wants '^[[:space:]]+DYNAMIC_BASE' "the file may be moved"
wants '[[:space:]]\.reloc[[:space:]]' "a relocation table lets it move"
wants '^[[:space:]]+NX_COMPAT' "data is never executed"
wants '^Subsystem[[:space:]]+0*2[[:space:]]' "no console"
wants '^MajorOSystemVersion[[:space:]]+5$' "system version 5.$minor"
wants "^MinorOSystemVersion[[:space:]]+$minor\$" "system version 5.$minor"
wants '^MajorSubsystemVersion[[:space:]]+5$' "subsystem version 5.$minor"
wants "^MinorSubsystemVersion[[:space:]]+$minor\$" "subsystem version 5.$minor"
wants '^Time/Date[[:space:]].* 1970$' "no date of the build"
for part in asInvoker dpiAware Microsoft.Windows.Common-Controls; do
    grep -qa "$part" "$exe" || { echo "check-header: no $part in the manifest" >&2; failed=1; }
done
[ "$failed" = 0 ] || exit 1
echo "header of $edition: moves anywhere, no data is executed, subsystem 5.$minor, no date, manifest"
