#include "face_features.h"

namespace kelnn_cli {

FaceFeatures::FaceFeatures(const std::string& root)
    : task_(root, "face-features", "face features", kel_nn_facercg_init, kel_nn_facercg_deinit) {}

std::vector<float> FaceFeatures::of(const Bytes& face) {
  kel_nn_feature_t feature;
  task_.check(kel_nn_face_feature_extract(task_.handle(), face.data(), &feature));
  return std::vector<float>(feature.data, feature.data + feature.len);
}

float similarity(std::vector<float> a, std::vector<float> b) {
  const kel_nn_feature_t first = {a.data(), static_cast<uint32_t>(a.size())};
  const kel_nn_feature_t second = {b.data(), static_cast<uint32_t>(b.size())};
  return kel_nn_face_feature_similarity_calcul(&first, &second);
}

}  // namespace kelnn_cli
