#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The binary interface of libkelnn.so, as a file and as it is built: record_abi.sh [--check] LIBRARY
#   LIBRARY   a libkelnn.so with debug information (the target kelnn_abi)
#   --check   compares it with abi/libkelnn.abi; fails with abidiff's words where programs would break, and where something
#             was added that is not recorded
# Without --check writes abi/libkelnn.abi, which docs/abi.md allows for additions alone.
set -euo pipefail
cd "$(dirname "$0")/.."
recorded=abi/libkelnn.abi
check=
if [ "${1:-}" = --check ]; then
  check=1
  shift
fi
library=$1
now=$recorded
if [ -n "$check" ]; then
  now=$(mktemp)
  trap 'rm -f "$now"' EXIT
fi
abidw --headers-dir include --drop-private-types --no-corpus-path --no-comp-dir-path --no-show-locs \
  --exported-interfaces-only --type-id-style hash --out-file "$now" "$library"
[ -n "$check" ] || exit 0

# abidiff's exit status: 4 something changed, 8 callers break, 1 and 2 it failed.
if ! abidiff --no-added-syms "$recorded" "$now"; then
  echo "Programs that were built with the recorded libkelnn.so would break: docs/abi.md" >&2
  exit 1
fi
if ! abidiff "$recorded" "$now"; then
  echo "Added, and not recorded: scripts/record_abi.sh LIBRARY; docs/abi.md" >&2
  exit 1
fi
