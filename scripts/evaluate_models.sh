#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Measures the sample networks on generated pictures and sounds that none of them was trained on:
#   scripts/evaluate_models.sh [NETWORK...]     (a directory of models/; default: all)
# Shows what kelnn eval says, and fails when a network misses its goal.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/sample_networks.sh
build=build/demo
root=build/evaluation/models/

scripts/install_packages.sh build data
echo "Building kelnn"
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" --target kelnn_cli >/dev/null
rm -rf "$root"
mkdir -p "$root"
pack_sample_networks "$build/tools/kelnn" "$root" >build/evaluation/pack.log 2>&1 || {
  cat build/evaluation/pack.log >&2
  exit 1
}

missed=()
for line in "${sample_networks[@]}"; do
  read -r name task goal <<<"$line"
  [ $# -eq 0 ] || [[ " $* " == *" $name "* ]] || continue
  data=build/evaluation/$name
  printf '\n=== %s (goal: %s)\n' "$name" "$goal"
  rm -rf "$data"
  /usr/bin/python3 -m "models.$name.data" "$data"
  "$build/tools/kelnn" eval "$task" --root "$root" --data "$data" --require "$goal" || missed+=("$name")
done

[ ${#missed[@]} -eq 0 ] || {
  echo "Goals missed: ${missed[*]}" >&2
  exit 1
}
