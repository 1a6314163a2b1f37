#!/usr/bin/env bash
# A program that does what no program should, in the product's place: the tool ends with 3, and the first word of its
# last line names the failure. Usage: stopped.sh TOOL-WITH-THE-PROBE-INSIDE
set -u
tool=$(readlink -f "$1")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failed=0

# want DEED CODE FIRST-WORDS WHAT: what the last line on standard error begins with, "" for none, and what is said there.
want() {
    printf '[quillmarch]\nrole = "user"\ncommand_line = "%s"\n' "$1" >"$scratch/$1.toml"
    "$tool" --quiet "$scratch/$1.toml" 2>"$scratch/err.txt"
    local code=$? last
    last=$(tail -n 1 "$scratch/err.txt")
    if ! [[ $code$last == "$2$3"* && (-n $3 || -z $last) && $(cat "$scratch/err.txt") == *"$4"* ]]; then
        failed=1
        echo "$1: exit code $code: $(cat "$scratch/err.txt")"
    fi
}
want lasterrors 0 "" ""
want deadlock 3 "deadlock: " "held by thread"
want crossed 3 "broken rule: " "both orders"
want livelock 3 "livelock: " GetTickCount
want trap 3 "crash: " "its own breakpoint"
want overrun 3 "broken rule: HeapFree: " "past its end"
want unmodelled 3 "not modelled: CreateEventA" ""
want crash 3 "crash: " ""
exit "$failed"
