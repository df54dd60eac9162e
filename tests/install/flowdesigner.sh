#!/usr/bin/env bash
# Builds and installs for an installed FlowDesigner, and separates there. The bundled host stands in for it,
# under a prefix of its own and without the two headers that FlowDesigner lacks. FOLDER is kept, for the
# next build is quicker then.
#   flowdesigner.sh SOURCE BUILD LIBFLOW VERSION FOLDER
set -euo pipefail
source=$1 build=$2 libflow=$3 version=$4 folder=$5
mkdir -p "$folder/fd/bin" "$folder/fd/include/flowdesigner" "$folder/fd/lib"
cd "$folder"
rm -rf fd/share fd/lib/flowdesigner fd/lib/zelk-sss wrong
cp -pu "$source"/host/*.h fd/include/flowdesigner
cp -pu "$libflow" fd/lib
[ -e fd/lib/libflow.so ] || ln -s "$(basename "$libflow")" fd/lib/libflow.so
"${CXX:-c++}" -std=c++20 "$source/tests/install/batchflow.cc" -Ifd/include/flowdesigner \
  -I"$source/host/family" -Lfd/lib -lflow -Wl,-rpath,"$folder/fd/lib" -o fd/bin/batchflow

cmake -S "$source" -B wrong -G Ninja -DZELK_FLOWDESIGNER_ROOT="$folder/none" >log 2>&1 && exit 1
grep -qF "$folder/none/include/flowdesigner/BufferedNode.h: " log || { cat log; exit 1; }

env -u FLOWDESIGNER_HOME PATH="$folder/fd/bin:$PATH" ZELK_BUILD="$build" CMAKE_BUILD_PARALLEL_LEVEL=2 \
  nice bash "$source/scripts/flowdesigner.sh"
diff - <(cd fd/lib/flowdesigner/toolbox && find . -not -type d -printf '%P\n' | LC_ALL=C sort) <<END
zelk-sss/libzelk-sss.so.${version%%.*}
zelk-sss/libzelk-sss.so.$version
zelk-sss/libzelkfileio.so
zelk-sss/zelk-audio.def
zelk-sss/zelk-audio.tlb
zelk-sss/zelk-sss.def
zelk-sss/zelk-sss.tlb
END
