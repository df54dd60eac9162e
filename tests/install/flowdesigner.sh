#!/usr/bin/env bash
# Builds and installs for an installed FlowDesigner, or what stands in for it. FOLDER is kept, for the next
# build is quicker then.
#   flowdesigner.sh CMAKE SOURCE VERSION FOLDER
set -euo pipefail
cmake=$1 source=$2 version=$3 folder=$4
mkdir -p "$folder"
cd "$folder"
rm -rf prefix
bash "$source/tests/install/other-host.sh" "$source" "$folder/fd"

"$cmake" -S "$source" -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DZELK_BUILD_TESTS=OFF \
  -DZELK_FLOWDESIGNER_ROOT="$folder/fd" -DCMAKE_INSTALL_PREFIX=/usr >log 2>&1 || { cat log; exit 1; }
nice "$cmake" --build build -j 2 >log 2>&1 || { cat log; exit 1; }
"$cmake" --install build --prefix "$folder/prefix" >log

diff - <(cd prefix && find . -not -type d -printf '%P\n' | LC_ALL=C sort) <<END
lib/flowdesigner/toolbox/zelk-sss/libzelk-sss.so.${version%%.*}
lib/flowdesigner/toolbox/zelk-sss/libzelk-sss.so.$version
lib/flowdesigner/toolbox/zelk-sss/libzelkfileio.so
lib/flowdesigner/toolbox/zelk-sss/zelk-audio.def
lib/flowdesigner/toolbox/zelk-sss/zelk-audio.tlb
lib/flowdesigner/toolbox/zelk-sss/zelk-sss.def
lib/flowdesigner/toolbox/zelk-sss/zelk-sss.tlb
share/doc/zelk-sss/copyright
END
