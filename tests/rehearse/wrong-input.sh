#!/usr/bin/env bash
# Each file of wrong/ says in its first line which line must come; the table below does the same for command lines.
# Usage: wrong-input.sh TOOL
set -u
tool=$(readlink -f "$1")
cd "$(dirname "$0")/wrong" || exit 1
failed=0 judged=0

# want ARGUMENTS...: the wanted line comes on standard error, nothing on standard output, exit code 2.
want() {
    local line=$1 out err code
    shift
    err=$( { out=$("$tool" "$@"); code=$?; printf '%s\n%s' "$code" "$out" >&3; } 2>&1 3>"$scratch")
    judged=$((judged + 1))
    if [ "$err" != "$line" ] || [ "$(cat "$scratch")" != 2 ]; then
        failed=$((failed + 1))
        printf '%s\n  wanted: %s\n  came:   %s\n  exit code and standard output: %s\n' "$*" "$line" "$err" "$(cat "$scratch")"
    fi
}

scratch=$(mktemp)
wide=$scratch.toml
trap 'rm -f "$scratch" "$wide" "$wide.pipe"' EXIT

for file in *.toml; do
    line=$(head -n 1 "$file")
    want "${line#\# }" "$file"
done

want 'quillmarch-rehearse: the machine is missing: a description, a folder of _capture_machine.cmd, or exports'
want 'absent.toml:1:1: there is no file '\''absent.toml'\'' that can be read' absent.toml
want 'quillmarch-rehearse: --until must be a duration such as "10s", not '\''5'\' --until 5 fine/fine.toml
want "quillmarch-rehearse: --log-level must be a number from 1 to 6, not '7'" --log-level 7 fine/fine.toml
want "quillmarch-rehearse: --language must be en or de, not 'fr'" --language fr fine/fine.toml
want 'quillmarch-rehearse: --ini is given more than once' --ini a.ini --ini b.ini fine/fine.toml
want 'quillmarch-rehearse: --check takes no value' --check=x fine/fine.toml
want 'quillmarch-rehearse: --shard needs a value, and this one is empty' --fleet fine --ini a.ini --out b --shard ''
want 'quillmarch-rehearse: the name of the machine is empty' --rules a.ini ''
want 'quillmarch-rehearse: --story none leaves all stories out: name no other beside it' --story none,boot fine/fine.toml
want "/proc/self/mem:1:1: '/proc/self/mem' cannot be read to its end" --rules /proc/self/mem
want 'quillmarch-rehearse: --html is for a rehearsal, and --rules asks for none' --rules a.ini --html a.html fine/fine.toml
want 'quillmarch-rehearse: --html is for one run, and --compare makes two' --compare a.ini --html a.html fine/fine.toml
want 'quillmarch-rehearse: --rules names the configuration: leave --ini out' --rules a.ini --ini a.ini fine/fine.toml
want 'quillmarch-rehearse: --json is for a report, and --tree prints none' --tree --json a.json fine/fine.toml
want 'quillmarch-rehearse: --tree and --devices are two questions: ask one at a time' --tree --devices fine/fine.toml
want 'fine: this is a folder, and a file is needed here' --ini fine fine/fine.toml
want 'quillmarch-rehearse: --seed must be a number from 0 to 18446744073709551615, not '\''-1'\' --seed -1 fine/fine.toml
want "quillmarch-rehearse: there is no story 'replugg'; did you mean 'replug'?" --story 'boot, replugg' fine/fine.toml
want "quillmarch-rehearse: there is no option '--colour'" --colour fine/fine.toml
want "quillmarch-rehearse: there is no option '--expalin'; did you mean '--explain'?" --expalin fine/fine.toml
want "fine/fien.toml:1:1: there is no file 'fine/fien.toml' that can be read; did you mean 'fine.toml'?" fine/fien.toml
want 'fine/../fine/fine.toml: this file is an input, it is not overwritten' --log fine/../fine/fine.toml fine/fine.toml
want 'absent.json: two outputs cannot go to one file' --log absent.json --json absent.json fine/fine.toml
want 'absent.ini:1:1: there is no file '\''absent.ini'\'' that can be read' --ini absent.ini fine/fine.toml
want 'absent/report.json: this file cannot be written' --json absent/report.json fine/fine.toml

# Far more than a configuration or a description can be, from a file and from a pipe.
truncate -s 1G "$wide"
want "$wide:1:1: '$wide' has more than 16 MiB, too much for its kind" --ini "$wide" fine/fine.toml
want "$wide:1:1: '$wide' has more than 16 MiB, too much for its kind" "$wide"
mkfifo "$wide.pipe"
yes >"$wide.pipe" 2>/dev/null &
want "$wide.pipe:1:1: '$wide.pipe' has more than 16 MiB, too much for its kind" --rules "$wide.pipe"

# As some shells write a file. The column counts characters, also those of two halves.
for encoding in UTF-16LE UTF-16BE; do
    printf '\xEF\xBB\xBF# \xC3\xA4\r\ntitle = "\xF0\x9F\x94\x8C" 5\r\n' | iconv -f UTF-8 -t $encoding >"$wide"
    want "$wide:2:13: Error while parsing key-value pair: expected a comment or whitespace, saw '5'" "$wide"
done
printf '\xFF\xFE#\0\n\0\x3D\xD8\n\0' >"$wide"
want "$wide:2:1: half of a character stands here: this is no UTF-16" "$wide"
printf '\xFE\xFF\0#\0' >"$wide"
want "$wide:1:2: the file ends in the middle of a character" "$wide"

[ "$judged" -gt 20 ] || { echo "only $judged inputs were judged"; exit 1; }
[ "$failed" = 0 ] && echo "$judged wrong inputs, each with its line"
exit "$((failed > 0))"
