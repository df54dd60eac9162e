#!/usr/bin/env bash
# Writes the API reference of the engine's headers to build/api/html. A warning is an error: every
# public declaration has a comment.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh --docs
mkdir -p build/api
version=$(sed -nE 's/^project\(.* VERSION ([0-9.]+).*/\1/p' CMakeLists.txt)
{ cat docs/Doxyfile; printf '%s\n' "PROJECT_NUMBER = $version" "OUTPUT_DIRECTORY = build/api"; } | doxygen -
echo "API reference: $PWD/build/api/html/index.html"
