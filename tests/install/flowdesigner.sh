#!/usr/bin/env bash
# Builds and installs for an installed FlowDesigner. The bundled host stands in for it, under a prefix
# of its own and without the two headers that FlowDesigner lacks. FOLDER is kept, for the next build is
# quicker then.
#   flowdesigner.sh CMAKE SOURCE LIBFLOW VERSION FOLDER
set -euo pipefail
cmake=$1 source=$2 libflow=$3 version=$4 folder=$5
mkdir -p "$folder/fd/include/flowdesigner" "$folder/fd/lib"
cd "$folder"
rm -rf prefix
cp -pu "$source"/host/*.h fd/include/flowdesigner
cp -pu "$libflow" fd/lib

"$cmake" -S "$source" -B build -G Ninja -DCMAKE_BUILD_TYPE=Release -DZELK_BUILD_TESTS=OFF \
  -DZELK_FLOWDESIGNER_ROOT="$folder/fd" -DCMAKE_INSTALL_PREFIX=/usr >log 2>&1 || { cat log; exit 1; }
nice "$cmake" --build build -j 2 >log 2>&1 || { cat log; exit 1; }
"$cmake" --install build --prefix "$folder/prefix" >log

diff - <(cd prefix && find . -not -type d -printf '%P\n' | LC_ALL=C sort) <<END
lib/flowdesigner/toolbox/zelk-sss/libzelk-sofa-writer.so
lib/flowdesigner/toolbox/zelk-sss/libzelk-sss.so.${version%%.*}
lib/flowdesigner/toolbox/zelk-sss/libzelk-sss.so.$version
lib/flowdesigner/toolbox/zelk-sss/libzelkfileio.so
lib/flowdesigner/toolbox/zelk-sss/zelk-audio.def
lib/flowdesigner/toolbox/zelk-sss/zelk-audio.tlb
lib/flowdesigner/toolbox/zelk-sss/zelk-sofa-reader
lib/flowdesigner/toolbox/zelk-sss/zelk-sss.def
lib/flowdesigner/toolbox/zelk-sss/zelk-sss.tlb
share/doc/zelk-sss/copyright
END

"${CXX:-c++}" -std=c++20 "$source/tests/install/host.cc" -Ifd/include/flowdesigner \
  -I"$source/host/family" -Lfd/lib -lflow -Wl,-rpath,"$folder/fd/lib" -o host
./host prefix/lib/flowdesigner/toolbox/zelk-sss/zelk-{sss,audio}.tlb
