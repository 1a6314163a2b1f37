#!/usr/bin/env bash
# Two calls of ./quill at once wait for each other, and a tree that was moved is configured again. CMake and Ninja are
# stand-ins that write down what they are asked, so nothing is built.
set -euo pipefail
quill=$1
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
mkdir -p "$home/bin" "$home/first"
cp "$quill" "$home/first/quill"
export PATH=$home/bin:$PATH JOURNAL=$home/journal
cat >"$home/bin/dpkg-query" <<'TEXT'
#!/bin/sh
echo installed
TEXT
cat >"$home/bin/cmake" <<'TEXT'
#!/bin/sh
echo configure >>"$JOURNAL"
mkdir -p "build/$2"
echo "CMAKE_HOME_DIRECTORY:INTERNAL=$PWD" >"build/$2/CMakeCache.txt"
: >"build/$2/build.ninja"
TEXT
# A build lasts until the other call has said that it waits.
cat >"$home/bin/ninja" <<'TEXT'
#!/bin/sh
echo begin >>"$JOURNAL"
until grep -q waiting "$JOURNAL.second" 2>/dev/null || [ -e "$JOURNAL.alone" ]; do sleep 0.05; done
printf '#!/bin/sh\necho run >>"$JOURNAL"\n' >"$2/quillmarch-rehearse"
chmod +x "$2/quillmarch-rehearse"
echo end >>"$JOURNAL"
TEXT
chmod +x "$home/bin/"*

expect() { # WHAT JOURNAL
    [ "$(tr '\n' ' ' <"$JOURNAL")" = "$2 " ] || { echo "$1: $(tr '\n' ' ' <"$JOURNAL")instead of $2"; exit 1; }
    rm -f "$JOURNAL"
}
"$home/first/quill" rehearse a.toml &
until grep -q begin "$JOURNAL" 2>/dev/null; do sleep 0.05; done
"$home/first/quill" rehearse a.toml 2>"$JOURNAL.second"
wait
expect "two calls at once" "configure begin end run begin end run"
touch "$JOURNAL.alone"
mv "$home/first" "$home/second"
"$home/second/quill" rehearse a.toml
expect "a moved tree" "configure begin end run"
"$home/second/quill" rehearse a.toml
expect "a tree that stays" "begin end run"
