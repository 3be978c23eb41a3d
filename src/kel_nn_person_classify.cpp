// SPDX-License-Identifier: Apache-2.0
// Person classification: how probable class 0 is for a 112 x 112 colour picture.
#include "kel_nn_graph_run.h"
#include "kel_nn_handle.h"
#include "kel_nn_log.h"
#include "kel_nn_model_files.h"

namespace {

constexpr kelnn::ImageShape kInput = {/*height=*/112, /*width=*/112, /*channels=*/3};
constexpr unsigned kClassCount = 2;

}  // namespace

int kel_nn_person_classify_init(kel_nn_handle_t handle) {
  KEL_NN_FAIL_IF(!handle, -1, "Uninitialized handle.");
  return kel_nne_graph_init(&handle->graph_person_classify, kelnn::kPersonClassifyModel,
                            kelnn::kScrambled);
}

int kel_nn_person_classify_deinit(kel_nn_handle_t handle) {
  KEL_NN_FAIL_IF(!handle, -1, "Uninitialized handle.");
  return kel_nne_graph_deinit(&handle->graph_person_classify);
}

int kel_nn_person_classify_process(kel_nn_handle_t handle, const void* image, float* score) {
  KEL_NN_FAIL_IF(!handle || !image || !score, -1, "Invalid arguments.");
  const kel_nn_graph_t graph = &handle->graph_person_classify;
  if (!kelnn::run_image(graph, kInput, image).ok()) return -1;  // the engine has said why
  float* probabilities = kelnn::output_data(graph, 0, kClassCount);
  KEL_NN_FAIL_IF(!probabilities, -1, "Output 0 has fewer than %u values.", kClassCount);
  kel_nn_softmax(probabilities, kClassCount);  // in place: the graph then holds probabilities
  *score = probabilities[0];
  return 0;
}
