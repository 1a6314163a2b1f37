#!/usr/bin/env bash
# Machines without a description: a captured folder, a folder of exports, exports by name. Usage: captures.sh TOOL
# shellcheck source=tests/rehearse/checks.sh
. "$(dirname "$0")/checks.sh"
cd "$(dirname "$0")/captured" || exit 1
same() { [ "$1" = "$2" ] || { printf '  wanted: %s\n  came:   %s\n' "$1" "$2"; return 1; }; }
wide() { printf '\xff\xfe' && iconv -f utf-8 -t utf-16le; }
refused() { # LINE ARGUMENTS...: with 2, this line alone, nothing run
    local line=$1 came
    shift
    came=$("$tool" "$@" 2>&1)
    check "refused: $line" same "$line, 2" "$came, $?"
}

# A captured folder. Of the five ports the list does not name the one at COM9; the tree's upper end is known from
# PowerShell alone. The names of the folder hold what shells and Windows stumble over.
folder="$scratch/Kasse & Büro!"
mkdir "$folder"
wide <ports.reg >"$folder/registry.txt"
{
    echo 'Microsoft PnP-Hilfsprogramm'
    for id in 'PCI\VEN_8086&DEV_A36D\3&11583659&0&A0' 'USB\ROOT_HUB30\4&1a2b3c4d&0&0' 'USB\VID_05E3&PID_0608\5&2e9a1f0&0&2' 'FTDIBUS\VID_0403+PID_6001+A702TB52A\0000' \
        'USB\VID_0403&PID_6001\A702TB52' 'USB\VID_067B&PID_2303\6&7d0c1b2&0&'{1,2,3}; do
        printf '\nInstanz-ID:                 %s\nGerätebeschreibung:         Anschluss für Geräte\n' "$id"
    done
} | sed 's/$/\r/' | wide >"$folder/connected.txt"
printf '%s\t%s\t%s\r\n' 'PCI\VEN_8086&DEV_A36D\3&11583659&0&A0' 'HTREE\ROOT\0' 'PCIROOT(0)#PCI(1400)' \
    'USB\VID_FFFF&PID_FFFF\NOT_EXPORTED' 'HTREE\ROOT\0' '' >"$folder/properties.txt"
cp ports.ini "$folder/Quillmarch.ini"
cat >"$folder/machine.toml" <<'TOML'
registry = ["registry.txt"]
connected = "connected.txt"
properties = "properties.txt"
[windows]
version = "10.0.19045"
uptime = "273s"
[quillmarch]
ini = "Quillmarch.ini"
TOML
ports() { # of a report: names in the registry, of those that are present
    python3 -c 'import json, sys
report = json.load(open(sys.argv[1]))
print(report["title"], sorted(p["registry_name"] for p in report["ports"] if p["present"]))' "$1"
}
report=$scratch/report.json
check "the folder is rehearsed" "$tool" --json "$report" --html "$scratch/report.html" --quiet "$folder/"
check "its rules count" same "Kasse & Büro! ['COM20', 'COM21', 'COM6', 'COM7']" "$(ports "$report")"
"$tool" --devices "$folder" >"$scratch/devices.txt"
check "the hub's place is known" grep -q 'PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(2)' "$scratch/devices.txt"
check "a rule for its ports is right" "$tool" --quiet --rules ports.ini "$folder"
"$tool" --compare ports.ini "$folder" >"$scratch/compare.txt"
check "it is compared" grep -q '^No rule differs' "$scratch/compare.txt"

# The same without the description, as exports in two files, and these appended to one another: one machine.
mkdir "$scratch/bare"
cp "$folder"/{connected.txt,properties.txt,Quillmarch.ini} "$scratch/bare"
sed '/^\[.*FTDIBUS/,$d' ports.reg | wide >"$scratch/bare/a.REG"
{ sed '2q' ports.reg; sed -n '/^\[.*FTDIBUS/,$p' ports.reg; } | wide >"$scratch/bare/b.reg"
check "a folder of exports is rehearsed" "$tool" --json "$report" --quiet "$scratch/bare"
check "with its INI file" same "bare ['COM20', 'COM21', 'COM6', 'COM7']" "$(ports "$report")"
cat "$scratch/bare/a.REG" "$scratch/bare/b.reg" >"$scratch/whole.reg"
{ cat ports.reg; yes "; longer than any other file may be" | head -c 17M; echo; } >"$scratch/long.reg"
for one in "$scratch/whole.reg" "$scratch/bare/a.REG $scratch/bare/b.reg" ports.reg "$scratch/long.reg"; do
    # shellcheck disable=SC2086
    check "exports by name: $one" "$tool" --ini ports.ini --json "$report" --quiet $one
    check "are one machine" same "['COM20', 'COM21', 'COM6', 'COM7', 'COM9']" "$(ports "$report" | sed 's/.*\[/[/')"
