#!/usr/bin/env bash
# Tests the packages: what is in them, and the installers under Wine: install, upgrade, remove, with and without
# registration, an INI file of the user's that survives it all, and the x86 installer that refuses x64.
# usage: packages.sh FOLDER VERSION
set -euo pipefail
out=$1
version=$2
cd "$(dirname "$(readlink -f "$0")")/../.."
# shellcheck source=tests/windows/prefix.sh
. tests/windows/prefix.sh

fail() {
    echo "package: $*" >&2
    exit 1
}

python3 tests/windows/help.py "$out/x64/Quillmarch" || fail "the help files have faults"
(cd "$out" && sha256sum --quiet -c SHA256SUMS) || fail "the checksums are not those of the files"
for edition in x64 x86; do
    names=$(cd "$out" && python3 -m zipfile -l "Quillmarch-$version-$edition.zip" | awk 'NR > 1 { print $1 }' | sort)
    tool=()
    [ "$edition" = x86 ] || tool=(quillmarch-rehearse.exe)
    wanted=$(printf 'Quillmarch/%s\n' Quillmarch.exe Quillmarch_eng.chm Quillmarch_ger.chm _capture_machine.cmd \
        _edit_ini.cmd _rehearse_here.cmd _service_deregister.cmd _service_register.cmd configuration.md fleets.md \
        readme.txt rehearsing.md security.md windows.md "${tool[@]}" | sort)
    check "the zip of $edition has its files" test "$(grep -v '/$' <<<"$names")" = "$wanted"
    msi=$out/Quillmarch-$version-$edition.msi
    check "no INI file in the installer" not grep -qi '\.ini' <(msiinfo export "$msi" File)
    check "as many in the installer" test "$(msiinfo export "$msi" File | tail -n +4 | grep -c .)" = "$(wc -l <<<"$wanted")"
    # 18: a program among the files; 64: continues without it; 1024: in the elevated half; 2048: as the system.
    for action in Register Deregister; do
        check "$edition: ${action}Service runs as the system" \
            grep -qP "^${action}Service\t$((18 + 64 + 1024 + 2048))\tExecutable\t-silent" <(msiinfo export "$msi" CustomAction)
        check "$edition: ${action}Service between the elevated half's ends" awk -F'\t' -v wanted="${action}Service" '
            $1 == wanted { at = $3 + 0 } $1 == "InstallInitialize" { begin = $3 + 0 } $1 == "InstallFinalize" { end = $3 + 0 }
            END { exit !(at > begin && at < end) }' <(msiinfo export "$msi" InstallExecuteSequence)
    done
    check "$edition: the version before goes first" awk -F'\t' '$1 == "RemoveExistingProducts" { at = $3 + 0 }
            $1 == "InstallValidate" { begin = $3 + 0 } $1 == "InstallInitialize" { end = $3 + 0 }
            END { exit !(at > begin && at < end) }' <(msiinfo export "$msi" InstallExecuteSequence)
    check "REGISTER reaches the elevated half" grep -qP '^SecureCustomProperties\t.*REGISTER' <(msiinfo export "$msi" Property)
done

make_prefix package

folder="$prefix/drive_c/Program Files/Quillmarch"
install() { timeout 120 wine msiexec "$@" /qn </dev/null >/dev/null 2>&1; }
registered() { timeout 60 wine reg query 'HKLM\System\CurrentControlSet\Services\Quillmarch' </dev/null >/dev/null 2>&1; }
same() { cmp -s "$1" "$2"; }
products() {
    timeout 60 wine reg query 'HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall' /s </dev/null 2>/dev/null |
        tr -d '\r' | awk '$1 == "DisplayName" && $3 == "Quillmarch" { name = 1; count++ }
            $1 == "DisplayVersion" { shown = shown " " $3 } END { print count + 0 }'
}

# The zip as a user unpacks it: the script makes the INI file from the sample, and a second run leaves it alone.
python3 -m zipfile -e "$out/Quillmarch-$version-x64.zip" "$prefix/drive_c/unpacked"
unpacked=$prefix/drive_c/unpacked/Quillmarch
edit_ini() {
    timeout 60 wine cmd /c 'C:\unpacked\Quillmarch\_edit_ini.cmd' </dev/null >/dev/null 2>&1 || true
    for _ in $(seq 100); do
        [ ! -s "$unpacked/Quillmarch.INI" ] || return 0
        sleep 0.1
    done
    return 1
}
check "_edit_ini.cmd makes the INI file" edit_ini
check "of the sample" same "$unpacked/Quillmarch.INI" src/resources/sample_eng.ini
echo '; mine' >>"$unpacked/Quillmarch.INI"
cp "$unpacked/Quillmarch.INI" "$prefix/mine.ini"
check "_edit_ini.cmd runs again" edit_ini
check "and leaves the file alone" same "$unpacked/Quillmarch.INI" "$prefix/mine.ini"

# Under Wine the service cannot run as the system, so that it does not start.
unpacked_exe() { timeout 60 wine "$unpacked/Quillmarch.exe" "$@" </dev/null >/dev/null 2>&1; }
check "-silentregister says that the service does not start" not unpacked_exe -silentregister
check "and has registered it" registered
check "-silentderegister takes it away" unpacked_exe -silentderegister
check "for good" not registered
check "a second time there is nothing to take away" not unpacked_exe -silentderegister

check "the x86 installer refuses x64" not install /i "$out/Quillmarch-$version-x86.msi"
check "and has installed nothing" not test -e "$prefix/drive_c/Program Files (x86)/Quillmarch/Quillmarch.exe"
check "the version before is installed" install /i "$out/former/Quillmarch.msi" REGISTER=0
check "its executable is there" test -e "$folder/Quillmarch.exe"
check "without an INI file" not test -e "$folder/Quillmarch.ini"
check "REGISTER=0 registers no service" not registered
printf '[Settings]\r\nWriteLogfile=0\r\n' >"$folder/Quillmarch.INI"
cp "$folder/Quillmarch.INI" "$prefix/own.ini"
printf 'an older one' >"$folder/readme.txt"

check "the upgrade is installed" install /i "$out/Quillmarch-$version-x64.msi"
check "with its executable" same "$folder/Quillmarch.exe" "$out/x64/Quillmarch/Quillmarch.exe"
check "the service is registered" registered
check "the version before is refused now" not install /i "$out/former/Quillmarch.msi"
check "there is one product" test "$(products)" = 1
check "the user's INI file is as it was" same "$folder/Quillmarch.INI" "$prefix/own.ini"

# The viewer's place is taken by a command that copies what it is asked to show.
timeout 60 wine reg add 'HKCR\chm.file\shell\open\command' /ve /d 'cmd /c copy "%1" C:\opened.chm' /f </dev/null >/dev/null 2>&1
status=0
timeout 60 wine "$folder/Quillmarch.exe" </dev/null >/dev/null 2>&1 || status=$?
check "a start by hand ends with 1" test "$status" = 1
for _ in $(seq 100); do
    ! same "$prefix/drive_c/opened.chm" "$folder/Quillmarch_eng.chm" || break
    sleep 0.1
done
check "and opens the help" same "$prefix/drive_c/opened.chm" "$out/x64/Quillmarch/Quillmarch_eng.chm"

check "it is removed" install /x "$out/Quillmarch-$version-x64.msi"
check "with its executable" not test -e "$folder/Quillmarch.exe"
check "and its service" not registered
check "there is no product" test "$(products)" = 0
check "the user's INI file is still there" same "$folder/Quillmarch.INI" "$prefix/own.ini"
echo "packages: $checks checks passed, the installers under $(wine --version)"
