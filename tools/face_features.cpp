#include "face_features.h"

#include "model_inspection.h"
#include "report.h"

namespace kelnn_cli {

FaceFeatures::FaceFeatures(const std::string& directory) {
  const std::string root = with_slash(directory);
  kel_nn_set_model_root_dir(root.c_str());
  handle_ = kel_nn_handle_create();
  if (!handle_) throw Failure("out of memory");
  if (kel_nn_facercg_init(handle_) == 0) return;
  kel_nn_facercg_deinit(handle_);
  kel_nn_handle_destroy(handle_);
  const Inspection why = inspect_model(*find_task("face-features"), root);
  throw Failure("no face features without a model: " + why.path + "\n" + why.problem + "\n" +
                why.advice);
}

FaceFeatures::~FaceFeatures() {
  kel_nn_facercg_deinit(handle_);
  kel_nn_handle_destroy(handle_);
}

std::vector<float> FaceFeatures::of(const Bytes& face) {
  kel_nn_feature_t feature;
  if (kel_nn_face_feature_extract(handle_, face.data(), &feature) != 0) {
    throw Failure("the network of the face features failed, see above");
  }
  return std::vector<float>(feature.data, feature.data + feature.len);
}

float similarity(std::vector<float> a, std::vector<float> b) {
  const kel_nn_feature_t first = {a.data(), static_cast<uint32_t>(a.size())};
  const kel_nn_feature_t second = {b.data(), static_cast<uint32_t>(b.size())};
  return kel_nn_face_feature_similarity_calcul(&first, &second);
}

}  // namespace kelnn_cli
