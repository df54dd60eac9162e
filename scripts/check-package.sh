#!/usr/bin/env bash
# Installs the packages that scripts/package.sh built on a fresh, minimal Debian 12 in a chroot, and
# uses them there. Needs root and a Debian mirror. Takes a few minutes.
#   scripts/check-package.sh [PACKAGES] [ROOT]    by default build/packages and a temporary folder;
#                                                 a ROOT that exists is used again, and kept
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/bare-root.sh
source scripts/bare-root.sh
packages=$(realpath "${1:-build/packages}")
root=${2:-}
[ "$(id -u)" -eq 0 ] || { echo "check-package.sh: needs root, for chroot" >&2; exit 1; }
say() { echo "check-package.sh: $*"; }
deb() { echo "/tmp/zelk/$(basename "$packages/$1"_*.deb)"; }

keep=
if [ -z "$root" ]; then keep=remove root=$(mktemp -d); fi
trap 'leave_bare_root "$root" $keep' EXIT
say "making a fresh Debian in $root, unless there is one"
make_bare_root "$root" "$packages/debootstrap.log" || { tail "$packages/debootstrap.log"; exit 1; }
enter_bare_root "$root"

say "installing the command alone"
rm -f "$packages/apt.log"
rm -rf "$root/tmp/zelk" && mkdir "$root/tmp/zelk"
cp "$packages"/*.deb "$root/tmp/zelk"
cp tests/install/{use-command,completion}.sh "$root/tmp/zelk"
install_inside "$packages/apt.log" "$(deb zelk-sss)"
inside zelk-sss --version
inside sh -c 'ls /usr/share/man/man1/zelk-sss*.1.gz /usr/share/bash-completion/completions/zelk-sss \
  /usr/share/doc/zelk-sss/copyright'
inside bash /tmp/zelk/use-command.sh zelk-sss /usr/share/doc/zelk-sss/examples/two-talkers.json
inside bash /tmp/zelk/completion.sh bash /usr/share/bash-completion/completions/zelk-sss zelk-sss
install_inside "$packages/apt.log" zsh fish
inside zsh -fc 'autoload -Uz compinit && compinit -u && [[ $_comps[zelk-sss] == _zelk-sss ]]'
inside bash /tmp/zelk/completion.sh zsh /usr/share/zsh/vendor-completions/_zelk-sss zelk-sss
inside bash /tmp/zelk/completion.sh fish /usr/share/fish/vendor_completions.d/zelk-sss.fish zelk-sss

say "installing the development files and building against them"
cp -r tests/install/consumer tests/install/consumer.sh "$root/tmp/zelk"
install_inside "$packages/apt.log" "$(deb libzelk-sss-dev)" g++ cmake ninja-build pkg-config
version=$(inside dpkg-query -W -f '${Version}' zelk-sss)
inside bash /tmp/zelk/consumer.sh cmake /usr "lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)" "$version"

say "removing them"
inside DEBIAN_FRONTEND=noninteractive apt-get purge -y -qq zelk-sss >>"$packages/apt.log" 2>&1
left=$(inside find /usr /etc /var/lib -name '*zelk*' -not -path '/var/lib/dpkg/*' -not -path '/var/lib/apt/*')
[ -z "$left" ] || { say "left behind: $left"; exit 1; }
say "all is well"
