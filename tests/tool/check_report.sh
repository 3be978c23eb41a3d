#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Packs the sample networks and makes the report of every task, which fails where a network does not see what the
# samples show; the page must need nothing beside itself: check_report.sh KELNN SCRATCH
set -euo pipefail
kelnn=$1
scratch=$2
export PYTHONDONTWRITEBYTECODE=1  # nothing goes into the source tree
cd "$(dirname "$0")/../.."
. scripts/sample_networks.sh
rm -rf "$scratch"
mkdir -p "$scratch/models"
pack_sample_networks "$kelnn" "$scratch/models/" >"$scratch/pack.log" 2>&1 || {
  cat "$scratch/pack.log" >&2
  exit 1
}
/usr/bin/python3 scripts/make_report.py --kelnn "$kelnn" --root "$scratch/models/" --out "$scratch/report.html"
if grep -oE '(src|href)="[^"]{0,20}' "$scratch/report.html" | grep -v '="data:'; then
  echo "FAIL: the page refers to something outside" >&2
  exit 1
fi
