#!/usr/bin/env bash
# What protects a port or the log holds whichever thread runs next, in twenty schedules each. Usage: schedules.sh TOOL
set -u
tool=$(readlink -f "$1")
cd "$(dirname "$0")/../scenarios" || exit 1
failed=0
for scenario in engine/*.toml host/*-without-end.toml support/*.toml; do
    for seed in $(seq 0 19); do
        "$tool" --check --quiet --seed "$seed" "$scenario" || { echo "failed: $scenario with seed $seed"; failed=1; }
    done
done
exit $failed
