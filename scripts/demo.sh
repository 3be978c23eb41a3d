#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Shows libkelnn at work, from nothing: installs what is missing, builds, packs the sample networks, runs every
# task on the sample pictures, video and sounds, and the detectors on photographs of Debian's packages, and writes a page
# with the results. Fails when a task fails or does not see what the samples show.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/sample_networks.sh
build=build/demo
models=$build/share/kelnn/models/  # where the kelnn of this build looks
pictures=examples/pictures

step() { printf '\n\033[1m%s\033[0m\n' "$*"; }
fail() {
  echo "demo.sh: $*" >&2
  exit 1
}
# Runs a command with its output in a log, which is shown only if the command fails.
quietly() {
  "$@" >"$build/demo.log" 2>&1 || {
    cat "$build/demo.log" >&2
    fail "failed: $*"
  }
}

step "1. Install and build"
scripts/install_packages.sh build photographs
mkdir -p "$build"
quietly cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_UNITY_BUILD=ON -DKEL_NN_DOCS=OFF
quietly cmake --build "$build" --target kelnn_cli compare_faces kelnn_python
PATH=$PWD/$build/tools:$PWD/$build/examples:$PATH
echo "kelnn and compare_faces are in $build"

step "2. Pack the sample networks: kelnn pack TASK NETWORK.onnx --root $models"
rm -rf "$models"
mkdir -p "$models"
quietly pack_sample_networks kelnn "$models"
quietly kelnn doctor --root "$models"
tail -n 1 "$build/demo.log"

step "3. Every task on the samples"
PYTHONPATH=$build/python /usr/bin/python3 scripts/make_report.py --root "$models" --out "$build/report.html" --kelnn "$build/tools/kelnn"

step "4. The same in a C program of your own: examples/compare_faces.c"
# Sets $similarity to what the program prints for two pictures.
compare() {
  echo "$ compare_faces $models $1 $2"
  quietly compare_faces "$models" "$1" "$2"
  similarity=$(grep -oE -- '-?[0-9]+[.][0-9]+$' "$build/demo.log" | tail -n 1) || fail "no similarity"
  echo "  $similarity"
}
compare $pictures/face_a.pgm $pictures/face_a_distorted.pgm
same=$similarity
compare $pictures/face_a.pgm $pictures/face_b.pgm
awk -v same="$same" -v other="$similarity" 'BEGIN { exit !(same + 0 > other + 0) }' ||
  fail "the face resembles another face ($similarity) at least as much as its own copy ($same)"

step "All tasks work. Open $build/report.html in a browser. To type its commands here, first:"
echo "export PATH=\"$PWD/$build/tools:\$PATH\""
