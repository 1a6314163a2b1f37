#!/usr/bin/env bash
# A fleet with broken machines beside right ones, continued, divided and put together. Usage: fleet.sh TOOL
set -u
tool=$(readlink -f "$1")
cd "$(dirname "$0")/../.." || exit 1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failed=0
check() { # WHAT COMMAND...
    local what=$1
    shift
    "$@" >"$scratch/said" 2>&1 || { echo "failed: $what: $(head -c 2000 "$scratch/said")"; failed=1; }
}
code() { # EXPECTED ARGUMENTS...: the exit code of the tool; what it says is in out and err
    local wanted=$1
    shift
    "$tool" "$@" >"$scratch/out" 2>"$scratch/err"
    local came=$?
    [ "$came" = "$wanted" ] || { echo "failed: exit $came, not $wanted: $*"; tail -n 3 "$scratch/out" "$scratch/err"; failed=1; }
}
has() { check "'$2' is in $1" grep -qE -- "$2" "$scratch/$1"; }
ini=examples/desk.ini fleet=$scratch/fleet
mkdir -p "$fleet/shared" # no machine: neither a description by its name, nor an export
sed 's:machines/desk/desk.reg:desk.export:' examples/desk.toml >"$fleet/shared/desk.inc"
cp examples/machines/desk/desk.reg "$fleet/shared/desk.export"
cp $ini "$fleet/shared"
desk() { printf 'include = ["%s/shared/desk.inc"]\n%s\n' "$(dirname -- "$1" | sed 's:[^/.][^/]*:..:g')" "${2-}" >"$fleet/$1"; }

# Right ones in odd places: deep, a loop, a name like an option, one with a line break and a byte that is no UTF-8.
mkdir -p "$fleet/lab/deep/er" "$fleet/-j"
ln -s .. "$fleet/lab/loop"
desk a.toml
desk lab/deep/er/b.TOML
desk -j/--out.toml
desk $'lab/<b>\n\xff.toml'
code 0 --fleet "$fleet" --ini $ini -j 2 --out "$scratch/good"
check "each once" [ "$(grep -c ' ok ' "$scratch/out")" = 4 ]
has out '^4 machines: 4 ok$'

# Broken ones beside them: cut, endless, of an unknown key, a folder that is a machine without exports.
mkfifo "$fleet/endless.toml"
desk unknown.toml 'colour = 3'
mkdir "$fleet/pc"
printf 'registry = ["gone.reg"]\n' >"$fleet/pc/machine.toml"
printf 'registry = ["../../../etc/passwd"]\n' >"$fleet/outside.toml"
desk held.toml "$(printf 'until = "40s"\n[[fault]]\ncall = "RegSetValueExA"\non = "*PortName"\nerror = 5\ntimes = 0\n')"
code 1 --fleet "$fleet" --ini $ini -j 3 --time-limit 15s --out "$scratch/one" --json "$scratch/lines"
for line in 'endless.toml +time limit +not done after 15 s' 'unknown.toml +wrong input +unknown.toml:2:1: ' \
    "outside.toml +wrong input .* may name no other" 'pc +wrong input +pc/machine.toml:1:' 'lab/deep/er/b.TOML +ok ' '-j/--out.toml +ok ' '4 ok, 1 with findings, 3 with wrong input, 1 beyond the time limit'; do
    has out "$line"
done
check "one object for each, then the summary" python3 - "$scratch" <<'P'
import json, sys
lines = [json.loads(line) for line in open(sys.argv[1] + "/lines", encoding="utf-8")]
names = [line["machine"] for line in lines[:-1]]
assert names == sorted(names) and len(names) == 9, names
summary = lines[-1]["summary"]
assert sum(summary["verdicts"].values()) == 9 and summary["verdicts"]["ok"] == 4, summary
right = {line["machine"]: line for line in map(json.loads, open(sys.argv[1] + "/good/fleet.jsonl", encoding="utf-8"))  if "machine" in line}
assert all(right[line["machine"]] == line for line in lines[:-1] if line["verdict"] == "ok")
page = open(sys.argv[1] + "/one/fleet.html", encoding="utf-8").read()
assert "&lt;b&gt;" in page and "<b>" not in page and page.count('<a href="machines/') == 5, page.count("<a href")
P

