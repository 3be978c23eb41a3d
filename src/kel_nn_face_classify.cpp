// SPDX-License-Identifier: Apache-2.0
// Face classification: which of three classes a 112 x 112 grey face belongs to.
#include "kel_nn_graph_run.h"
#include "kel_nn_handle.h"
#include "kel_nn_log.h"
#include "kel_nn_model_files.h"

namespace {

constexpr kelnn::ImageShape kInput = {/*height=*/112, /*width=*/112, /*channels=*/1};
constexpr int kClassCount = 3;

}  // namespace

int kel_nn_face_classify_init(kel_nn_handle_t handle) {
  KEL_NN_FAIL_IF(!handle, -1, "Uninitialized handle.");
  return kel_nne_graph_init(&handle->graph_face_classify, kelnn::kFaceClassifyModel,
                            kelnn::kScrambled);
}

int kel_nn_face_classify_deinit(kel_nn_handle_t handle) {
  KEL_NN_FAIL_IF(!handle, -1, "Uninitialized handle.");
  return kel_nne_graph_deinit(&handle->graph_face_classify);
}

int kel_nn_face_classify_process(kel_nn_handle_t handle, const void* image, int* class_id,
                                 float* score) {
  KEL_NN_FAIL_IF(!handle || !image || !class_id || !score, -1, "Invalid arguments.");
  const kel_nn_graph_t graph = &handle->graph_face_classify;
  if (!kelnn::run_image(graph, kInput, image).ok()) return -1;  // the engine has said why
  const float* logits = kelnn::output_data(graph, 0, kClassCount);
  KEL_NN_FAIL_IF(!logits, -1, "Output 0 has fewer than %d values.", kClassCount);
  int best = 0;
  for (int i = 1; i < kClassCount; ++i) {
    if (logits[i] > logits[best]) best = i;
  }
  *class_id = best;
  // Not a softmax: the score of the winner does not depend on the other classes.
  *score = kel_nn_sigmoid(logits[best]);
  return 0;
}
