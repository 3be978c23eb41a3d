#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Makes the report of every task on the sample networks of a build, which fails where a network does not see what the
# samples show; the page must need nothing beside itself: check_report.sh BUILD SCRATCH
set -euo pipefail
build=$1 scratch=$2
cd "$(dirname "$0")/../.."
mkdir -p "$scratch"
PYTHONPATH=$build/python /usr/bin/python3 -B scripts/make_report.py --kelnn "$build/tools/kelnn" \
  --root "$build/share/kelnn/models" --out "$scratch/report.html"
if grep -oE '(src|href)="[^"]{0,20}' "$scratch/report.html" | grep -v '="data:'; then
  echo "FAIL: the page refers to something outside" >&2
  exit 1
fi
