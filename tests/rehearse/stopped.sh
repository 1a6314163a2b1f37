#!/usr/bin/env bash
# A program that does what no program should, in the product's place: the tool ends with 3 and says in the first word of
# its last line which it was. Usage: stopped.sh TOOL PROBE-IMAGE
set -u
tool=$(readlink -f "$1") probe=$(readlink -f "$2")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failed=0

# want DEED CODE FIRST-WORDS: what the last line on standard error begins with; "" none at all.
want() {
    printf '[quillmarch]\nrole = "user"\ncommand_line = "%s"\n' "$1" >"$scratch/$1.toml"
    "$tool" --quiet --image "$probe" "$scratch/$1.toml" 2>"$scratch/err.txt"
    local code=$? last
    last=$(tail -n 1 "$scratch/err.txt")
    if [ "$code" != "$2" ] || [ "${last#"$3"}" = "$last" ] && [ "$last" != "$3" ]; then
        failed=1
        echo "$1: exit code $code, last line '$last'"
    fi
}

want lasterrors 0 ""
want deadlock 3 "deadlock: "
want crossed 3 "broken rule: "
want livelock 3 "livelock: "
want trap 3 "crash: "
want overrun 3 "broken rule: "
want unmodelled 3 "not modelled: CreateEventA"
want crash 3 "crash: "
exit "$failed"
