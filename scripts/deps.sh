#!/usr/bin/env bash
# Installs the Debian packages that libzelk-sss needs. This is the one list.
#   scripts/deps.sh              what building, testing and the demonstration need
#   scripts/deps.sh --build      only what building the command and the plug-ins needs
#   scripts/deps.sh --demo       that and what the demonstration needs
#   scripts/deps.sh --bench      as without an option, and what the benchmarks compare with
#   scripts/deps.sh --package    also what the Debian packages and their check need
#   scripts/deps.sh --bare       also what scripts/check-bare.sh needs
#   scripts/deps.sh --docs       also what the API reference needs
#   scripts/deps.sh --fuzz       also what fuzzing needs
#   scripts/deps.sh --valgrind   also what scripts/valgrind.sh needs
#   scripts/deps.sh --browser    also what the test of the report page needs, which is left out without it
#   scripts/deps.sh --shells     also zsh and fish, in which completion is tested; left out without them
#   scripts/deps.sh --lint       also what linting needs
#   scripts/deps.sh --all        all that
# Quick when everything is there. Uses sudo when not root. Without apt it prints the list and goes on.
set -euo pipefail

building=(
  # tools
  g++ cmake ninja-build pkg-config
  # libraries
  libboost-dev libhwy-dev libnetcdf-dev libseccomp-dev libsndfile1-dev libkissfft-dev libsoxr-dev
  libpugixml-dev nlohmann-json3-dev libcli11-dev libfmt-dev librsvg2-dev libeigen3-dev
  libjack-jackd2-dev libtbb-dev
)
# measured responses and real speech
demonstration=(libmysofa1 pocketsphinx-testdata)
development=(git ca-certificates clang-format-14 libgtest-dev libgmock-dev libbenchmark-dev jackd2
  python3-dev python3-venv python3-pygments)
baselines=(libopenblas-dev liblapacke-dev)
packaging=(dpkg-dev file lintian debootstrap)
bare=(debootstrap ccache)
docs=(doxygen)
fuzzing=(clang-14 libclang-rt-14-dev)
memory=(valgrind)
browser=(chromium)
shells=(zsh fish)
linting=(clang-tidy-14)

packages=("${building[@]}" "${demonstration[@]}" "${development[@]}")
case "${1:-}" in
  "") ;;
  --build) packages=("${building[@]}") ;;
  --demo) packages=("${building[@]}" "${demonstration[@]}") ;;
  --bench) packages+=("${baselines[@]}") ;;
  --package) packages+=("${packaging[@]}") ;;
  --bare) packages+=("${bare[@]}") ;;
  --docs) packages+=("${docs[@]}") ;;
  --valgrind) packages+=("${memory[@]}") ;;
  --browser) packages+=("${browser[@]}") ;;
  --shells) packages+=("${shells[@]}") ;;
  --lint) packages+=("${linting[@]}") ;;
  --fuzz) packages+=("${fuzzing[@]}") ;;
  --all)
    packages+=("${baselines[@]}" "${packaging[@]}" "${bare[@]}" "${docs[@]}" "${fuzzing[@]}" "${memory[@]}"
      "${linting[@]}" "${browser[@]}" "${shells[@]}")
    ;;
  *) echo "deps.sh: there is no option $1; its head lists them" >&2; exit 1 ;;
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
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || {
    echo "deps.sh: packages are missing, and without sudo only root can install them. As root, run" >&2
    echo "  apt-get update && apt-get install --no-install-recommends ${missing[*]}" >&2
    echo "and then this again." >&2
    exit 1
  }
  sudo=(sudo)
fi
echo "deps.sh: installing ${missing[*]}"
# sudo would drop a variable of this shell's.
apt=("${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get)
"${apt[@]}" update -qq
"${apt[@]}" install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
