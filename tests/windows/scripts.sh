#!/usr/bin/env bash
# Tests _capture_machine.cmd and _rehearse_here.cmd under Wine, in a prefix of its own: without ports, with planted ones,
# in a folder whose name has what command processors stumble over, where nothing can be written.
# usage: scripts.sh FOLDER TOOL PNPUTIL STAND-IN [EXE]: the package's files, the rehearsal tool of this host, the stand-ins
# of pnputil and of the rehearsal tool, that tool for Windows; without it nothing is rehearsed under Wine
set -euo pipefail
folder=$(readlink -f "$1")
tool=$(readlink -f "$2")
pnputil=$(readlink -f "$3")
stand_in=$(readlink -f "$4")
exe=${5:+$(readlink -f "$5")}
cd "$(dirname "$(readlink -f "$0")")/../.."
# shellcheck source=tests/windows/prefix.sh
. tests/windows/prefix.sh
export LC_ALL=C.UTF-8
captured=tests/rehearse/captured

fail() {
    echo "scripts: $*" >&2
    [ -z "${output:-}" ] || tail -n 20 "$output" >&2
    exit 1
}

make_prefix scripts
output=$prefix/output.txt

# With an INI file, and a log where it says.
here="$prefix/drive_c/Kasse & Büro! (x86)"
mkdir "$here"
cp "$folder"/*.* "$here"
sed -i 's/\r*$/\r/' "$here"/*.cmd # as the package has them
[ -z "$exe" ] || cp "$exe" "$here/quillmarch-rehearse.exe"
cp $captured/ports.ini "$here/Quillmarch.ini"
printf '\n[Settings]\nLogfile = %%SystemDrive%%\\Log & all.txt\n' >>"$here/Quillmarch.ini"
echo 'the log' >"$prefix/drive_c/Log & all.txt"

# run SCRIPT ARGUMENTS...: its exit code in `code`, what it prints in the file `output`.
run() {
    code=0
    (cd "$here" && timeout 300 wine cmd /c "$@" </dev/null >"$output" 2>&1) || code=$?
}
plain() { iconv -f utf-16le -t utf-8 "$1" | tr -d '\r'; }
machine="$here/Quillmarch_$(hostname | cut -c 1-15 | tr '[:lower:]' '[:upper:]')"

# A double click on the whole way: the report is that of this host, byte for byte.
rehearsed() { # MEANING EXIT-CODE
    [ -n "$exe" ] || return 0
    local meaning=$1
    rm -f "$machine/report.html"
    run _rehearse_here.cmd /quiet
    check "exit code $2: $meaning" test "$code" = "$2"
    code=0
    "$tool" --quiet --strict --language en --html "$prefix/report.html" "$machine" 2>"$prefix/lines.txt" || code=$?
    check "here too: $meaning" test "$code" = "$2"
    check "the same report: $meaning" cmp <(undated "$prefix/report.html") <(undated "$machine/report.html")
    while read -r line; do
        check "the line is in the window: $line" grep -qaF "$line" "$output"
    done <"$prefix/lines.txt"
}
rehearsed "no ports" 1

# With the keys that mark what is there; no pnputil, no PowerShell.
check "the ports are planted" timeout 60 wine reg import "Z:${PWD//\//\\}\\tests\\rehearse\\captured\\ports.reg" </dev/null >"$output" 2>&1
run _capture_machine.cmd
check "the machine is captured" test "$code" = 0
check "what could not be read is listed" grep -q 'parents and location paths' "$output"
check "also in the folder" grep -q 'parents and location paths' "$machine/not_read.txt"
plain "$machine/registry.txt" >"$prefix/registry.txt"
check "the ports are in the export" test "$(grep -c '^"PortName"' "$prefix/registry.txt")" = 5
check "the numbers too" grep -q '^"ComDB"=hex:f0,01,' "$prefix/registry.txt"
check "no printer, disk or network" not grep -qiE 'USBPRINT|USBSTOR|SECRET|DEV_15B8' "$prefix/registry.txt"
check "eight devices are connected" test "$(grep -c . "$machine/connected.txt")" = 8
check "the disk's serial number stays" not grep -rq SECRET "$machine"
check "the version of Windows is described" grep -q '^version = "[0-9]*\.[0-9]*\.[0-9]*"' "$machine/machine.toml"
check "and the uptime" grep -qE '^uptime = "[0-9]+s"' "$machine/machine.toml"
check "the INI file is there" cmp -s "$here/Quillmarch.ini" "$machine/Quillmarch.ini"
check "and the log" grep -q 'the log' "$machine/Quillmarch.log"
check "what it has is said" grep -q 'NAMES OF USERS' "$machine/readme.txt"
check "it is rehearsed here" "$tool" --quiet --json "$prefix/report.json" "$machine"
check "with its rules" grep -q '"registry_name": "COM20"' "$prefix/report.json"

printf '[ComPorts3]\nDeviceID=USB\\VID_067B*\nPortName1=COM30\nPortName2=COM31\nPortName3=COM32\n' >>"$here/Quillmarch.ini"
rehearsed "five ports" 0
[ -z "$exe" ] || check "it says so" grep -q 'ALL IS WELL' "$output"

# pnputil speaks German, and knows less and more than the marks.
cp "$pnputil" "$prefix/drive_c/windows/system32/pnputil.exe"
mkdir "$prefix/drive_c/all"
# A stick whose serial number is a command line.
cat >"$prefix/stick.reg" <<'REG'
Windows Registry Editor Version 5.00

[HKEY_LOCAL_MACHINE\SYSTEM\CurrentControlSet\Enum\USB\VID_1A86&PID_7523\X"&echo.SERVED&"]
"ClassGUID"="{4d36e978-e325-11ce-bfc1-08002be10318}"
REG
check "the stick is planted" timeout 60 wine reg import "Z:${prefix//\//\\}\\stick.reg" </dev/null >"$output" 2>&1
run _capture_machine.cmd 'C:\all'
check "it is captured again, elsewhere" test "$code" = 0
check "no serial number is a command" not grep -q SERVED "$output"
check "by pnputil's list, of the export's devices" test "$(tr -d '"\r' <"$prefix/drive_c/all/${machine##*/}/connected.txt" |
    sort | sed 's/.*\\//' | tr '\n' ' ')" = '4&1a2b3c4d&0&0 5&2e9a1f0&0&2 6&7d0c1b2&0&1 6&7d0c1b2&0&4 '
