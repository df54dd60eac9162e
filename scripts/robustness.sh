#!/usr/bin/env bash
# What bad input does to each method: prints the table of docs/methods.md, "What bad input does".
# Takes two minutes.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake --preset release >/dev/null
cmake --build --preset release --target zelk-robustness >/dev/null
build/release/bin/zelk-robustness
