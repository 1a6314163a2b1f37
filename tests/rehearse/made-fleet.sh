#!/usr/bin/env bash
# A generated fleet is the same each time, and is rehearsed whole: the line of a machine that is broken on purpose says
# how, all others are right. Usage: made-fleet.sh TOOL TOOL-WITH-PLANTED-FAULTS
set -u
tool=$(readlink -f "$1") planted=$(readlink -f "$2")
make=$(dirname "$(readlink -f "$0")")/../../bench/fleet/make_fleet.py
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
failed=0
for out in one two; do
    python3 "$make" "$tool" "$folder/$out" 24 --broken 4 || exit 1
done
diff -r "$folder/one" "$folder/two" || { echo "two fleets of one seed differ"; failed=1; }
python3 "$make" "$tool" "$folder/whole" 24 || exit 1
fleet() { # TOOL FOLDER EXIT-CODE
    "$1" --fleet "$folder/$2/machines" --ini "$folder/$2/fleet.ini" --story all --time-limit 10s --json "$folder/$2.json" \
        >"$folder/said"
    local code=$?
    [ "$code" = "$3" ] || { echo "$2: exit $code"; tail -n 3 "$folder/said"; failed=1; }
}
fleet "$tool" whole 0
fleet "$planted" one 1
python3 - "$folder" <<'P' || failed=1
import json, sys
def lines(name):
    with open(f"{sys.argv[1]}/{name}.json", encoding="utf-8") as file:
        return {line["machine"]: line for line in map(json.loads, file) if "machine" in line}
with open(sys.argv[1] + "/one/broken.txt") as file:
    broken = dict(line.split() for line in file)
said = {"cut_export": "wrong input: PC@/Enum.reg:", "missing_export": "wrong input: PC@/machine.toml:2:",
        "wrong_description": "wrong input: PC@/machine.toml:", "endless": "time limit: not done after 10 s",
        "crash": "crash: crash: ", "unmodelled": "not modelled: not modelled: CreateEventA"}
assert sorted(broken.values()) == sorted(said), broken
right = lines("whole")
for name, line in lines("one").items():
    if name in broken:
        beginning = said[broken[name]].replace("PC@", name)
        assert f"{line['verdict']}: {line['why']}".startswith(beginning), (line, beginning)
    else:
        assert line == right[name], name
P
exit "$failed"
