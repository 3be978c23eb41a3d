#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Plants random one-line faults in the library and shows which of them no unit test notices.
# scripts/mutation.sh [OPTION...] [FAULTS [SEED]]   (default: 300 faults, seed 1; --help tells the options)
# Works on a copy in a temporary directory. docs/testing.md says what the survivors are.
set -euo pipefail
exec /usr/bin/python3 "$(dirname "$0")/plant_faults.py" "$@"
