#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# check_digests.sh [EMULATOR...] PROGRAM: the digests of this build are those of the table in docs/numerics.md.
set -euo pipefail
page=$(dirname "$0")/../docs/numerics.md
diff <(sed -nE '/<!-- digests -->/,/<!-- end/s/^\| (.*) \| `([0-9a-f]+)` \|$/\2 \1/p' "$page") <("$@")
