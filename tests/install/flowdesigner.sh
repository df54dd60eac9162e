#!/usr/bin/env bash
# Builds and installs for an installed FlowDesigner, or what stands in for it, and separates there. FOLDER is
# kept, for the next build is quicker then.
#   flowdesigner.sh SOURCE BUILD VERSION FOLDER
set -euo pipefail
source=$1 build=$2 version=$3 folder=$4
mkdir -p "$folder"
cd "$folder"
rm -rf fd/share fd/lib/flowdesigner fd/lib/zelk-sss wrong
bash "$source/tests/install/other-host.sh" "$source" "$folder/fd"

cmake -S "$source" -B wrong -G Ninja -DZELK_FLOWDESIGNER_ROOT="$folder/none" >log 2>&1 && exit 1
grep -qF "$folder/none/include/flowdesigner/BufferedNode.h: " log || { cat log; exit 1; }

env -u FLOWDESIGNER_HOME PATH="$folder/fd/bin:$PATH" ZELK_BUILD="$build" CMAKE_BUILD_PARALLEL_LEVEL=2 \
  nice bash "$source/scripts/flowdesigner.sh"
diff - <(cd fd/lib/flowdesigner/toolbox && find . -not -type d -printf '%P\n' | LC_ALL=C sort) <<END
zelk-sss/libzelk-sofa-writer.so
zelk-sss/libzelk-sss.so.${version%%.*}
zelk-sss/libzelk-sss.so.$version
zelk-sss/libzelkfileio.so
zelk-sss/zelk-audio.def
zelk-sss/zelk-audio.tlb
zelk-sss/zelk-sofa-reader
zelk-sss/zelk-sss.def
zelk-sss/zelk-sss.tlb
END
