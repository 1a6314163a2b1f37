#!/usr/bin/env bash
# What the rehearsal tool writes where: report, log, timeline, failures, documents. Usage: outputs.sh TOOL
# shellcheck source=tests/rehearse/checks.sh
. "$(dirname "$0")/checks.sh"
cd "$(dirname "$0")/../.." || exit 1
desk=examples/desk.toml
same() { [ "$1" = "$2" ] || { printf '  came: %s\n' "$1"; return 1; }; }

# The same input gives the same bytes, with and without a seed; the report names the seed.
for seed in "" "--seed 7"; do
    for n in 1 2; do
        # shellcheck disable=SC2086
        "$tool" --quiet $seed --json "$scratch/report$n.json" --log "$scratch/log$n.txt" $desk || failed=1
    done
    check "two reports are equal ($seed)" cmp "$scratch/report1.json" "$scratch/report2.json"
    check "two logs are equal ($seed)" cmp "$scratch/log1.txt" "$scratch/log2.txt"
done
check "the seed stands in the report" grep -q '^  "seed": 7,$' "$scratch/report1.json"

# Keys of the report in their order.
keys=$(grep -o '^  "[a-z_]*"' "$scratch/report1.json" | tr -d ' "' | tr '\n' ' ')
check "keys of the report" same "$keys" "title seed ended_at_ms exit_code service_states ports dos_names com_database \
serialcomm processes balloons message_boxes registry_writes restarts timeline notes calls threads_started leaked_handles leaked_bytes verdict "

# The log is there although the configuration says no, at the level asked for; `-` is standard output alone.
check "the log begins with its banner" grep -q 'Quillmarch WinMain' "$scratch/log1.txt"
check "level 3 has no detail" bash -c "! grep -q '<4>' '$scratch/log1.txt'"
"$tool" --log - --log-level 6 $desk >"$scratch/out.txt"
check "level 6 has detail" grep -q '<6>' "$scratch/out.txt"
check "standard output is the log alone" bash -c "! grep -q 'Restarts' '$scratch/out.txt'"

# The log of the example, line by line: the expected file was read against what the product must say.
"$tool" --quiet --until 39s --log "$scratch/desk.log" --log-level 3 $desk # what comes later is another arrival of the same
awk -f tests/rehearse/fold-log.awk "$scratch/desk.log" >"$scratch/folded.log"
check "the log of the example" diff tests/rehearse/desk-expected.log "$scratch/folded.log"

# For people: the change of name with its means, and the table.
"$tool" $desk >"$scratch/out.txt"
check "the timeline tells the change" grep -q 'quillmarch  COM3 -> COM20  restarts .*A702TB52A.* (cycle)' "$scratch/out.txt"
check "the table tells the port" grep -qE '^COM20 +\[ComPorts10\] COM20 +ok +COM20 +[0-9-]+ +1 +FTDIBUS' "$scratch/out.txt"
check "no colours in a file" bash -c "! grep -q $'\x1b' '$scratch/out.txt'"

# Observing changes nothing: what the machine's log holds and how the threads take turns is the same with and without.
for level in 1 6; do
    "$tool" --quiet --seed 7 --log "$scratch/alone.txt" --log-level $level $desk
    "$tool" --quiet --seed 7 --log "$scratch/observed.txt" --log-level $level --strict $desk
    check "the log is the same when observed (level $level)" cmp "$scratch/alone.txt" "$scratch/observed.txt"
done

# An expectation that is not met: exit 1, a line with what came; --ini takes the place of the described one.
printf '[ComPorts10]\nDeviceID=FTDIBUS\\*A702*\nPortName1=COM3\n' >"$scratch/other.ini"
"$tool" --check --quiet --ini "$scratch/other.ini" $desk >"$scratch/out.txt" 2>"$scratch/err.txt"
check "exit code 1" same "$?" 1
check "nothing on standard output" same "$(cat "$scratch/out.txt")" ""
check "the line says what came" grep -qE "^$desk:[0-9]+:1: at .*: device '.*A702TB52A.*': port is 'COM3', not 'COM20'" "$scratch/err.txt"
check "an earlier end makes a timed expectation fail" bash -c \
    "'$tool' --check --quiet --until 20s $desk 2>&1 | grep -q 'the run ended at 20.000 s, before 35.000 s'"

