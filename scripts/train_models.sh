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

scripts/install_packages.sh build data train
echo "Building libkelnn"
cmake -S . -B build/demo -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/demo --target kelnn >/dev/null
export KELNN_LIBRARY=$PWD/build/demo/libkelnn.so  # the audio features come from it
for line in "${sample_networks[@]}"; do
  read -r name _ <<<"$line"
  [ $# -eq 0 ] || [[ " $* " == *" $name "* ]] || continue
  printf '\n=== %s\n' "$name"
  if [ ${#quick[@]} -gt 0 ]; then
    out=build/quick/$name
    mkdir -p "$out"
    [ -e "models/$name/landscape.onnx" ] || out=$out/network.onnx  # of three shapes: a directory
    /usr/bin/python3 "models/$name/train.py" --quick --out "$out"
  else
    /usr/bin/python3 "models/$name/train.py"
  fi
done
[ ${#quick[@]} -gt 0 ] || scripts/evaluate_models.sh "$@"
