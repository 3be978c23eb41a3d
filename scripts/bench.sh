#!/usr/bin/env bash
# Builds and runs the benchmarks and prints one Markdown table of ratios: scripts/bench.sh [NAME-PATTERN]
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build/bench -G Ninja -DKEL_NN_BENCH=ON >/dev/null
cmake --build build/bench --target kelnn_bench >/dev/null
# Contenders run in turns in random order, so that a change of the machine's speed meets them alike.
build/bench/bench/kelnn_bench --benchmark_filter="${1:-.}" --benchmark_repetitions=9 --benchmark_min_time=0.05 \
  --benchmark_enable_random_interleaving=true --benchmark_format=json 2>/dev/null |
  /usr/bin/python3 bench/table.py