# Pictures: one for each change, and the README's is what the tool makes.
"$tool" --quiet --pictures "$scratch/pictures" tests/scenarios/balloon/pipe.toml
check "a picture for each change" same "$(cd "$scratch/pictures" && echo balloon-01-*)" "balloon-01-02.svg balloon-01-first.svg"
"$tool" --quiet --pictures "$scratch/pictures" tests/scenarios/balloon/shown.toml
check "the README's picture" cmp -s "$scratch/pictures/balloon-01-first.svg" docs/balloon.svg
"$tool" --quiet --pictures "$desk" "$desk" 2>/dev/null
check "a folder that cannot be made" same "$?" 2

# Every option is in the man page; the completion finds them by the help.
for option in $("$tool" --help | grep -oE -- '--[a-z-]+' | sort -u); do
    check "the man page has $option" grep -q -- "${option//-/\\\\-}" docs/quillmarch-rehearse.1
done
completed() { # LINE: what the last word of the line is completed to
    bash -c 'PATH=$(dirname "$1"):$PATH; source docs/quillmarch-rehearse.bash; read -ra COMP_WORDS <<<"$2"
        COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _quillmarch_rehearse; echo "${COMPREPLY[@]}"' _ "$tool" "$1"
}
check "an option is completed" same "$(completed 'quillmarch-rehearse --stri')" "--strict"
check "a file is completed" same "$(completed 'quillmarch-rehearse --ini examples/de')" "examples/desk.ini"
check "the version" bash -c "'$tool' --version | grep -qE '^quillmarch-rehearse [0-9.]+$'"

# Why: each refused number with its ground, and a conclusion as the last word on a port.
"$tool" --explain tests/rehearse/stories/ring.toml | cut -c27- >"$scratch/out.txt"
check "a refused number" grep -qF 'so COM55 cannot have COM56: in use by FTDIBUS\VID_0403+PID_6001+RACK2A\0000' "$scratch/out.txt"
check "the last word" same "$(grep -E '^(checks|says of|so) COM55\b' "$scratch/out.txt" | tail -n 1)" "so COM55 stays as it is: no number can be had"

check "and of one that was changed" same "$("$tool" --explain $desk | cut -c27- | grep -E '^(checks|says of|so) COM(3|20)\b' | tail -n 1)" \
    "so COM20 comes from its own restart: nothing to check"

# The tree: a socket with its port, empty ones, what is not there, a guess.
"$tool" --tree tests/rehearse/stories/machine.toml | sed 's/^ *//' >"$scratch/out.txt"
for line in 'socket 8: USB\VID_0403&PID_6001\RACK8' 'FTDIBUS\VID_0403+PID_6001+RACK8A\0000  COM62; USB Serial Port' \
    'at UsbPort 3-7-8' 'empty: sockets 2 to 4 (UsbPort 3-8-2 to 3-8-4)' '? it hangs here by its kind, nothing names its parent' 'PID_2303\5&SCALE&0&2  no name; not there'; do
    check "the tree has: $line" grep -qF -- "$line" "$scratch/out.txt"
done

# Ctrl-C: what is known is reported, exit code 130, no folder is left.
mkdir "$scratch/tmp"
TMPDIR=$scratch/tmp env --default-signal=INT "$tool" examples/rack.toml >"$scratch/out.txt" 2>"$scratch/err.txt" &
sleep 0.7
kill -INT $!
wait $!
check "broken off" same "$?" 130
check "with a report" grep -q '^Numbers taken' "$scratch/out.txt"
check "and no folder left" same "$(ls "$scratch/tmp")" ""

# The tables of the document are those of the tool.
"$tool" --print-keys >"$scratch/keys.md"
sed -n '/^## Keys$/,/^## The report/p' docs/rehearsing.md | sed '1d;$d' >"$scratch/documented.md"
check "docs/rehearsing.md has the tool's tables" diff -B "$scratch/keys.md" "$scratch/documented.md"
exit "$failed"
