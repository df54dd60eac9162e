#!/usr/bin/env bash
# Installs what is missing, builds the release preset and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake --preset release
cmake --build --preset release
ctest --preset release
