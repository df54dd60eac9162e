#!/usr/bin/env bash
# Puts one-line faults into a copy of the sources, one at a time, and says which tests notice (mutation testing;
# DeMillo, Lipton & Sayward 1978). The faults are those of universalmutator (operators, constants, dropped
# statements, …). Slow: a build and the tests that the change reaches for each; runs under nice.
#   scripts/faults.sh [FOLDER] [COUNT] [SEED]    COUNT (20) of FOLDER's faults; by default of all folders
# Prints caught and missed faults by folder and, for every test file, how many it alone caught. The list of all
# with what became of them is in build/faults/list.tsv.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
environment=$(bash scripts/python-env.sh faults)
tests=$(bash scripts/python-env.sh test)
copy=build/faults/copy
rm -rf "$copy"
mkdir -p "$copy"
git ls-files -z --cached --others --exclude-standard | xargs -0 cp --parents -t "$copy"
# Optimised little: most of the time goes into building.
cmake -S "$copy" -B build/faults/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DZELK_BUILD_TESTS=ON \
  -DCMAKE_CXX_FLAGS_RELEASE="-O1 -DNDEBUG" -DZELK_BUILD_PYTHON=ON "-DPython_EXECUTABLE=$tests/bin/python" >/dev/null
nice cmake --build build/faults/release >/dev/null
nice "$environment/bin/python" scripts/faults.py "$environment/bin/mutate" "$copy" build/faults/release \
  "${1:-}" "${2:-20}" "${3:-1}"
