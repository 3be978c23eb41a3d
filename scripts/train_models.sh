#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Trains the sample networks again, on this machine's processors, and measures what came out:
#   scripts/train_models.sh [--quick] [NETWORK...]     (a directory of models/; default: all)
# Writes over the networks in models/. --quick trains each for about a minute, into build/quick/, to see
# that everything works; the result is no good and is not measured.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/sample_networks.sh
quick=()
[ "${1:-}" != --quick ] || {
  quick=(--quick)
  shift
}

scripts/install_packages.sh data train
for line in "${sample_networks[@]}"; do
  read -r name _ <<<"$line"
  [ $# -eq 0 ] || [[ " $* " == *" $name "* ]] || continue
  printf '\n=== %s\n' "$name"
  if [ ${#quick[@]} -gt 0 ]; then
    out=build/quick/$name
    mkdir -p "$out"
    [ -e "models/$name/landscape.onnx" ] || out=$out/network.onnx  # of three shapes: a directory
    /usr/bin/python3 -m "models.$name.train" --quick --out "$out"
  else
    /usr/bin/python3 -m "models.$name.train"
  fi
done
[ ${#quick[@]} -gt 0 ] || scripts/evaluate_models.sh "$@"
