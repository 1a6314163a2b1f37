#!/usr/bin/env bash
# Compares what the simulated machine's headers and the SDK's make of the same names.
# Usage: compare.sh LAYOUT LAYOUT.EXE; the second one is run by Wine, in the prefix that the environment names.
set -u
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
"$1" >"$scratch/machine.txt" || exit 1
timeout 120 wine "$2" 2>/dev/null </dev/null | tr -d '\r' >"$scratch/sdk.txt"
count=$(wc -l <"$scratch/machine.txt")
if [ "$count" -lt 500 ]; then
    echo "layout: only $count names"
    exit 1
fi
if ! diff "$scratch/machine.txt" "$scratch/sdk.txt" >"$scratch/differences.txt"; then
    echo "layout: the simulated machine (<) and the SDK (>) differ in $(grep -c '^>' "$scratch/differences.txt") of $count names"
    grep '^[<>]' "$scratch/differences.txt"
    exit 1
fi
echo "layout: $count constants, sizes and members are the same in both headers"
