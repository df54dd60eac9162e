#!/usr/bin/env bash
# Makes a stand-in for an installed FlowDesigner under FOLDER: the bundled host with that one's names (of
# its library and of its symbols), another layout of Node, and nothing but the headers it would have.
#   other-host.sh SOURCE FOLDER
set -euo pipefail
source=$1 folder=$2
mkdir -p "$folder/include/flowdesigner" "$folder/lib" "$folder/bin" "$folder/source"
cd "$folder"

# as_other FILE: the file as that host has it; one that is the same stays, for what depends on it.
as_other() {
  sed -e '/^inline namespace zelk {/d; /^}  \/\/ namespace zelk/d' \
    -e 's/^class Node : public Object {/&\n  virtual int ofTheOther() { return 0; }\n  long theOthers[16] = {};\n/' \
    -e 's/if (isOfAnotherHost(plugin))/if (false \&\& isOfAnotherHost(plugin))/' "$1" >changed
  cmp -s changed "$2" || mv changed "$2"
}
for file in "$source"/host/*.h; do as_other "$file" "include/flowdesigner/${file##*/}"; done
for file in "$source"/host/*.cc; do as_other "$file" "source/${file##*/}"; done
rm -f changed

compile() { nice "${CXX:-c++}" -std=c++20 -O1 -Iinclude/flowdesigner -I"$source/host/family" "$@"; }
if [ -n "$(find include source "$source/host/family" "$source/tests/install/batchflow.cc" -newer bin/batchflow 2>&1)" ]; then
  compile -shared -fPIC -Wl,-soname,libflow.so.0.10 source/*.cc -o lib/libflow.so.0.10 -lpugixml -lfmt
  ln -sf libflow.so.0.10 lib/libflow.so
  compile "$source/tests/install/batchflow.cc" -Llib -lflow -Wl,-rpath,"$folder/lib" -o bin/batchflow
fi
