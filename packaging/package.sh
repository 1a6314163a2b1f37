#!/usr/bin/env bash
# The whole of `./quill package`: builds both editions and makes of each a zip and an installer, with their checksums, in
# build/packages. Then tests the installers under Wine. Last the rehearsal tool's package for Debian, with its test.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
root=$PWD
out=$PWD/build/packages
upgrade_code=6B0D2E57-9C1F-4A7E-8F53-2D1A7C46E9B0
version=$(sed -n 's/^project(Quillmarch VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)
stamp=$(git log -1 --format=%ct 2>/dev/null || echo 0)

# Builds an edition and puts its files in a folder. The texts get the line ends of Windows, all files one date.
stage() { # PRESET FOLDER
    local preset=$1 folder=$2 programs=Quillmarch
    [ "$preset" != windows ] || programs="Quillmarch quillmarch-rehearse" # the tool is there for x64 alone
    [ -e "build/$preset/build.ninja" ] || cmake --preset "$preset" -DQM_WINDOWS_TESTS=OFF >"build/$preset.log" 2>&1
    # shellcheck disable=SC2086
    ninja -C "build/$preset" $programs >"build/$preset.log" 2>&1 || { cat "build/$preset.log" >&2; exit 1; }
    rm -rf "$folder"
    mkdir -p "$folder"
    local text program
    for program in $programs; do
        cp "build/$preset/$program.exe" "$folder" # signatures of the executables go here
    done
    cp "$out"/Quillmarch_*.chm "$folder"
    for text in packaging/readme.txt packaging/*.cmd docs/{configuration,windows,fleets,rehearsing,security}.md; do
        sed 's/\r*$/\r/' "$text" >"$folder/$(basename "$text")"
    done
    touch -d "@$stamp" "$folder"/*
}

# One version of an edition is one product: its code follows from both.
make_msi() { # EDITION VERSION FILE
    local edition=$1 number=$2 file=$3 code win64=no programs=ProgramFilesFolder arch=x86
    code=$(python3 -c 'import sys, uuid; print(str(uuid.uuid5(uuid.UUID(sys.argv[1]), sys.argv[2])).upper())' \
        "$upgrade_code" "$number $edition")
    [ "$edition" = x86 ] || { win64=yes; programs=ProgramFiles64Folder; arch=x64; }
    rm -f "$file"
    # It takes no absolute path of a file.
    (cd "$out" && wixl -a "$arch" -D Version="$number" -D ProductCode="$code" -D Source="$edition/Quillmarch" \
        -D Win64="$win64" -D ProgramFiles="$programs" -o "$file" "$root/packaging/Quillmarch.wxs")
    # So that the choice on the command line reaches the elevated half of the installer.
    msibuild "$file" -q "UPDATE \`Property\` SET \`Value\` = 'REGISTER;WIX_DOWNGRADE_DETECTED;WIX_UPGRADE_DETECTED'
        WHERE \`Property\` = 'SecureCustomProperties'"
    # Before anything is installed: removed later, the version before would take the new one's service away.
    msibuild "$file" -q "UPDATE \`InstallExecuteSequence\` SET \`Sequence\` = 1410
        WHERE \`Action\` = 'RemoveExistingProducts'"
}

rm -rf "$out"
mkdir -p "$out/former"
python3 packaging/help/make_help.py "$out"
for edition in x64 x86; do
    preset=windows
    [ "$edition" = x64 ] || preset=windows-x86
    stage "$preset" "$out/$edition/Quillmarch"
    (cd "$out/$edition" && TZ=UTC zip -q -X -r "../Quillmarch-$version-$edition.zip" Quillmarch)
    make_msi "$edition" "$version" "$out/Quillmarch-$version-$edition.msi"
done
# Signatures of the installers go here: the checksums are made of what is given out.
rm "$out"/Quillmarch_*.chm
(cd "$out" && sha256sum Quillmarch-* >SHA256SUMS)
# A version before, which only the test installs.
make_msi x64 0.9.0 "$out/former/Quillmarch.msi"
bash tests/windows/packages.sh "$out" "$version"
(cd "$out" && stat -c '%n: %s bytes' Quillmarch-* SHA256SUMS)
bash packaging/deb/package.sh "$@"
