#!/usr/bin/env bash
# Formats every C++ file in place; with --check it only reports and fails on a difference.
set -euo pipefail
cd "$(dirname "$0")/.."
mode=(-i)
[ "${1:-}" = --check ] && mode=(--dry-run -Werror)
git ls-files --cached --others --exclude-standard '*.h' '*.cc' | xargs -r clang-format-14 "${mode[@]}"
