#!/usr/bin/env bash
# What the host cannot do is no fault of the product: exit code 2. And each form in which
# Windows prints ids is read. Usage: host-failures.sh TOOL
set -u
tool=$(readlink -f "$1")
cd "$(dirname "$0")/../.." || exit 1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failed=0
want() { # WHAT CODE CAME
    [ "$2" = "$3" ] || { echo "$1: '$3', not '$2'"; failed=1; }
}

"$tool" examples/desk.toml >&- 2>/dev/null
want "a closed standard output" 2 $?
[ -e /dev/full ] && { "$tool" examples/desk.toml >/dev/full 2>/dev/null; want "a full disk" 2 $?; }

id='USB\VID_1A86&PID_7523\6&30c8ca5f&0&3'
form() { # NAME TEXT: only the device is named, and its hubs come along
    printf '%b' "$2" >"$scratch/list"
    printf "registry = ['%s']\nconnected = 'list'\n" "$PWD/tests/scenarios/parts/places.reg" >"$scratch/form.toml"
    want "$1" 1 "$("$tool" --devices "$scratch/form.toml" | grep -F "$id" | grep -c 'there$')"
    want "$1, the other one" 0 "$("$tool" --devices "$scratch/form.toml" | grep 'VID_067B' | grep -c '[^t] there$')"
}
escaped=${id//\\/\\\\}
form pnputil "Instance ID:                $escaped\r\nStatus: Started\r\n"
form list "DeviceID=${escaped//&/&amp;}\r\n"
form csv "\"OK\",\"$escaped\",\"USB\"\r\n"
form table "| $escaped|OK|\n"
form tabs "OK\t$escaped\tUSB\n"
form json "{\"InstanceId\": \"${escaped//\\/\\\\}\"}\n"
form lines "$escaped: OK\n"
for code in UTF-16LE UTF-16BE; do # the former without a mark
    { [ $code = UTF-16LE ] || printf '\xfe\xff'; printf "$escaped\r\n" | iconv -f ASCII -t $code; } >"$scratch/wide"
    printf "registry = ['%s']\nconnected = 'wide'\n" "$PWD/tests/scenarios/parts/places.reg" >"$scratch/form.toml"
    want $code 1 "$("$tool" --devices "$scratch/form.toml" | grep -F "$id" | grep -c 'there$')"
done
exit "$failed"
