#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs what the tests need, builds everything in four ways and runs the tests in each:
#   gcc       the library, the command line and all tests, warnings as errors; the unit tests also as a PC without AVX2
#   sanitize  the same built by Clang with AddressSanitizer and UndefinedBehaviorSanitizer
#   clang     the library and its unit tests, optimised by Clang
#   mips      the library and its unit tests as MIPS32r2 code, under emulation
#
# scripts/test.sh [CONFIGURATION...]   (default: all four)
# scripts/test.sh --quick              gcc without what takes long
# scripts/test.sh --unit               the unit tests alone, built by gcc; installs nothing
#
# Ends with the slowest cases and the number of cases that passed and failed.
set -euo pipefail
cd "$(dirname "$0")/.."
configurations=(gcc sanitize clang mips)
build_options=()
test_options=()
case "${1:-}" in
  --quick)
    configurations=(gcc)
    test_options=(--label-exclude '^long$')
    ;;
  --unit)
    configurations=(gcc)
    build_options=(--target kelnn_unit_tests)
    test_options=(--tests-regex '^kelnn_unit_tests\.')
    ;;
  -*)
    sed -n '3,/^set/{/^set/!s/^# \{0,1\}//p}' "$0"
    [ "$1" = --help ] || exit 2
    exit
    ;;
  ?*) configurations=("$@") ;;
esac
[ "${1:-}" = --unit ] || scripts/install_packages.sh build data docs test train

# Both take DIRECTORY CONFIGURATION.
build() {
  # From scratch where the presets have changed: a compiler cannot be exchanged otherwise.
  if [ ! -f "$1/build.ninja" ] || [ CMakePresets.json -nt "$1/build.ninja" ]; then
    cmake --fresh --preset "$2"
  fi && cmake --build --preset "$2" "${build_options[@]}"
}
run() {
  rm -rf "$1/results" "$1/results.xml"
  ctest --preset "$2" -j "$(nproc)" "${test_options[@]}" --output-junit results.xml
}

TIMEFORMAT='%0R s (processor %0U s, system %0S s)'
for configuration in "${configurations[@]}"; do
  directory=build/$configuration
  mkdir -p "$directory"
  echo -n "$configuration: built in "
  if ! { time build "$directory" "$configuration" >"$directory/build.log" 2>&1; } 2>&1; then
    tail -n 60 "$directory/build.log"
    echo "The build failed; all of it is in $directory/build.log" >&2
    exit 1
  fi
  echo -n "$configuration: tested in "
  # What failed has printed why; it is counted below.
  if ! { time run "$directory" "$configuration" >"$directory/test.log" 2>&1; } 2>&1; then
    grep -vE '^ *Start|   Passed  ' "$directory/test.log" || true
  fi
done
/usr/bin/python3 scripts/count_tests.py "${configurations[@]/#/build/}"
