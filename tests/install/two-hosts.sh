#!/usr/bin/env bash
# The command and another host on one machine, with everything of the one in the way of the other.
#   two-hosts.sh PREFIX LIBDIR FOLDER    FOLDER is that of flowdesigner.sh
set -euo pipefail
prefix=$1 libdir=$2 other=$3
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
command=$prefix/bin/zelk-sss examples=$prefix/share/doc/zelk-sss/examples
ours=$prefix/$libdir/zelk-sss/toolbox theirs=$other/fd/lib/flowdesigner/toolbox
# expect FILE TEXT: a file holds a text.
expect() {
  grep -qF -e "$2" "$1" && return
  echo "expected \"$2\", found:"
  cat "$1"
  exit 1
}

for i in 0 1; do head -c 64000 /dev/urandom >"dry$i.raw"; done
"$command" tfdb geometry array.sofa --circular 4 0.05 --distances 1.4 >log
"$command" mix "$examples/two-talkers.json" --tf array.sofa --dry dry0.raw dry1.raw --raw-rate 16000 \
  --gain -12 -12 -o mix.wav >log
arguments=(mix.wav "$examples/two-talkers.json" array.sofa NULL)
"$command" run "$examples/separate.n" "${arguments[@]}" alone >log 2>&1
[ "$(cat log)" = "<Bool true >" ] || expect log "<Bool true > and no more"

# The other's library, folders and plug-ins, and a library that only looks like one of ours.
cp "$other/fd/lib/libflow.so" libzelkfileio.so
LD_LIBRARY_PATH=$other/fd/lib:$folder FLOWDESIGNER_HOME=$other/fd FLOWDESIGNER_PATH=$theirs \
  "$command" run "$examples/separate.n" "${arguments[@]}" beside >log 2>&1 || expect log "status 0"
for plugin in zelk-sss zelk-audio; do
  expect log "zelk-sss: $theirs/zelk-sss/$plugin.tlb: cannot be loaded: it was built for an installed \
FlowDesigner, expected a plug-in built for zelk-sss"
done
diff -r alone beside

# The other host, with our plug-ins before its own.
export FLOWDESIGNER_PATH=$ours:$theirs
"$other/fd/bin/batchflow" "$examples/separate.n" "${arguments[@]}" there >log 2>&1 || expect log "status 0"
for plugin in zelk-sss zelk-audio; do
  expect log "$ours/$plugin.tlb: libzelk-flow.so: cannot open shared object file"
done
diff -r alone there

# What a node's constructor throws is reported there.
status=0
"$other/fd/bin/batchflow" "$examples/separate.n" "${arguments[@]/array.sofa/no.sofa}" nothing >log 2>&1 || status=$?
[ "$status" = 1 ] || expect log "status 1"
expect log "Failed to open TF data file <no.sofa>."
