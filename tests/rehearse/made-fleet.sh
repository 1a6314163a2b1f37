#!/usr/bin/env bash
# A generated fleet is the same each time, each of its machines is understood and rehearsed with all stories, and those
# that are broken on purpose are refused. Usage: made-fleet.sh TOOL
set -u
tool=$(readlink -f "$1")
make=$(dirname "$(readlink -f "$0")")/../../bench/fleet/make_fleet.py
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
failed=0
for out in one two; do
    python3 "$make" "$tool" "$folder/$out" 16 --broken 4 || exit 1
done
diff -r "$folder/one" "$folder/two" || { echo "two fleets of one seed differ"; failed=1; }
for machine in "$folder"/one/machines/*; do
    fault=$(awk -v name="$(basename "$machine")" '$1 == name { print $2 }' "$folder/one/broken.txt")
    [ "$fault" = endless ] && continue
    timeout 60 "$tool" --quiet --story all --ini "$folder/one/fleet.ini" "$machine" 2>"$folder/error"
    code=$?
    [ "$code" = "$([ -n "$fault" ] && echo 2 || echo 0)" ] ||
        { echo "$machine ${fault:-whole}: exit $code, $(head -1 "$folder/error")"; failed=1; }
done
[ "$(grep -c . "$folder/one/broken.txt")" = 4 ] || { echo "not four are broken"; failed=1; }
exit "$failed"
