#!/usr/bin/env bash
# Expectations that are not met each give their one line. Usage: judging.sh TOOL
set -u
tool=$(readlink -f "$1")
cd "$(dirname "$0")" || exit 1
came=$("$tool" --check --quiet not-met.toml 2>&1)
[ $? = 1 ] || { echo "failed: exit code of expectations that are not met"; exit 1; }
diff not-met.txt <(printf '%s\n' "$came") || { echo "failed: the lines of not-met.toml"; exit 1; }
