#!/usr/bin/env bash
# Builds a project of its own against the installed package, by CMake and by pkg-config: the installed
# examples. One separates a 1 and a 2i, with every installed header; the other two voices.
#   consumer.sh CMAKE PREFIX LIBDIR VERSION
set -euo pipefail
cmake=$1 prefix=$2 libdir=$3 version=$4
project=$(cd "$(dirname "$0")/consumer" && pwd)
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
cp "$project/CMakeLists.txt" .
(cd "$prefix/include/zelk-sss" && printf '#include "%s"\n' */*.h) >main.cc
cat "$prefix/share/doc/zelk-sss/examples/engine.cc" >>main.cc
cp "$prefix/share/doc/zelk-sss/examples/separator.cc" .

configure() { "$cmake" -S . -B "$1" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" -DWANTED_VERSION="$2" >log 2>&1; }
separates() {
  "$1" | tr '\n' ' ' | tee log |
    grep -qE '\[ (1\.000000[+-]0\.000000i ){3} (-?0\.000000\+2\.000000i ){3} \]' || { cat log; exit 1; }
}

separatesVoices() {
  [ "$("$1" | tee log | grep -cE '^source [78]: 1[0-9]\.[0-9] dB')" = 2 ] || { cat log; exit 1; }
}

configure cmake 2.1 || { cat log; exit 1; }
"$cmake" --build cmake >log 2>&1 || { cat log; exit 1; }
separates cmake/with-engine
separates cmake/with-plugin
separatesVoices cmake/with-separation
for program in engine separation; do
  readelf -d cmake/with-$program | grep -q zelk-sss && { echo "with-$program needs a shared library"; exit 1; }
done
readelf -d cmake/with-plugin | grep -q 'NEEDED.*libzelk-sss' || { echo "with-plugin has its own engine"; exit 1; }

# Later versions of the same major number are asked for in vain, as are other major numbers.
major=${version%%.*}
for wanted in "$major.999" "$((major + 1)).0" "$((major - 1)).0"; do
  configure refused "$wanted" && { echo "version $version is taken for $wanted"; exit 1; }
  grep -q "compatible" log || { cat log; exit 1; }
done

if command -v pkg-config >/dev/null; then
  export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
  [ "$(pkg-config --modversion zelk-sss)" = "$version" ]
  # shellcheck disable=SC2046  # flags are words
  "${CXX:-c++}" -std=c++20 main.cc $(pkg-config --cflags --libs zelk-sss) -o by-pkg-config
  separates ./by-pkg-config
  # shellcheck disable=SC2046
  "${CXX:-c++}" -std=c++20 separator.cc $(pkg-config --cflags --libs zelk-sss-separation) -o separation
  separatesVoices ./separation
fi
