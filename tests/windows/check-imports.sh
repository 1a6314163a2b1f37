#!/usr/bin/env bash
# Compares what an executable imports, DLL by DLL, with the lists of what it may import: the common one and that of its
# edition. A name that is on neither fails: it may be one that the oldest Windows lacks, and then the program would not
# load there. So does a library that is to be loaded by its path alone, and a common name that neither edition needs.
# usage: check-imports.sh x64|x86 EXE
set -eu
edition=$1
exe=$2
folder="$(dirname "$(readlink -f "$0")")"
objdump=x86_64-w64-mingw32-objdump
[ "$edition" = x64 ] || objdump=i686-w64-mingw32-objdump
found=$($objdump -p "$exe" | awk '
    /DLL Name:/ { dll = tolower($3); next }
    /^\t[0-9a-f]+[ \t]+[0-9]+ +[A-Za-z_]/ { print dll " " $NF }' | LC_ALL=C sort -u)
[ -n "$found" ] || { echo "check-imports: no import could be read from $exe" >&2; exit 1; }
allowed=$(grep -hv '^#' "$folder/allowed-imports.txt" "$folder/allowed-imports-$edition.txt" | LC_ALL=C sort -u)
extra=$(LC_ALL=C comm -23 <(printf '%s\n' "$found") <(printf '%s\n' "$allowed"))
if [ -n "$extra" ]; then
    echo "check-imports: imports that are not on the lists:" >&2
    printf '%s\n' "$extra" >&2
    exit 1
fi
if grep -E '^(wtsapi32|netapi32)\.dll ' <<<"$found" >&2 || grep '^setupapi.dll CM_' <<<"$found" >&2; then
    echo "check-imports: these must not come from there" >&2
    exit 1
fi
echo "imports of $edition: $(printf '%s\n' "$found" | wc -l) names, all on the lists"
