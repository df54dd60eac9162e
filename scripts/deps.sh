#!/usr/bin/env bash
# Installs the Debian packages that libzelk-sss needs. This is the one list.
#   scripts/deps.sh              what building, testing and the demonstration need
#   scripts/deps.sh --bench      also what the benchmarks compare with
#   scripts/deps.sh --package    also what the Debian packages and their check need
#   scripts/deps.sh --docs       also what the API reference needs
#   scripts/deps.sh --fuzz       also what fuzzing needs
#   scripts/deps.sh --valgrind   also what scripts/valgrind.sh needs
#   scripts/deps.sh --all        all that, and what linting needs
# Quick when everything is there. Uses sudo when not root. Without apt it prints the list and goes on.
set -euo pipefail

packages=(
  # tools
  g++ cmake ninja-build pkg-config git ca-certificates clang-format-14
  # libraries
  libboost-dev libhwy-dev libnetcdf-dev libsndfile1-dev libkissfft-dev libsoxr-dev libpugixml-dev
  nlohmann-json3-dev libcli11-dev libfmt-dev librsvg2-dev
  # tests and benchmarks
  libgtest-dev libgmock-dev libbenchmark-dev
  # measured responses and real speech for the demonstration
  libmysofa1 pocketsphinx-testdata
)
yardsticks=(libopenblas-dev liblapacke-dev)
packaging=(dpkg-dev file lintian debootstrap)
docs=(doxygen)
fuzzing=(clang-14 libclang-rt-14-dev)
memory=(valgrind)
extra=(clang-tidy-14)

case "${1:-}" in
  --bench) packages+=("${yardsticks[@]}") ;;
  --package) packages+=("${packaging[@]}") ;;
  --docs) packages+=("${docs[@]}") ;;
  --valgrind) packages+=("${memory[@]}") ;;
  --fuzz) packages+=("${fuzzing[@]}") ;;
  --all) packages+=("${yardsticks[@]}" "${packaging[@]}" "${docs[@]}" "${fuzzing[@]}" "${memory[@]}" "${extra[@]}") ;;
esac

if ! command -v apt-get >/dev/null 2>&1; then
  echo "deps.sh: no apt-get here; please provide what these Debian packages provide:" >&2
  printf '  %s\n' "${packages[@]}" >&2
  exit 0
fi

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
  [ "$status" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=()
[ "$(id -u)" -eq 0 ] || sudo=(sudo)
echo "deps.sh: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