done

# What is wrong names its place.
printf 'USB\\ROOT_HUB30\\4&1a2b3c4d&0&0\tHTREE' >>"$scratch/bare/properties.txt"
refused "$scratch/bare/properties.txt:3:36: the file ends in the middle of a line" "$scratch/bare"
printf 'Instance ID: \r\n' >"$scratch/bare/properties.txt"
refused "$scratch/bare/properties.txt:1:1: this line is not a device's id, its parent and its location path with tabs between them" "$scratch/bare"
rm "$scratch/bare/properties.txt"
printf 'Keine Geräte gefunden.\r\n' >"$scratch/bare/connected.txt"
refused "$scratch/bare/connected.txt:1:1: the list of connected devices names no device of the exports" "$scratch/bare"
rm "$scratch/bare/connected.txt"
sed '13q' ports.reg | head -c -41 >"$scratch/bare/a.REG"
refused "$scratch/bare/a.REG:13:13: the file ends in the middle of a value" "$scratch/bare"
sed '13q' ports.reg | head -c -2 >"$scratch/bare/a.REG"
refused "$scratch/bare/a.REG:13:13: the text has no closing quote" "$scratch/bare"
cp ports.ini "$scratch/bare/second.ini"
refused "$scratch/bare/second.ini:1:1: this folder has a second INI file: name one with --ini, and move the other elsewhere" "$scratch/bare"
refused "ports.ini:1:1: this is no export of the registry: only exports can be named side by side" ports.reg ports.ini
mkdir "$scratch/empty"
refused "$scratch/empty: this is a folder: only exports can be named side by side" "$scratch/empty" ports.reg
refused "$scratch/empty: this folder has neither a machine.toml nor an export of the registry" "$scratch/empty"
refused "ports.reg: this file is an input, it is not overwritten" --json ports.reg "$scratch/whole.reg" ports.reg
cp ports.reg "$scratch/empty"
: >"$scratch/empty/MACHINE.TOML" # cut off when it was copied
refused "$scratch/empty/MACHINE.TOML:1:1: this describes no machine: it names no export under 'registry', and no device" "$scratch/empty"
ln -sf nowhere.toml "$scratch/empty/MACHINE.TOML"
refused "$scratch/empty/MACHINE.TOML:1:1: there is no file '$scratch/empty/MACHINE.TOML' that can be read" "$scratch/empty"

# Files that a foreign folder would have the reader show or wait for, and a name that would clear the reader's screen.
mkdir "$scratch/trap"
ln -s /etc/passwd "$scratch/trap/Quillmarch.ini"
mkfifo "$scratch/trap/pipe"
for named in '"../bare/second.ini"' "'\\\\host\\share\\a.ini'" "'C:a.ini'" '"Quillmarch.ini"' '"pipe"' "\"$PWD/ports.ini\""; do
    printf '[quillmarch]\nini = %s\n' "$named" >"$scratch/trap/machine.toml"
    check "$named is refused" grep -q "^$scratch/trap/machine.toml:2:7: .* may name no other" <(timeout 20 "$tool" "$scratch/trap" 2>&1)
done
printf 'title = "\\u001b[2J\\u009b"\n[[device]]\nid = "ACPI\\\\PNP0501\\\\1"\nfriendly_name = "\\u001b]0;x\\u0007"\n' >"$scratch/trap/machine.toml"
"$tool" --explain --story none "$scratch/trap" >"$scratch/shown.txt"
check "control characters are shown" grep -qF 'x1b[2J\x9b' "$scratch/shown.txt"
check "none is left" bash -c "! LC_ALL=C grep -qP '[\x00-\x08\x0b-\x1f\x7f]|\xc2[\x80-\x9f]' '$scratch/shown.txt'"
[ "$failed" = 0 ] && echo "captured machines: rehearsed, or refused with their place"
exit "$failed"
