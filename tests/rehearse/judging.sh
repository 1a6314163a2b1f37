#!/usr/bin/env bash
# Expectations that are not met each give their one line, and one log is whole in every schedule. Usage: judging.sh TOOL
set -u
tool=$(readlink -f "$1")
cd "$(dirname "$0")" || exit 1
came=$("$tool" --check --quiet not-met.toml 2>&1)
[ $? = 1 ] || { echo "failed: exit code of expectations that are not met"; exit 1; }
diff not-met.txt <(printf '%s\n' "$came") || { echo "failed: the lines of not-met.toml"; exit 1; }
writers=../scenarios/support/three-writers-one-log.toml
for seed in $(seq 1 40); do
    "$tool" --check --quiet --seed "$seed" "$writers" || { echo "failed: $writers with seed $seed"; exit 1; }
done
