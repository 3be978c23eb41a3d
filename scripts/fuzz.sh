#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Fuzzes the ways in, one after the other, from the inputs in fuzz/corpus/:
#
#   scripts/fuzz.sh [TARGET [SECONDS]]     boxes, kit, resize, ...; default: all, 60 seconds each
#   scripts/fuzz.sh --32 [TARGET [SECONDS]]     as code of 32 bits, where sizes overflow first
#   scripts/fuzz.sh --merge [TARGET]       leaves in the corpus the fewest inputs that reach everything
#
# Ends with a table of executions and of what was reached. An input that breaks a promise ends it: it lies in build/fuzz/, and
# joins the corpus when it is mended.
set -euo pipefail
cd "$(dirname "$0")/.."
preset=fuzz merge=
case "${1:-}" in
  --32) preset=fuzz32; shift ;;
  --merge) merge=1; shift ;;
  -*) sed -n '3,/^set/{/^set/!s/^# \{0,1\}//p}' "$0"; [ "$1" = --help ] || exit 2; exit ;;
esac
target=${1:-} seconds=${2:-60}
# What was freed long ago, and how each block came to be, is not worth half of all executions. What is said of a fault stays.
export ASAN_OPTIONS=${ASAN_OPTIONS:-malloc_context_size=2:quarantine_size_mb=2}
[ ! -w /dev/shm ] || export TMPDIR=/dev/shm
[ -f build/$preset/build.ninja ] || cmake --preset $preset >/dev/null
if [ -n "$target" ]; then
  programs=(fuzz_"$target")
else
  mapfile -t programs < <(ninja -C build/$preset -t targets all | sed -n 's#^fuzz/\(fuzz_[a-z_]*\): .*EXECUTABLE.*#\1#p')
fi
ninja -C build/$preset "${programs[@]}" >build/$preset/build.log || { tail -n 30 build/$preset/build.log >&2; exit 1; }

[ -n "$merge" ] || printf '| %s | %s | %s | %s |\n' target executions edges inputs --- ---: ---: ---:
for program in "${programs[@]}"; do
  corpus=fuzz/corpus/${program#fuzz_} found=build/$preset/corpus/${program#fuzz_} log=build/$preset/$program.log
  mkdir -p "$corpus" "$found"
  if [ -n "$merge" ]; then
    mkdir -p build/merged
    rm -rf "build/merged/$program" && mkdir "build/merged/$program"
    build/$preset/fuzz/"$program" -merge=1 -use_counters=0 "build/merged/$program" "$corpus" "$found" >"$log" 2>&1
    rm -rf "$corpus" && mv "build/merged/$program" "$corpus"
    echo "$corpus: $(find "$corpus" -type f | wc -l) inputs, $(du -sb "$corpus" | cut -f1) bytes"
    continue
  fi
  build/$preset/fuzz/"$program" -max_total_time="$seconds" -timeout=60 -rss_limit_mb=4096 -print_final_stats=1 \
    -artifact_prefix="build/$preset/$program-" "$found" "$corpus" >"$log" 2>&1 </dev/null || {
    grep -vE '^#[0-9]+\s+(NEW|REDUCE|pulse|RELOAD)' "$log" | tail -n 60 >&2
    exit 1
  }
  printf '| %s | %s | %s | %s |\n' "${program#fuzz_}" "$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")" \
    "$(grep -oE 'cov: [0-9]+' "$log" | tail -n 1 | cut -d' ' -f2)" "$(grep -oE 'corp: [0-9]+' "$log" | tail -n 1 | cut -d' ' -f2)"
done
