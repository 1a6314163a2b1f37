#!/usr/bin/env bash
# Installs the tool's package in a Debian 12 that has nothing but its base, uses it, removes it. Needs root and the
# archive of Debian; without them it says so and is skipped. The base is made once, in build/debian-12, and stays as it
# is: what the test changes lies on top and goes with it. Usage: deb.sh PACKAGE
set -euo pipefail
package=$(readlink -f "$1")
cd "$(dirname "$(readlink -f "$0")")/../.."
base=$PWD/build/debian-12

skip() {
    echo "package for Debian: not installed for a test, since $*"
    exit 0
}
[ "$(id -u)" = 0 ] || skip "only root can make a Debian to install it in"
command -v debootstrap >/dev/null || skip "debootstrap is not there"
unshare --mount mount -t tmpfs tmpfs /mnt 2>/dev/null || skip "nothing can be mounted here"
if [ ! -e "$base.made" ]; then
    rm -rf "$base"
    debootstrap --variant=minbase bookworm "$base" >build/debootstrap.log 2>&1 || skip "the archive of Debian does not answer"
    touch "$base.made"
fi

top=$(mktemp -d)
trap 'rm -rf "$top"' EXIT
mkdir "$top/whole"
cp "$package" "$top/package.deb"
# Its own mounts end with it.
unshare --mount bash -euo pipefail -s "$base" "$top" <<'INSIDE' || exit 1
base=$1 top=$2
mount -t tmpfs tmpfs "$top/whole"
mkdir "$top"/whole/{changed,work,root}
mount -t overlay overlay -o "lowerdir=$base,upperdir=$top/whole/changed,workdir=$top/whole/work" "$top/whole/root"
root=$top/whole/root
mount -t proc proc "$root/proc"
cp "$top/package.deb" "$root/tmp"
cp /etc/resolv.conf "$root/etc"
in_root() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LANG=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"; }
fail() { echo "package for Debian: $*" >&2; exit 1; }

in_root dpkg --get-selections | sort >"$top/before"
in_root apt-get -qq update >"$top/log" 2>&1 || { echo "package for Debian: not installed for a test, since the archive does not answer"; exit 0; }
in_root apt-get -qq install -y --no-install-recommends /tmp/package.deb >"$top/log" 2>&1 || { cat "$top/log"; fail "not installed"; }
examples=/usr/share/doc/quillmarch-rehearse/examples
in_root quillmarch-rehearse --version >/dev/null || fail "it does not run"
for example in desk bench till; do
    in_root quillmarch-rehearse --check --quiet "$examples/$example.toml" || fail "example $example"
done
in_root quillmarch-rehearse --rules "$examples/desk.ini" >/dev/null || fail "--rules"
in_root bash -c 'COMP_WORDS=(quillmarch-rehearse --sto) COMP_CWORD=1
    . /usr/share/bash-completion/completions/quillmarch-rehearse
    _quillmarch_rehearse && [ "${COMPREPLY[*]}" = --story ]' || fail "completion"
in_root sh -c 'cd /usr/share/doc/quillmarch-rehearse &&
    ls $(zcat /usr/share/man/man1/quillmarch-rehearse.1.gz | grep -o "[a-z]*\.md")' >/dev/null || fail "manual page"
in_root apt-get -qq purge -y quillmarch-rehearse >"$top/log" 2>&1 && in_root apt-get -qq autoremove -y >"$top/log" 2>&1 ||
    { cat "$top/log"; fail "not removed"; }
left=$(in_root find / -xdev -iname '*quillmarch*')
[ -z "$left" ] || fail "it left $left"
in_root dpkg --get-selections | sort | diff "$top/before" - || fail "it left packages"
echo "package for Debian: installed, used and removed"
INSIDE
