#!/usr/bin/env bash
# Rehearses on captured exports where they lie beside the checkout; says so when they do not. Usage: real-exports.sh TOOL
set -u
tool=$(readlink -f "$1")
cd "$(dirname "$0")/../scenarios/real" || exit 1
failed=0 ran=0
for scenario in *.toml; do
    export_file=$(sed -n 's/^registry *= *\["\(.*\)"\]$/\1/p' "$scenario")
    if [ ! -e "$export_file" ]; then
        echo "left out: $scenario (no $(basename "$export_file") beside the checkout)"
        continue
    fi
    ran=$((ran + 1))
    "$tool" --check --quiet "$scenario" && echo "rehearsed: $scenario" || failed=1
done
[ "$ran" = 0 ] && exit 77
exit "$failed"
