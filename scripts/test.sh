#!/usr/bin/env bash
# Installs what the tests need, builds everything four times and runs every test in each:
#   gcc       the library, the command line and all tests, warnings as errors
#   clang     the same, as a PC without AVX2 runs it
#   sanitize  the same with AddressSanitizer and UndefinedBehaviorSanitizer
#   mips      the library and its unit tests as MIPS32r2 code, under emulation
# scripts/test.sh [CONFIGURATION...]   (default: all four). Ends with the number of tests.
set -euo pipefail
cd "$(dirname "$0")/.."
configurations=("$@")
[ $# -gt 0 ] || configurations=(gcc clang sanitize mips)

scripts/install_packages.sh build docs test

passed=0
failed=0
for configuration in "${configurations[@]}"; do
  echo "=== $configuration"
  log=build/$configuration/test.log
  mkdir -p "build/$configuration"
  if ! { cmake --preset "$configuration" && cmake --build --preset "$configuration"; } >"$log.build" 2>&1; then
    tail -n 60 "$log.build"
    echo "The build failed; all of it is in $log.build" >&2
    exit 1
  fi
  ctest --preset "$configuration" --progress 2>&1 | tee "$log" | grep -vE '^\[|^Test project|^ *Start' || true
  # "98% tests passed, 2 tests failed out of 123"
  read -r bad all < <(sed -nE 's/.*tests passed, ([0-9]+) tests? failed out of ([0-9]+).*/\1 \2/p' "$log") || {
    echo "No test ran in $configuration" >&2
    exit 1
  }
  passed=$((passed + all - bad))
  failed=$((failed + bad))
done

echo
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
