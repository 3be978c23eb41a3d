#!/usr/bin/env bash
# Shows the library working: installs what is missing, builds, packs the sample network and compares faces.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install_packages.sh build
echo "Building (build/demo)"
mkdir -p build/demo
{ cmake -S . -B build/demo -G Ninja && cmake --build build/demo; } >build/demo/build.log 2>&1 || {
  tail -n 40 build/demo/build.log
  echo "The build failed; all of it is in build/demo/build.log" >&2
  exit 1
}
kelnn=build/demo/tools/kelnn
root=build/demo/models/
pictures=examples/pictures

# What the library itself prints goes to standard error and would fill the screen here.
quietly() { "$@" 2>build/demo/library.log || { cat build/demo/library.log >&2; exit 1; }; }

echo; echo "A network becomes the model of a task"
quietly "$kelnn" pack face-features models/face_features/sample.onnx --root "$root"
quietly "$kelnn" doctor --root "$root" | grep -A1 '^ok'

echo; echo "Pictures resemble their distorted copies more than each other (1 is the same)"
compare() { printf '  %-28s %-28s ' "${1##*/}" "${2##*/}"; quietly "$kelnn" compare "$@" --root "$root" | tee "$result"; }
result=$(mktemp)
trap 'rm -f "$result"' EXIT
compare $pictures/face_a.png $pictures/face_a_distorted.png
copy=$(<"$result")
compare $pictures/face_a.png $pictures/face_b.png
other=$(<"$result")
compare $pictures/face_b.png $pictures/both_faces.png --box-b 180,50,120,120
awk "BEGIN { exit !($copy > $other + 0.1) }" || { echo "The copy should resemble the face much more." >&2; exit 1; }

echo; echo "The same from C, with the library alone (examples/compare_faces.c)"
quietly build/demo/examples/compare_faces "$root" $pictures/face_a.pgm $pictures/face_a_distorted.pgm | grep -o 'similarity.*'
