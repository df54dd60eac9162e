#!/usr/bin/env bash
# Fuzzes the readers of untrusted input and the decompositions.
#   scripts/fuzz.sh [SECONDS_PER_TARGET] [TARGET...]   600 seconds of every target by default
#   scripts/fuzz.sh --short                            what CI runs: 5 seconds of every target
# Two targets run at a time. Inputs gather in build/fuzz/corpus/<target>; an input that crashes,
# hangs or breaks a law lands in build/fuzz/findings/<target>-* and makes the exit status 1. Past
# findings stand in fuzz/regressions/<target>/ and are tried first.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=600
[ "${1:-}" = --short ] && { seconds=5; shift; }
[[ "${1:-}" =~ ^[0-9]+$ ]] && { seconds=$1; shift; }
targets=("$@")
[ $# -gt 0 ] || mapfile -t targets < <(sed -n 's/^zelk_add_fuzzer(\([a-z]*\).*/\1/p' fuzz/CMakeLists.txt)

bash scripts/deps.sh --fuzz
cmake --preset asan >/dev/null
nice cmake --build --preset fuzz

bin=build/asan/bin
out=build/fuzz
mkdir -p $out/findings $out/logs
$bin/fuzz-seeds $out/corpus
cp examples/*.json $out/corpus/scene/
cp examples/*.n $out/corpus/network/

fuzz() { # TARGET: one run, whose log ends with the statistics
  local inputs=("$out/corpus/$1")
  [ -d "fuzz/regressions/$1" ] && inputs+=("fuzz/regressions/$1")
  mkdir -p "$out/corpus/$1"
  # netCDF keeps memory, which would be searched for leaks after every input: at the end is enough.
  local leaks=1
  [[ "$1" =~ ^(sofa|separation)$ ]] && leaks=0
  # The confined reader is stopped after the processor time that a file's size allows; database reads thrice.
  local timeout=10
  [ "$1" = database ] && timeout=60
  nice "$bin/fuzz-$1" -max_total_time="$seconds" -timeout=$timeout -rss_limit_mb=2048 \
    -max_len=65536 -detect_leaks=$leaks -close_fd_mask=3 -print_final_stats=1 -artifact_prefix="$out/findings/$1-" \
    "${inputs[@]}" >"$out/logs/$1" 2>&1
}

row() { # TARGET: its line of the table
  local log=$out/logs/$1 found=none
  stat() { sed -n "s/^stat::$1: *//p" "$log" | tail -1; }
  last() { grep -o "$1: [0-9]*" "$log" | tail -1 | cut -d' ' -f2; }
  [ -e "$out/logs/$1.ended" ] || found=$(sed -n 's/.*Test unit written to //p' "$log" | tail -1)
  printf '%-15s %11s %9s %7s %9s  %s\n' "$1" "$(stat number_of_executed_units)" \
    "$(stat average_exec_per_sec)" "$(last cov)" "$(last ft)" "${found:-see $log}"
}

export LSAN_OPTIONS="print_suppressions=0:suppressions=$PWD/cmake/leaks-of-libraries.txt"
# Files that targets write are in memory.
TMPDIR=$(mktemp -d -p /dev/shm zelk-fuzz-XXXXXX)
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT

rm -f $out/logs/*
for target in "${targets[@]}"; do
  while [ "$(jobs -rp | wc -l)" -ge 2 ]; do wait -n || true; done
  { fuzz "$target" && touch "$out/logs/$target.ended"; } &
done
wait || true

printf '%-15s %11s %9s %7s %9s  %s\n' target executions per-sec edges features finding
status=0
for target in "${targets[@]}"; do
  row "$target"
  [ -e "$out/logs/$target.ended" ] || status=1
done
exit $status
