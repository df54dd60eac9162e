#!/usr/bin/env bash
# clang-tidy 14 over the project's sources, or over the files given. Needs the release build.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh --all
files=("$@")
[ $# -gt 0 ] || mapfile -t files < <(git ls-files '*.cc' | grep -vE '^(tests|bench|examples|fuzz)/')
printf '%s\0' "${files[@]}" | xargs -0 -n 4 -P "$(nproc)" clang-tidy-14 -p build/release --quiet