rm "$prefix/drive_c/windows/system32/pnputil.exe"

# A file where the folder should be stands for a share that cannot be written.
run _capture_machine.cmd 'C:\Log & all.txt'
check "what cannot be written is refused" test "$code" = 1
rm -rf "$machine"
touch "$machine"
run _capture_machine.cmd
check "or goes to the folder for temporary files" test -e "$prefix"/drive_c/users/*/Temp/"${machine##*/}/machine.toml"
check "which is said" grep -q 'Temp' "$output"
rm "$machine"

# Without the program, as in the x86 package, and without a configuration.
# What it makes of the tool's exit codes: of the check of the rules, of the run, and its own.
cp "$stand_in" "$here/quillmarch-rehearse.exe"
while read -r rules rehearsal own says; do
    RULES_CODE=$rules RUN_CODE=$rehearsal run _rehearse_here.cmd /quiet
    check "$rules and $rehearsal come to $own" test "$code" = "$own"
    check "$rules and $rehearsal: $says" grep -q "$says" "$output"
done <<'CODES'
0 0 0 ALL IS WELL
1 0 1 SOMETHING TO LOOK AT
0 1 1 SOMETHING TO LOOK AT
0 3 2 COULD NOT BE REHEARSED
CODES
check "the rules are checked against the captured machine" env LC_ALL=C grep -qaE '^\[--rules\]\[C:.*\\Quillmarch.ini\]\[C:.*\\Quillmarch_[^]]*\]' "$output"
check "all stories are rehearsed on it, strictly" env LC_ALL=C grep -qaE '^\[--quiet\]\[--strict\].*\[--html\]\[C:.*report.html\]\[C:.*\\Quillmarch_[^]\]*\]' "$output"
check "the report is there" test -e "$machine/report.html"
rm -f "$here/quillmarch-rehearse.exe"
run _rehearse_here.cmd /quiet
check "the machine is captured alone" test "$code" = 3 -a -e "$machine/machine.toml"
rm "$here/Quillmarch.ini"
run _rehearse_here.cmd /quiet
check "without an INI file nothing is done" test "$code" = 2
check "it is asked for" grep -q '_edit_ini.cmd makes one' "$output"
echo "scripts: $checks checks passed under $(wine --version)"
