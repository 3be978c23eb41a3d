# SPDX-License-Identifier: Apache-2.0
# The sample networks, for the scripts that pack, evaluate and train them (sourced).
# Directory in models/, the task of kelnn eval, the goal on the held-out set.
sample_networks=(
  "face_detection face-detection mean_average_precision>=0.90"
  "face_landmarks face-landmarks mean_point_error<=0.02"
  "face_features face-features equal_error_rate<=0.065"
  "face_classes face-classes accuracy>=0.95"
  "person_detection person-detection mean_average_precision>=0.80"
  "four_class_detection four-class-detection mean_average_precision>=0.80"
  "person_classes person-classes accuracy>=0.95"
  "cry_detection cry-detection accuracy>=0.97"
)

# Packs what is in models/, or in another directory like it, as the models of a root directory.
pack_sample_networks() {  # KELNN ROOT [FROM]
  local kelnn=$1 root=$2 from=${3:-models} line name task
  for line in "${sample_networks[@]}"; do
    read -r name task _ <<<"$line"
    case $name in
      person_detection | four_class_detection)
        local shape
        for shape in landscape square portrait; do
          "$kelnn" pack "$task-$shape" "$from/$name/$shape.onnx" --root "$root"
        done
        ;;
      *) "$kelnn" pack "$task" "$from/$name/network.onnx" --root "$root" ;;
    esac
  done
}
