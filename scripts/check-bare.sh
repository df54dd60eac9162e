#!/usr/bin/env bash
# What a newcomer meets: clones this repository's last commit into a fresh, minimal Debian 12 in a chroot,
# runs scripts/demo.sh and scripts/test.sh there with nothing of this environment, and says how they ended
# and how long they took. Needs root, debootstrap and the mirror of this machine's apt.
#   scripts/check-bare.sh [--ccache] [--demo] [ROOT]    by default a temporary folder; a ROOT that exists is
#                                                       used again, with the packages of earlier runs, and kept
#   --ccache    install ccache there and let it use this machine's cache; it goes by the locale, too
#   --demo      only the demonstration
# Whole logs are in build/bare. Exit status 3 where no such Debian can be made, 1 if a command fails.
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/bare-root.sh
source scripts/bare-root.sh
say() { echo "check-bare.sh: $*"; }
cannot() { say "$*" >&2; exit 3; }

cache= root= scripts=(demo test)
for argument in "$@"; do
  case $argument in
    --ccache) cache=yes ;;
    --demo) scripts=(demo) ;;
    *) root=$argument ;;
  esac
done
[ "$(id -u)" -eq 0 ] || cannot "needs root, for chroot"
command -v debootstrap >/dev/null || cannot "needs debootstrap (scripts/deps.sh --bare)"
mkdir -p build/bare
logs=$(realpath build/bare)
rm -f "$logs"/*.log

keep=
if [ -z "$root" ]; then keep=remove root=$(mktemp -d); fi
trap 'leave_bare_root "$root" $keep' EXIT
make_bare_root "$root" "$logs/debootstrap.log" || { tail "$logs/debootstrap.log"; cannot "no Debian could be made"; }
root=$(realpath "$root")
enter_bare_root "$root" || cannot "nothing can be mounted here"
say "Debian $(cat "$root/etc/debian_version") in $root after $SECONDS s"

environment=()
if [ -n "$cache" ]; then
  install_inside "$logs/ccache.log" ccache
  mkdir -p "$(ccache --get-config cache_dir)"
  bind_in_bare_root "$(ccache --get-config cache_dir)" /var/cache/ccache
  # This machine's settings, but for what names its folders.
  ccache --show-config | sed -E 's/^\([^)]*\) //; /^(cache_dir|temporary_dir|debug_dir|log_file|stats_log) /d; / = $/d' \
    >"$root/etc/ccache.conf"
  mapfile -t environment < <(env | grep -E '^(LANG|LC_[A-Z]+)=' || true)
  environment+=(CCACHE_DIR=/var/cache/ccache CCACHE_CONFIGPATH=/etc/ccache.conf)
fi

# The path is that of this repository, since a compile cache goes by paths.
repository=$PWD
rm -rf "${root:?}$repository"
mkdir -p "$root$repository"
git clone --quiet --depth 1 "file://$repository" "$root$repository"

failures=0
for script in "${scripts[@]}"; do
  started=$SECONDS status=0
  inside "${environment[@]}" bash -c "cd '$repository' && bash scripts/$script.sh" >"$logs/$script.log" 2>&1 || status=$?
  say "bash scripts/$script.sh: exit status $status after $((SECONDS - started)) s; it ended with ($logs/$script.log):"
  tail -n 20 "$logs/$script.log" | sed 's/^/  /'
  [ "$status" -eq 0 ] || failures=$((failures + 1))
done
[ "$failures" -eq 0 ]
