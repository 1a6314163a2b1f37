# For the scripts beside it: the tool that is their first argument, a folder for scratch, checks that count failures.
set -u
tool=$(readlink -f "$1")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failed=0
check() { # WHAT COMMAND...: the command must succeed
    local what=$1
    shift
    "$@" || { echo "failed: $what"; failed=1; }
}
