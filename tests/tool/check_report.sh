#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Makes the report of every task on the sample networks of a build, which fails where a network does not see what the
# samples show; the page must need nothing beside itself, and its commands run as they stand: check_report.sh BUILD SCRATCH
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
ln -sfn "$PWD/examples" "$scratch/examples"
cd "$scratch"
PATH=$build/tools:$PATH
mapfile -t commands < <(/usr/bin/python3 -c 'import html, re, sys
for pre in re.findall("<pre>(.*?)</pre>", open("report.html").read(), re.DOTALL):
    print(*[line for line in html.unescape(pre).split("\n") if line.startswith("kelnn ")], sep="\n")' | grep .)
[ ${#commands[@]} -ge 8 ] || { echo "FAIL: where are the commands of the page?" >&2; exit 1; }
# The tool aligns as the module does: the surest face, its landmarks, turned by them; the same bits.
kelnn feature examples/pictures/scenes/faces_1.jpg --json >feature.json 2>/dev/null
PYTHONPATH=$build/python /usr/bin/python3 -B - "$build/share/kelnn/models" <<'PYTHON'
import json, sys
import numpy as np
from PIL import Image
import kelnn
frame = np.asarray(Image.open("examples/pictures/scenes/faces_1.jpg").convert("RGB"))
library = kelnn.Library(sys.argv[1])
with kelnn.FaceDetector(library) as faces, kelnn.FaceLandmarks(library) as landmarks, kelnn.FaceFeatures(library) as features:
    face = faces.detect(frame)[0].box
    points = landmarks.of(frame, face).points * (face.w, face.h) + (face.x, face.y)
    feature = features.of(kelnn.align(frame, points.astype(np.float32), format=kelnn.Format.GREY))
said = json.load(open("feature.json"))
assert said["aligned"] and [said[key] for key in "xywh"] == list(face), said
assert np.array_equal(np.array(said["feature"], np.float32), feature)
PYTHON
for command in "${commands[@]}"; do
  bash -c "$command" >command.log 2>&1 || { cat command.log >&2; echo "FAIL: $command" >&2; exit 1; }
done
