#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds and runs the benchmarks and prints a Markdown table of ratios for each program: bench/run.sh [NAME-PATTERN]
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build/bench -G Ninja -DKEL_NN_BENCH=ON >/dev/null
programs="kelnn_bench kelnn_front_door_bench"
cmake --build build/bench --target $programs >/dev/null
for program in $programs; do
  build/bench/bench/$program --benchmark_list_tests --benchmark_filter="${1:-.}" 2>/dev/null | grep -q . || continue
  # Contenders run in turns in random order, so that a change of the machine's speed meets them alike.
  build/bench/bench/$program --benchmark_filter="${1:-.}" --benchmark_repetitions=9 --benchmark_min_time=0.05 \
    --benchmark_enable_random_interleaving=true --benchmark_format=json 2>/dev/null |
    /usr/bin/python3 bench/table.py
done
