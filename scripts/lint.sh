#!/usr/bin/env bash
# clang-tidy 14 with the checks of .clang-tidy; what it finds is an error. Needs the release build's folder.
#   scripts/lint.sh               all sources of the project, with the headers they include; long
#   scripts/lint.sh FILE.cc …     these sources
#   scripts/lint.sh --headers     all headers and what stands in them, in one go
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh --lint
ours() { git ls-files --cached --others --exclude-standard "$1" | grep -vE '^(tests|bench|examples|fuzz)/'; }

if [ "${1:-}" = --headers ]; then
  mkdir -p build/lint
  ours '*.h' | sed 's/.*/#include "&"/' >build/lint/headers.cc
  # Every folder of headers that any source is compiled with.
  mapfile -t folders < <(grep -oE -e '-(I|isystem )[^ "]+' build/release/compile_commands.json |
    sed -E 's/^-(I|isystem )//' | sort -u)
  clang-tidy-14 --quiet build/lint/headers.cc -- -std=c++20 "${folders[@]/#/-I}"
  exit
fi
files=("$@")
[ $# -gt 0 ] || mapfile -t files < <(ours '*.cc')
printf '%s\0' "${files[@]}" | xargs -0 -n 4 -P "$(nproc)" clang-tidy-14 -p build/release --quiet
