#!/usr/bin/env bash
# Installs the packages that scripts/package.sh built on a fresh, minimal Debian 12 in a chroot, and
# uses them there. Needs root and a Debian mirror. Takes a few minutes.
#   scripts/check-package.sh [PACKAGES] [ROOT]    by default build/packages and a temporary folder;
#                                                 a ROOT that exists is used again, and kept
set -euo pipefail
cd "$(dirname "$0")/.."
packages=$(realpath "${1:-build/packages}")
root=${2:-}
[ "$(id -u)" -eq 0 ] || { echo "check-package.sh: needs root, for chroot" >&2; exit 1; }
say() { echo "check-package.sh: $*"; }
inside() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@"; }

cleanup() {
  for place in dev proc; do
    if mountpoint -q "$root/$place"; then umount "$root/$place"; fi
  done
  # Never through a mount that would not go.
  if [ -n "${temporary:-}" ] && ! mountpoint -q "$root/dev"; then rm -rf --one-file-system "$root"; fi
}
if [ -z "$root" ]; then temporary=yes root=$(mktemp -d); fi
trap cleanup EXIT

if [ ! -e "$root/etc/debian_version" ]; then
  say "making a fresh Debian in $root"
  debootstrap --variant=minbase bookworm "$root" http://deb.debian.org/debian >"$packages/debootstrap.log" ||
    { tail "$packages/debootstrap.log"; exit 1; }
fi
rm -rf "$root"/etc/apt/sources.list*
cp -r /etc/apt/sources.list.d "$root/etc/apt/"
if [ -e /etc/apt/sources.list ]; then cp /etc/apt/sources.list "$root/etc/apt/"; fi
mount -t proc proc "$root/proc"
mount --bind /dev "$root/dev"

say "installing the command alone"
rm -rf "$root/tmp/zelk" && mkdir "$root/tmp/zelk"
cp "$packages"/*.deb "$root/tmp/zelk"
cp tests/install/{use-command,completion}.sh "$root/tmp/zelk"
inside apt-get update -qq
inside sh -c 'apt-get install -y -qq --reinstall --no-install-recommends /tmp/zelk/zelk-sss_*.deb' >"$packages/apt.log" 2>&1 ||
  { tail "$packages/apt.log"; exit 1; }
inside zelk-sss --version
inside sh -c 'ls /usr/share/man/man1/zelk-sss*.1.gz /usr/share/bash-completion/completions/zelk-sss \
  /usr/share/doc/zelk-sss/copyright'
inside bash /tmp/zelk/use-command.sh zelk-sss /usr/share/doc/zelk-sss/examples/two-talkers.json
inside bash /tmp/zelk/completion.sh /usr/share/bash-completion/completions/zelk-sss zelk-sss

say "installing the development files and building against them"
cp -r tests/install/consumer tests/install/consumer.sh "$root/tmp/zelk"
inside sh -c 'apt-get install -y -qq --no-install-recommends /tmp/zelk/libzelk-sss-dev_*.deb g++ cmake make pkg-config' \
  >>"$packages/apt.log" 2>&1 || { tail "$packages/apt.log"; exit 1; }
version=$(inside dpkg-query -W -f '${Version}' zelk-sss)
inside bash /tmp/zelk/consumer.sh cmake /usr "lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)" "$version"

say "removing them"
inside apt-get purge -y -qq zelk-sss >>"$packages/apt.log" 2>&1
left=$(inside find /usr /etc /var/lib -name '*zelk*' -not -path '/var/lib/dpkg/*' -not -path '/var/lib/apt/*')
[ -z "$left" ] || { say "left behind: $left"; exit 1; }
say "all is well"
