#!/usr/bin/env bash
# Runs every fuzzer for the same time, one after another: run.sh SECONDS FOLDER-OF-THE-FUZZERS
# Their corpus is kept next to them, so the next run continues from there. A finding ends with exit code 1 and leaves
# its input as NAME-crash-...
set -eu
seconds=$1
folder=$(readlink -f "$2")
here=$(dirname "$(readlink -f "$0")")
export ASAN_OPTIONS="detect_stack_use_after_return=0"

found=0
for fuzzer in "$folder"/quillmarch-fuzz-*; do
    [ -x "$fuzzer" ] && [ -f "$fuzzer" ] || continue
    name=${fuzzer##*/quillmarch-fuzz-}
    mkdir -p "$folder/corpus-$name"
    options="-max_total_time=$seconds -timeout=10 -print_final_stats=1 -verbosity=0 -artifact_prefix=$folder/$name-"
    seeds=""
    if [ "$name" = reader ]; then
        options="$options -max_len=8192 -dict=$here/reader.dict"
        seeds="$here/corpus"
    fi
    # shellcheck disable=SC2086
    if "$fuzzer" $options "$folder/corpus-$name" $seeds >"$folder/$name.log" 2>&1; then
        units=$(sed -n 's/^stat::number_of_executed_units: *//p' "$folder/$name.log")
        echo "fuzz: $name: nothing in $seconds s and $units inputs"
    else
        tail -n 60 "$folder/$name.log" >&2
        echo "fuzz: $name: found something, see $folder/$name.log" >&2
        found=1
    fi
done
exit $found
