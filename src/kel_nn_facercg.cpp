// SPDX-License-Identifier: Apache-2.0
// Face features: 256 values of unit length for a 112 x 112 grey face, and how alike two of them
// are.
#include "kel_nn_graph_run.h"
#include "kel_nn_handle.h"
#include "kel_nn_log.h"
#include "kel_nn_model_files.h"

namespace {

constexpr kelnn::ImageShape kInput = {/*height=*/112, /*width=*/112, /*channels=*/1};
constexpr uint32_t kFeatureLength = 256;

}  // namespace

int kel_nn_facercg_init(kel_nn_handle_t handle) {
  KEL_NN_FAIL_IF(!handle, -1, "Uninitialized handle.");
  return kel_nne_graph_init(&handle->graph_facercg, kelnn::kFaceFeatureModel, kelnn::kScrambled);
}

int kel_nn_facercg_deinit(kel_nn_handle_t handle) {
  KEL_NN_FAIL_IF(!handle, -1, "Uninitialized handle.");
  return kel_nne_graph_deinit(&handle->graph_facercg);
}

int kel_nn_face_feature_extract(kel_nn_handle_t handle, const void* image,
                                kel_nn_feature_t* feature) {
  KEL_NN_FAIL_IF(!handle || !image || !feature, -1, "Invalid arguments.");
  const kel_nn_graph_t graph = &handle->graph_facercg;
  if (!kelnn::run_image(graph, kInput, image).ok()) return -1;  // the engine has said why
  float* values = kelnn::output_data(graph, 0, kFeatureLength);
  KEL_NN_FAIL_IF(!values, -1, "Output 0 has fewer than %u values.", kFeatureLength);
  feature->data = values;
  feature->len = kFeatureLength;
  kel_nn_l2norm(values, kFeatureLength);
  return 0;
}

float kel_nn_face_feature_similarity_calcul(const kel_nn_feature_t* a, const kel_nn_feature_t* b) {
  return kel_nn_inner(a->data, b->data, a->len);
}
