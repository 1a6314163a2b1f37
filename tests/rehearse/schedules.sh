#!/usr/bin/env bash
# What protects a port or the log holds whichever thread runs next, in several schedules each. Usage: schedules.sh TOOL SCHEDULES
set -u
tool=$(readlink -f "$1")
cd "$(dirname "$0")/../scenarios" || exit 1
failed=0
for scenario in engine/*.toml host/*-without-end.toml support/*.toml; do
    for seed in $(seq 0 $(($2 - 1))); do
        "$tool" --check --quiet --seed "$seed" "$scenario" || { echo "failed: $scenario with seed $seed"; failed=1; }
    done
done
exit $failed
