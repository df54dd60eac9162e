#!/usr/bin/env bash
# Compares the Python package with numpy and scipy, pyroomacoustics and torchaudio (methods in speed and in how
# well they separate), and with the C++ separator (blocks, threads). Prints the tables of docs/speed.md.
#   scripts/bench-python.sh [RUNS]    4 by default, about 5 minutes; the first time 6 GB are installed
# The recordings are of the package pocketsphinx-testdata.
set -euo pipefail
cd "$(dirname "$0")/.."
runs=${1:-4}
bash scripts/deps.sh --demo
bash scripts/deps.sh --bench
if ! environment=$(bash scripts/python-env.sh bench); then
  echo "bench-python.sh: without torchaudio, as its environment cannot be made (see above)" >&2
  environment=$(bash scripts/python-env.sh test)
fi
cmake --preset release -DZELK_BUILD_PYTHON=ON "-DPython_EXECUTABLE=$environment/bin/python" >/dev/null
cmake --build --preset release --target zelksss-python zelk-bench-blocks zelk-sofa-reader zelk-sofa-writer >/dev/null

# One thread each.
export OPENBLAS_NUM_THREADS=1 OMP_NUM_THREADS=1 MKL_NUM_THREADS=1
export PYTHONPATH=$PWD/build/release/python PYTHONDONTWRITEBYTECODE=1
# Undisturbed by other work where that is allowed: a few seconds in all.
undisturbed=()
if chrt -f 10 true 2>/dev/null; then undisturbed=(chrt -f 10); fi
"${undisturbed[@]}" "$environment/bin/python" bench/python/blocks.py build/release/bin/zelk-bench-blocks 3
echo
"$environment/bin/python" bench/python/compare.py "$runs"
