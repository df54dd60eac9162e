#!/usr/bin/env bash
# Brings the separation into an installed FlowDesigner: installs the packages that are missing, builds the
# plug-ins for that host and the command, installs both under its prefix, and proves that the plug-ins work
# there: a small mixture, separated by its batchflow, must give the files that the command gives.
#   scripts/flowdesigner.sh [PREFIX]    by default FLOWDESIGNER_HOME, else the folder above the batchflow
#                                       that stands in the PATH
# Builds in ZELK_BUILD, by default build/release, and beside it in ZELK_BUILD-flowdesigner. Uses sudo where the prefix is not writable.
set -euo pipefail
repository=$(cd "$(dirname "$0")/.." && pwd)
build=$(realpath -m "${ZELK_BUILD:-$repository/build/release}")
# shellcheck source=scripts/counted-build.sh
source "$repository/scripts/counted-build.sh"
say() { echo "flowdesigner.sh: $*" >&2; }
fail() { say "$*"; exit 1; }

# ---- which host
host=${1:-${FLOWDESIGNER_HOME:-}}
if [ -z "$host" ] && found=$(command -v batchflow); then host=$(dirname "$(dirname "$(realpath "$found")")"); fi
[ -n "$host" ] || fail "no FlowDesigner found: no PREFIX given, FLOWDESIGNER_HOME not set, no batchflow in PATH"
[ -d "$host" ] || fail "$host: no such folder, expected the prefix of an installed FlowDesigner"
host=$(realpath "$host")
[ -x "$host/bin/batchflow" ] || fail "$host: expected the prefix of an installed FlowDesigner, with bin/batchflow"
say "FlowDesigner in $host"

# ---- build and install
bash "$repository/scripts/deps.sh" --build
log=$build/flowdesigner.log
mkdir -p "$build"
: >"$log"
logged() { "$@" >>"$log" 2>&1 || { tail -n 30 "$log" >&2; fail "failed: $*; see $log"; }; }
cd "$repository"
say "building the plug-ins and the command; the log is $log"
logged cmake --preset command -B "$build-flowdesigner" -DZELK_FLOWDESIGNER_ROOT="$host"
[ -e "$build/build.ninja" ] || logged cmake --preset command -B "$build"
for folder in "$build-flowdesigner" "$build"; do
  counted_build "$log" "$folder" || { tail -n 30 "$log" >&2; fail "the build failed, see $log"; }
done

sudo=()
if [ ! -w "$host" ]; then
  command -v sudo >/dev/null || fail "$host is not writable, and there is no sudo: run this as its owner"
  sudo=(sudo)
fi
# The command has a host of its own and shares nothing with this one but the prefix.
logged "${sudo[@]}" cmake --install "$build-flowdesigner"
logged "${sudo[@]}" cmake --install "$build" --prefix "$host" --component runtime
# Where the command looks for its own plug-ins that variable would lead to this host's.
command=(env -u FLOWDESIGNER_HOME "$host/bin/zelk-sss")
network=$host/share/doc/zelk-sss/examples/separate.n

# ---- proof
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
scene=$host/share/doc/zelk-sss/examples/two-talkers.json
for i in 0 1; do head -c 64000 /dev/urandom >"dry$i.raw"; done
logged "${command[@]}" tfdb geometry array.sofa --circular 4 0.05 --distances 1.4
logged "${command[@]}" mix "$scene" --tf array.sofa --dry dry0.raw dry1.raw --raw-rate 16000 --gain -12 -12 -o mix.wav
logged "${command[@]}" separate mix.wav --tf array.sofa --sources "$scene" --method NULL -o by-command

# The host looks for plug-ins where it was configured for, which may be another place than where it is.
flow=(env FLOWDESIGNER_HOME="$host")
if ldd "$host/bin/batchflow" 2>&1 | grep -q 'not found'; then
  flow+=(LD_LIBRARY_PATH="$host/lib${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}")
fi
flow+=("$host/bin/batchflow" "$network")
logged "${flow[@]}" mix.wav "$scene" array.sofa NULL by-batchflow
diff -r by-command by-batchflow >&2 || fail "batchflow separated otherwise than the command"

status=0
"${flow[@]}" mix.wav "$scene" nosuch.sofa NULL missing >missing.log 2>&1 || status=$?
[ "$status" -eq 1 ] && grep -qF nosuch.sofa missing.log ||
  { cat missing.log >&2; fail "without a database batchflow ended with status $status, expected 1 and the file's name"; }

say "the plug-ins work in $host: batchflow gives the command's result byte for byte. Next, with your own files:"
echo "$(printf '%q ' "${flow[@]:1}")recording.wav scene.json array.sofa NULL separated"
