#!/usr/bin/env bash
# Measures the engine and the nodes and prints the result as Markdown: times of one run (minimum of
# the repetitions, processor time, one thread) and their ratios to LAPACK and to plain loops.
#   scripts/bench.sh [REPETITIONS]      7 by default, about 3 minutes
set -euo pipefail
cd "$(dirname "$0")/.."

repetitions=${1:-7}
bash scripts/deps.sh --bench
cmake --preset release >/dev/null
cmake --build --preset release --target zelk-bench zelk-bench-nodes >/dev/null

# OpenBLAS would start threads and follow these settings of its kernels.
unset OPENBLAS_CORETYPE OPENBLAS_L2_SIZE
export OPENBLAS_NUM_THREADS=1

# name,minimum in µs; the repetitions of all benchmarks are interleaved, so that ratios compare
# moments that are close together.
times() {
  "build/release/bin/$1" --benchmark_min_time=0.05 --benchmark_repetitions="$repetitions" \
    --benchmark_enable_random_interleaving=true --benchmark_format=csv 2>/dev/null |
    awk -F, '/^"/ && !/_(mean|median|stddev|cv)"/ {
      gsub(/"/, "", $1)
      if (!($1 in least) || $4 + 0 < least[$1]) least[$1] = $4 + 0
    } END { for (name in least) print name "," least[name] }'
}

processor=$(awk -F': ' '/^model name/ {print $2; exit}' /proc/cpuinfo)
echo "Processor: $processor, $(nproc) cores; $(g++ --version | head -1); processor time in µs, one thread."
{
  times zelk-bench
  times zelk-bench-nodes
} | awk -F, -f scripts/bench.awk
