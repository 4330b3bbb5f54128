#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# `./dev fresh`: what the README promises, in a Debian 12 with nothing installed. Run as root.
set -euo pipefail
cd "$(dirname "$0")/.."
source_tree=$PWD
suite=bookworm

# In a mount namespace of its own: whatever happens, nothing stays mounted.
if [ -z "${ZONM_FRESH_NAMESPACE:-}" ]; then
  ZONM_FRESH_NAMESPACE=1 exec unshare --mount --propagation private "$0" "$@"
fi

place=$(mktemp -d "${1:-${TMPDIR:-/var/tmp}}/zonm-fresh.XXXXXX")
root=$place/root
cleanup() {
  local status=$?
  umount "$root/proc" 2>/dev/null || true
  rm -rf --one-file-system "$place"
  [ "$status" -eq 0 ] && echo "== all of it held" || echo "== FAILED, see above"
}
trap cleanup EXIT

started=$SECONDS
step() { printf '\n== %s (%s s)\n' "$*" "$((SECONDS - started))"; }

# The mirror, keys and proxies are those of this machine's apt.
mirror=$(apt-get indextargets --format '$(RELEASE) $(COMPONENT) $(REPO_URI)' 'Created-By: Packages' |
  sed -n "s/^$suite main //p" | head -1)
[ -n "$mirror" ] || { echo "apt has no mirror of Debian 12 ($suite)"; exit 1; }
step "a bare Debian 12"
debootstrap --variant=minbase "$suite" "$root" "$mirror" >"$place/debootstrap.log" 2>&1 ||
  { tail -20 "$place/debootstrap.log"; exit 1; }
grep -rhs -i proxy /etc/apt/apt.conf /etc/apt/apt.conf.d >"$root/etc/apt/apt.conf.d/90proxy" || true
cp /etc/resolv.conf "$root/etc/resolv.conf"
mount -t proc proc "$root/proc"
echo "$(chroot "$root" dpkg -l | grep -c ^ii) packages"

copy_sources() {
  mkdir -p "$root$1/zonm"
  git -c safe.directory="$source_tree" ls-files -z --cached --others --exclude-standard |
    while IFS= read -rd '' file; do [ ! -e "$file" ] || printf '%s\0' "$file"; done |
    tar --null -T - -cf - | tar -C "$root$1/zonm" --no-same-owner -xf -
}

# within USER COMMAND: with nothing of any shell's environment, LANG included.
within() {
  local user=$1 home
  home=$(chroot "$root" getent passwd "$user" | cut -d: -f6)
  chroot --userspec="$user" "$root" /usr/bin/env -i HOME="$home" PATH=/usr/sbin:/usr/bin:/sbin:/bin \
    sh -c "cd ~/zonm && $2"
}

copy_sources /root
step "as root: ./dev demo"
within root "./dev demo"
step "as root: ./dev test"
within root "./dev test"
rm -rf "$root/root/zonm"

chroot "$root" useradd --create-home newcomer
copy_sources /home/newcomer
chroot "$root" chown -R newcomer:newcomer /home/newcomer
step "as a user without rights: the README's steps"
within newcomer "python3 tests/readme_test.py --steps"
step "as a user without rights: ./dev demo"
within newcomer "./dev demo"
step "as a user without rights: ./dev test"
within newcomer "./dev test"
step "$(chroot "$root" dpkg -l | grep -c ^ii) packages, $(du -sm --one-file-system "$root" | cut -f1) MB with both builds"
