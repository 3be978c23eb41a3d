#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Packs a network as the model of each task: pack_test_models.sh KELNN NETWORKS SAMPLE_NETWORK DIRECTORY
set -euo pipefail
pack() {
  if ! said=$("$kelnn" pack "$1" "$2" --root "$models" 2>&1); then
    echo "$said" >&2
    exit 1
  fi
}
kelnn=$1 networks=$2 models=$4
for orientation in landscape square portrait; do
  pack "person-detection-$orientation" "$networks/persons_$orientation.onnx"
  pack "four-class-detection-$orientation" "$networks/objects_$orientation.onnx"
done
pack face-detection "$networks/faces.onnx"
pack face-landmarks "$networks/landmarks.onnx"
pack face-classes "$networks/face_classes.onnx"
pack person-classes "$networks/person_classes.onnx"
pack cry-detection "$networks/high_or_low.onnx"
pack face-features "$3"
touch "$models/packed"
