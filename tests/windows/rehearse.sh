#!/usr/bin/env bash
# The rehearsal tool for Windows gives the bytes of the one for Linux: report, page, log, both outputs, exit code. What is
# rehearsed: the descriptions given, or all that have no need of an export from elsewhere. Then so many storms, each with
# its seed.
# rehearse.sh LINUX-TOOL WINDOWS-TOOL STORM-TOOL COUNT [DESCRIPTION...]
set -euo pipefail
linux=$(readlink -f "$1")
windows=$(readlink -f "$2")
storm=$(readlink -f "$3")
count=$4
shift 4
cd "$(dirname "$(readlink -f "$0")")/../.."
# shellcheck source=tests/windows/prefix.sh
. tests/windows/prefix.sh
if [ $# -eq 0 ]; then
    mapfile -t descriptions < <(find examples tests/scenarios -name '*.toml' -not -path '*/parts/*' -not -path '*/real/*' | sort)
else
    descriptions=("$@")
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/storms"
for seed in $(seq "$count"); do
    "$storm" 1 --first "$seed" --print >"$work/storms/$seed.toml"
    descriptions+=("$work/storms/$seed.toml")
done

rehearse() { # NAME DESCRIPTION COMMAND...
    local out=$work/$1 description=$2 code=0 seed=()
    shift 2
    [[ $description != */storms/* ]] || seed=(--seed "$(basename "$description" .toml)")
    mkdir -p "$out"
    "$@" "${seed[@]}" --check --log-level 6 --json "$out/json" --html "$out/html" --log "$out/log" "$description" \
        </dev/null >"$out/output" 2>"$out/errors" || code=$?
    echo "$code" >"$out/code"
    local file
    for file in html log; do
        [ ! -e "$out/$file" ] || { undated "$out/$file" >"$out/undated" && mv "$out/undated" "$out/$file"; }
    done
}

differs() {
    ! diff -rq "$work/linux" "$work/windows" >"$work/differences"
}

failed=0
for description in "${descriptions[@]}"; do
    rehearse linux "$description" "$linux" &
    rehearse windows "$description" wine "$windows"
    wait
    # On a busy machine Wine has ended a run with another exit code, all bytes being right. A difference of the tool's
    # own comes again.
    if differs; then
        echo "$description differs, and is run again:"
        cut -d' ' -f2 "$work/differences" | while read -r file; do
            [ ! -f "$file" ] || diff -a "$file" "${file/linux/windows}" | cut -c1-300 | head -4
        done || true # diff says that they differ
        rm -rf "$work/windows"
        rehearse windows "$description" wine "$windows"
        ! differs || failed=$((failed + 1))
    fi
    rm -rf "${work:?}"/{linux,windows}
done
echo "${#descriptions[@]} descriptions, $failed of them with other bytes"
[ "$failed" -eq 0 ]
