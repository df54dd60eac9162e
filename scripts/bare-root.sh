# A minimal Debian 12 in a folder, and commands inside it. To be sourced, as root.

# make_bare_root ROOT LOG: debootstrap's smallest variant from the mirror of this machine's apt, unless
# ROOT holds a system already. False where that cannot be done; LOG says why.
make_bare_root() {
  local root=$1 log=$2 mirror
  [ ! -e "$root/etc/debian_version" ] || return 0
  # shellcheck disable=SC2016  # apt's own placeholders
  mirror=$(apt-get indextargets --format '$(REPO_URI) $(CODENAME) $(COMPONENT)' 'Created-By: Packages' |
    awk '$2 == "bookworm" && $3 == "main" {print $1; exit}')
  [ -n "$mirror" ] || { echo "apt's sources here hold no Debian 12 (bookworm main)" >"$log"; return 1; }
  mkdir -p "$root" && chmod 755 "$root"  # apt fetches as a user of its own
  debootstrap --variant=minbase bookworm "$root" "$mirror" >"$log" 2>&1
}

# enter_bare_root ROOT: makes ROOT ready for inside(): its apt reads the sources of this machine's. False
# where nothing can be mounted. leave_bare_root undoes the mounts, however far this came.
bare_mounts=()
enter_bare_root() {
  bare_root=$1
  rm -rf "$bare_root"/etc/apt/sources.list*
  cp -r /etc/apt/sources.list.d "$bare_root/etc/apt/"
  if [ -e /etc/apt/sources.list ]; then cp /etc/apt/sources.list "$bare_root/etc/apt/"; fi
  cp /etc/resolv.conf "$bare_root/etc/"
  bind_in_bare_root /proc /proc && bind_in_bare_root /dev /dev && bind_in_bare_root /dev/pts /dev/pts
}

# bind_in_bare_root FOLDER PLACE: FOLDER of this machine is PLACE inside.
bind_in_bare_root() {
  mkdir -p "$bare_root$2" && mount --bind "$1" "$bare_root$2" && bare_mounts=("$2" "${bare_mounts[@]}")
}

# inside [NAME=VALUE …] COMMAND [ARGUMENT …]: runs a command inside, with nothing of this environment.
inside() { chroot "$bare_root" env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin "$@" </dev/null; }

# install_inside LOG PACKAGE…: installs packages, names or files inside; the end of LOG if that fails.
install_inside() {
  local log=$1
  shift
  inside DEBIAN_FRONTEND=noninteractive sh -c 'apt-get update -qq && exec apt-get install -y -qq --reinstall \
    --no-install-recommends "$@"' sh "$@" >>"$log" 2>&1 || { tail "$log"; return 1; }
}

# leave_bare_root ROOT [remove]: never removes through a mount that would not go.
leave_bare_root() {
  local root=$1 place
  for place in "${bare_mounts[@]}"; do umount "$root$place" || return; done
  if [ "${2:-}" = remove ]; then rm -rf --one-file-system "$root"; fi
}
