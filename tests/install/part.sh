#!/usr/bin/env bash
# The project as a part of another, by FetchContent (built, the quick way) and as a folder: it brings engine and
# separator and nothing else, neither options nor folders nor packages.
#   part.sh CMAKE SOURCE
set -euo pipefail
cmake=$1 source=$2
project=$(cd "$(dirname "$0")/part" && pwd)
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
fail() { echo "$*"; cat log; exit 1; }

launcher=$(command -v ccache || true)
for fetch in ON OFF; do
  "$cmake" -S "$project" -B $fetch -G Ninja -DZELK_FETCH=$fetch -DZELK_SOURCE="$source" \
    -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS="-g0 -DHWY_COMPILE_ONLY_STATIC" \
    -DCMAKE_CXX_COMPILER_LAUNCHER="$launcher" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON >log 2>&1 || fail "not configured with ZELK_FETCH=$fetch"
  found=$(sed -nE 's/^([a-zA-Z0-9_]+)_DIR:PATH=.*/\1/p' $fetch/CMakeCache.txt | grep -v FETCHCONTENT | sort | tr "\n" " ")
  [ "$found" = "TBB fmt kissfft " ] || fail "packages that engine and separator do not need: $found"
  "$cmake" --build $fetch --target help >log
  grep -qE 'zelk-sss-separation' log || fail "no separator"
  if grep -E 'test|example|bench|sofa|zelk-sss-cli|flow' log; then fail "parts that nobody asked for"; fi
  commands=$(grep -F separator.cc $fetch/compile_commands.json)
  if grep -E -e '-W|-ffp' <<<"$commands"; then fail "options of ours in the project's own target"; fi
done

nice "$cmake" --build ON --parallel 2 >log 2>&1 || fail "not built"
ON/with-separation >log
[ "$(grep -cE '^source [78]: 1[0-9]\.[0-9] dB' log)" = 2 ] || fail "not separated"
"$cmake" --install ON --prefix "$folder/installed" >log
[ ! -e installed ] || fail "installed: $(find installed)"
