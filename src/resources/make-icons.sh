#!/usr/bin/env bash
# Remakes each .ico next to this script from the .svg of its name, in every size at which the program loads it. Run
# it after a drawing was changed, and commit both. Debian: librsvg2-bin, icoutils.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")"
sizes="16 20 24 32 48"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for drawing in *.svg; do
    name=${drawing%.svg}
    pictures=()
    for size in $sizes; do
        rsvg-convert -w "$size" -h "$size" "$drawing" -o "$work/$name-$size.png"
        pictures+=("$work/$name-$size.png")
    done
    icotool -c -o "$name.ico" "${pictures[@]}"
done
