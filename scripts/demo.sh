#!/usr/bin/env bash
# Shows libkelnn at work, from nothing: installs what is missing, builds, packs the sample network and
# compares pictures. Fails unless a face resembles its own distorted copy more than another face.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build/demo
models=$build/models/
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
scripts/install_packages.sh build
mkdir -p "$build"
quietly cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release
quietly cmake --build "$build" --target kelnn_cli compare_faces
export PATH="$PWD/$build/tools:$PWD/$build/examples:$PATH"
echo "kelnn and compare_faces are in $build"

step "2. Pack the sample network"
rm -rf "$models"
echo "$ kelnn pack face-features models/face_features/sample.onnx --root $models"
quietly kelnn pack face-features models/face_features/sample.onnx --root "$models"
echo "$ kelnn doctor --root $models"
quietly kelnn doctor --root "$models"
sed -n '/^ok/,+1p; $p' "$build/demo.log"

# compare COMMAND...: shows the command and sets $similarity to the last line that it printed, without
# the escape that ends the library's coloured lines.
compare() {
  echo "$ $*"
  quietly "$@"
  similarity=$(grep -oE -- '-?[0-9]+[.][0-9]+$' "$build/demo.log" | tail -n 1) || fail "no similarity: $*"
  echo "  $similarity"
}
check() {
  awk -v same="$1" -v other="$2" 'BEGIN { exit !(same + 0 > other + 0) }' ||
    fail "the face resembles another face ($2) at least as much as its own copy ($1)"
}

step "3. Compare faces: with its own distorted copy, with another face"
compare kelnn compare $pictures/face_a.png $pictures/face_a_distorted.png --root "$models"
same=$similarity
compare kelnn compare $pictures/face_a.png $pictures/face_b.png --root "$models"
check "$same" "$similarity"

step "4. The same in a C program of your own: examples/compare_faces.c"
compare compare_faces "$models" $pictures/face_a.pgm $pictures/face_a_distorted.pgm
same=$similarity
compare compare_faces "$models" $pictures/face_a.pgm $pictures/face_b.pgm
check "$same" "$similarity"

step "A face resembles its own distorted copy more than another face."
