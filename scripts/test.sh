#!/usr/bin/env bash
# Installs what is missing, builds the release preset and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
# The Python package is built for, and tested in, an environment of its own.
if environment=$(bash scripts/python-env.sh); then
  python=(-DZELK_BUILD_PYTHON=ON "-DPython_EXECUTABLE=$environment/bin/python")
else
  echo "test.sh: without the Python package, as its environment cannot be made (see above)" >&2
  python=(-DZELK_BUILD_PYTHON=OFF)
fi
cmake --preset release "${python[@]}"
cmake --build --preset release
ctest --preset release
