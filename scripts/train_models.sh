#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Trains the sample networks again, on this machine's processors, and measures what came out:
#   scripts/train_models.sh [--quick] [NETWORK...]     (a directory of models/; default: all)
# Writes over the networks in models/. --quick trains each for 40 steps, into build/quick/, to see
# that everything works; the result is no good and is not measured.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/sample_networks.sh
is_quick=
[ "${1:-}" != --quick ] || {
  is_quick=1
  shift
}

scripts/install_packages.sh data train
for line in "${sample_networks[@]}"; do
  read -r name _ <<<"$line"
  [ $# -eq 0 ] || [[ " $* " == *" $name "* ]] || continue
  printf '\n=== %s\n' "$name"
  /usr/bin/python3 -m "models.$name.train" ${is_quick:+--quick --out "build/quick/$name"}
done
[ -n "$is_quick" ] || scripts/evaluate_models.sh "$@"
