#!/usr/bin/env bash
# Users' stories: each file of stories/ says which lines its report holds, in this order, and the exit code with
# --strict. Blanks are folded. Usage: stories.sh TOOL
set -u
tool=$(readlink -f "$1")
cd "$(dirname "$0")/stories" || exit 1
failed=0
for story in *.toml; do
    expected=$(sed -n 's/^# What the report says, with --strict exit \([0-9]\):$/\1/p' "$story")
    [ -n "$expected" ] || continue
    report=$("$tool" --strict "$story" 2>/dev/null)
    code=$?
    [ "$code" = "$expected" ] || { echo "$story: exit $code, not $expected"; failed=1; }
    rest=$(tr -s ' ' <<<"$report")
    while IFS= read -r line; do
        case $rest in
        *"$line"*) rest=${rest#*"$line"} ;;
        *) echo "$story: no line '$line'"; failed=1 ;;
        esac
    done < <(sed -n 's/^#> //p' "$story")
done
exit "$failed"
