#!/usr/bin/env bash
# Compares what the executable imports, DLL by DLL, with the list of what it may import. A name that is not on the
# list fails: it may be one that the oldest Windows lacks, and then the program would not load there.
set -eu
exe=$1
list="$(dirname "$(readlink -f "$0")")/allowed-imports.txt"
found=$(x86_64-w64-mingw32-objdump -p "$exe" | awk '
    /DLL Name:/ { dll = tolower($3); next }
    /^\t[0-9a-f]+[ \t]+[0-9]+ +[A-Za-z_]/ { print dll " " $NF }' | sort -u)
[ -n "$found" ] || { echo "check-imports: no import could be read from $exe" >&2; exit 1; }
extra=$(comm -23 <(printf '%s\n' "$found") <(grep -v '^#' "$list" | sort -u))
if [ -n "$extra" ]; then
    echo "check-imports: imports that are not on the list:" >&2
    printf '%s\n' "$extra" >&2
    exit 1
fi
echo "imports: $(printf '%s\n' "$found" | wc -l) names, all on the list"
