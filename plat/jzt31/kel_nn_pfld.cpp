// SPDX-License-Identifier: Apache-2.0
// Face landmarks: five points and the pose of a 112 x 112 grey face, as the network gives them.
#include <cstring>

#include "kel_nn_graph_run.h"
#include "kel_nn_handle.h"
#include "kel_nn_log.h"
#include "kel_nn_model_files.h"

namespace {

constexpr kelnn::ImageShape kInput = {/*height=*/112, /*width=*/112, /*channels=*/1};
constexpr unsigned kLandmarkValues = 10;  // five points, x and y
constexpr unsigned kPoseValues = 3;

}  // namespace

int kel_nn_facelm_init(kel_nn_handle_t handle) {
  KEL_NN_FAIL_IF(!handle, -1, "Uninitialized handle.");
  return kel_nne_graph_init(&handle->graph_facelm, kelnn::kFaceLandmarksModel, kelnn::kScrambled);
}

int kel_nn_facelm_deinit(kel_nn_handle_t handle) {
  KEL_NN_FAIL_IF(!handle, -1, "Uninitialized handle.");
  return kel_nne_graph_deinit(&handle->graph_facelm);
}

int kel_nn_facelm_process(kel_nn_handle_t handle, const void* image, float* landmarks,
                          float* pose) {
  KEL_NN_FAIL_IF(!handle || !image || !landmarks, -1, "Invalid arguments.");
  const kel_nn_graph_t graph = &handle->graph_facelm;
  if (!kelnn::run_image(graph, kInput, image).ok()) return -1;  // the engine has said why
  const float* points = kelnn::output_data(graph, 0, kLandmarkValues);
  KEL_NN_FAIL_IF(!points, -1, "Output 0 has fewer than %u values.", kLandmarkValues);
  const float* angles = kelnn::output_data(graph, 1, kPoseValues);
  KEL_NN_FAIL_IF(!angles, -1, "Output 1 has fewer than %u values.", kPoseValues);
  // Bytes, because packed records may hold them at any address.
  std::memcpy(static_cast<void*>(landmarks), points, kLandmarkValues * sizeof(float));
  if (pose) std::memcpy(static_cast<void*>(pose), angles, kPoseValues * sizeof(float));
  return 0;
}
