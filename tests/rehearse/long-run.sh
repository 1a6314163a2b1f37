#!/usr/bin/env bash
# A day with an adapter that is pulled and plugged again each minute, and fifty schedules of the example. Usage:
# long-run.sh TOOL
set -u
tool=$(readlink -f "$1")
cd "$(dirname "$0")/../.." || exit 1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failed=0
fail() { echo "failed: $*"; failed=1; }

# day MINUTES: the example, its adapter away for five seconds of each minute; every name is judged in each of them.
day() {
    awk -v minutes="$1" -v base="$PWD/examples/desk.toml" 'BEGIN {
        printf "include = [\"%s\"]\n", base
        for (i = 1; i <= minutes; i++) {
            printf "[[event]]\nat = \"%ds\"\nreplug = { device = \047USB\\VID_0403&PID_6001\\A702TB52\047, off = \"5s\" }\n", i * 60
            printf "[[expect]]\nat = \"%ds\"\ndevice = \047FTDIBUS\\VID_0403+PID_6001+A702TB52A\\0000\047\n", i * 60 + 50
            printf "port = \"COM20\"\nregistry_name = \"COM20\"\nrestarts = 1\n"
            printf "[[expect]]\nat = \"%ds\"\ndevice = \047FTDIBUS\\VID_0403+PID_6001+AR0JFBPEA\\0000\047\nport = \"COM21\"\n", i * 60 + 50
        }
    }' >"$scratch/day.toml"
    "$tool" --check --quiet --json "$scratch/day$1.json" "$scratch/day.toml" || fail "a name is wrong in a day of $1 minutes"
    grep -q '^  "leaked_handles": 0,$' "$scratch/day$1.json" || fail "handles are left of a day of $1 minutes"
}
day 720
day 1440
# Blocks of the heap that live while the service runs, and the bytes that outlive its end.
heap() { awk '/"Heap(Alloc|Free)":/ { gsub(/,/, ""); n[$1] = $2 } /"leaked_bytes"/ { print n["\"HeapAlloc\":"] - n["\"HeapFree\":"], $2 }' "$scratch/day$1.json"; }
[ -n "$(heap 720)" ] && [ "$(heap 720)" = "$(heap 1440)" ] || fail "the heap grows: $(heap 720) after 12 h, $(heap 1440) after 24 h"
[ "$(grep -c "runs as COM20" "$scratch/day1440.json")" -ge 1440 ] || fail "the day had fewer arrivals than minutes"

# The final ports do not depend on the schedule, and the schedules do differ.
ports() { sed -n '/^  "ports": \[/,/^  \],$/p' "$1"; }
for seed in "" $(seq 1 50); do
    "$tool" --quiet ${seed:+--seed "$seed"} --json "$scratch/run.json" --log "$scratch/run.log" examples/desk.toml || fail "seed $seed"
    ports "$scratch/run.json" >"$scratch/ports.txt"
    [ -n "$seed" ] || cp "$scratch/ports.txt" "$scratch/wanted.txt"
    cmp -s "$scratch/ports.txt" "$scratch/wanted.txt" || fail "other ports with seed $seed"
    cksum <"$scratch/run.log" >>"$scratch/logs.txt"
done
grep -q COM20 "$scratch/wanted.txt" || fail "the ports were not found in the report"
[ "$(sort -u "$scratch/logs.txt" | wc -l)" -gt 25 ] || fail "fifty seeds gave few schedules"
exit "$failed"