# Continued: a result cut in half, an edited machine and a new one are done; the others are kept. Then another file.
results=$scratch/one/results
half=$(grep -l '"machine":"a.toml"' "$results"/*.json)
head -c 300 "$half" >"$half.x" && mv "$half.x" "$half"
cp "$(grep -l '"machine":"-j/--out.toml"' "$results"/*.json)" "$(grep -l '"machine":"lab/deep' "$results"/*.json)" # another's
rm "$fleet/endless.toml" "$fleet/pc/machine.toml" "$fleet/outside.toml"
desk held.toml
desk new.toml
touch -d '2001-01-01' "$results"/*
code 1 --fleet "$fleet" --ini $ini --out "$scratch/one" --resume --quiet
check "four are done, the others kept" [ "$(find "$results" -name '*.json' -newermt 2002-01-01 | wc -l)" = 4 ]
code 1 --fleet "$fleet" --ini $ini --out "$scratch/again" --quiet
check "a continued run is as a new one" cmp "$scratch/one/fleet.jsonl" "$scratch/again/fleet.jsonl"
sed 's/COM20/COM23/' $ini >"$scratch/other.ini"
touch -d '2001-01-01' "$results"/*
code 1 --fleet "$fleet" --ini "$scratch/other.ini" --compare $ini --out "$scratch/one" --resume
check "another configuration: all anew" [ "$(find "$results" -newermt 2002-01-01 -name '*.json' | wc -l)" -ge 7 ]
has out 'FTDIBUS.VID_0403.PID_6001: COM20 -> COM23: '

# Divided: what is missing has a name, and the whole is that of one run.
code 1 --fleet "$fleet" --ini $ini --out "$scratch/parts" --shard 0/3
code 2 --merge --out "$scratch/parts"
has err 'shard 1 of 3 is missing'
SLURM_ARRAY_TASK_ID=6 SLURM_ARRAY_TASK_MIN=5 SLURM_ARRAY_TASK_COUNT=3 code 0 --fleet "$fleet" --ini $ini --out "$scratch/parts"
JOB_COMPLETION_INDEX=2 code 0 --fleet "$fleet" --ini $ini --out "$scratch/parts" --shard /3
rm "$(find "$scratch/parts/results" -name 'lab*b*' | head -n 1)"
code 2 "--merge" "$scratch/parts"
has err 'shard [0-2] of 3 is incomplete.*--shard [0-2]/3 --resume'
for shard in 0 1 2; do
    "$tool" --fleet "$fleet" --ini $ini --out "$scratch/parts" --shard $shard/3 --resume --quiet
done
code 1 --fleet "$fleet" --ini $ini --out "$scratch/again"
mv "$scratch/out" "$scratch/out1"
code 1 --merge --out "$scratch/parts"
check "what is printed" cmp "$scratch/out" "$scratch/out1"
for part in fleet.jsonl fleet.html results machines; do
    check "merged: $part" diff -r "$scratch/parts/$part" "$scratch/again/$part"
done

# One share in another's place, and two runs at once.
cp "$scratch/parts/shards/shard-0-of-3.json" "$scratch/parts/shards/shard-1-of-3.json"
code 2 --merge --out "$scratch/parts"
has err 'shard 1 of 3 has a machine of another shard'
exec 9>"$scratch/again/shards/whole.lock"
flock 9
code 2 --fleet "$fleet" --ini $ini --out "$scratch/again"
has err 'another run is writing these results'
exec 9>&-

# A folder whose name ends in the fleet's.
mkdir -p "$scratch/pc/lab-pc"
printf 'registry = ["gone.reg"]\n' >"$scratch/pc/lab-pc/machine.toml"
mkdir "$scratch/pc/half" && : >"$scratch/pc/half/registry.txt" # a capture that was broken off
cp $ini "$scratch"
cd "$scratch" || exit 1
code 1 --fleet pc --ini desk.ini
has out '^half +wrong input +this capture was not finished'
has out "^lab-pc .* lab-pc/machine.toml:1:13: there is no file 'lab-pc/gone.reg'"
cd "$OLDPWD" || exit 1

# Calls that are wrong.
mkdir "$scratch/empty"
while IFS='|' read -r what arguments; do
    # shellcheck disable=SC2086
    code 2 $arguments
    has err "$what"
done <<END
is a file|--fleet $ini --ini $ini
is a folder|--fleet $fleet --ini $fleet
no fleet has been|--merge --out $scratch/empty
--fleet needs --ini|--fleet $fleet
no machine below|--fleet $scratch/empty --ini $ini
no such folder|--fleet $scratch/none --ini $ini
need --out|--fleet $fleet --ini $ini --shard 0/2
no shard|--fleet $fleet --ini $ini --out $scratch/x --shard 2/2
needs --out|--fleet $fleet --ini $ini --resume
for one machine|--fleet $fleet --ini $ini --log -
belongs to a fleet|--out $scratch/x examples/desk.toml
among the machines|--fleet $fleet --ini $ini --out $fleet
not overwritten|--fleet $fleet --ini $ini --html $fleet/a.toml
END
exit "$failed"
