#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Instructions that a call executes in the MIPS32r2 build, under emulation, beside the loops as one would first
# write them: bench/mips_costs.sh [NAME-PATTERN]. One Markdown table; the same figures in every run.
set -euo pipefail
cd "$(dirname "$0")/.."
[ -f build/mips-bench/build.ninja ] || cmake -S . -B build/mips-bench -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/mipsel-linux-gnu.cmake \
  -DKEL_NN_PC=OFF -DKEL_NN_BENCH=ON >/dev/null
cmake --build build/mips-bench --target mips_costs >/dev/null
program=build/mips-bench/bench/mips_costs
instructions() {  # CASE WHO TIMES
  bench/count_mips_instructions.sh "$program" "$@" 2>&1 >/dev/null | awk '/ instructions$/ { print $1; exit }'
}
echo "| case | instructions | plain | of plain |"
echo "| --- | ---: | ---: | ---: |"
qemu-mipsel -L "${QEMU_LD_PREFIX:-/usr/mipsel-linux-gnu}" "$program" | grep -E "${1:-.}" | while IFS= read -r name; do
  # The first three calls fill what later ones find filled.
  for who in kelnn plain; do
    printf '%s %s\n' "$(instructions "$name" $who 3)" "$(instructions "$name" $who 7)"
  done </dev/null | awk -v name="$name" '{ cost[NR] = ($2 - $1) / 4 }
    END { printf "| %s | %d | %d | %.2f |\n", name, cost[1], cost[2], cost[1] / cost[2] }'
done
