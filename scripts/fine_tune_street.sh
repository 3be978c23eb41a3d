#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Shows what a few pictures of one camera are worth: trains person detection on the first half of a street's video, from the
# sample network on, and measures it on the second half, before and after. The video is vtest.avi of Debian's opencv-doc;
# every 40th frame has boxes in models/person_detection/street/labels.csv.
#   scripts/fine_tune_street.sh [ARGUMENT...]     further arguments of models/person_detection/train.py, as --steps 100
# Writes into build/street/. KELNN names another kelnn than that of build/demo, which is built when it is missing.
set -euo pipefail
cd "$(dirname "$0")/.."
out=build/street
kelnn=${KELNN:-build/demo/tools/kelnn}

scripts/install_packages.sh build data train photographs
[ -x "$kelnn" ] || {
  cmake -S . -B build/demo -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
  cmake --build build/demo --target kelnn_cli >/dev/null
}
rm -rf "$out"
mkdir -p "$out"
/usr/bin/python3 - models/person_detection/street/labels.csv "$out" <<'PYTHON'
import csv, pathlib, sys, cv2
labels, out = sys.argv[1], pathlib.Path(sys.argv[2])
head, *rows = csv.reader(open(labels, newline=""))
frames = {int(row[0][:3]): row[0] for row in rows}
for half, kept in (("first", lambda number: number < 400), ("second", lambda number: number >= 400)):
    (out / half).mkdir()
    with open(out / half / "labels.csv", "w", newline="") as file:
        csv.writer(file).writerows([head, *(row for row in rows if kept(int(row[0][:3])))])
video, number = cv2.VideoCapture("/usr/share/doc/opencv-doc/examples/data/vtest.avi"), 0
while True:
    is_read, frame = video.read()
    if not is_read:
        break
    if number in frames:
        cv2.imwrite(str(out / ("first" if number < 400 else "second") / frames[number]), frame)
    number += 1
PYTHON

# Prints what eval says of the networks in a directory.
measure() {  # DIR
  local shape
  for shape in landscape square portrait; do
    "$kelnn" pack "person-detection-$shape" "$1/$shape.onnx" --root "$out/models/" >/dev/null
  done
  "$kelnn" eval person-detection --root "$out/models/" --data "$out/second"
}
echo "=== the sample network on the second half"
measure models/person_detection
echo "=== training on the first half"
/usr/bin/python3 -m models.person_detection.train --start models/person_detection/square.onnx --data "$out/first" \
  --share 0.9 --steps 300 --out "$out/network" "$@"
echo "=== the new network on the second half"
measure "$out/network"
