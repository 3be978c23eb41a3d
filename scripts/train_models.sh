#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Trains the sample networks again, on this machine's processors, and measures what came out:
#   scripts/train_models.sh [--quick] [--data DIR] [NETWORK...]     (a directory of models/; default: all)
# Writes over the networks in models/. --quick trains each for 40 steps, into build/quick/, to see
# that everything works; the result is no good and is not measured. --data names labelled data to learn from too:
# recordings, for cry_detection, as its card says.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/sample_networks.sh
is_quick=
data=
[ "${1:-}" != --quick ] || {
  is_quick=1
  shift
}
[ "${1:-}" != --data ] || {
  data=${2:?a directory of labelled data}
  shift 2
}

scripts/install_packages.sh data train
for line in "${sample_networks[@]}"; do
  read -r name _ <<<"$line"
  [ $# -eq 0 ] || [[ " $* " == *" $name "* ]] || continue
  printf '\n=== %s\n' "$name"
  /usr/bin/python3 -m "models.$name.train" ${data:+--data "$data"} ${is_quick:+--quick --out "build/quick/$name"}
done
[ -n "$is_quick" ] || scripts/evaluate_models.sh "$@"
