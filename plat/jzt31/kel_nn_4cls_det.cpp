// SPDX-License-Identifier: Apache-2.0
// Four-class detection: boxes of objects of four kinds in one frame, from a letterboxed colour
// image.
#include "kel_nn_grid_detector.h"
#include "kel_nn_handle.h"
#include "kel_nn_log.h"
#include "kel_nn_model_files.h"

namespace {

constexpr kelnn::GridDetector kFourClassGrid = {
    {{/*stride=*/32, {{68, 52}, {74, 118}, {140, 155}}},
     {/*stride=*/16, {{24, 18}, {37, 36}, {41, 76}}}},
    /*values_per_anchor=*/9,
    /*class_count=*/4,
    {kelnn::kFourClassLandscapeModel, kelnn::kFourClassSquareModel, kelnn::kFourClassPortraitModel},
};

kelnn::GridState<KEL_NN_4CLSDET_MAX_BOXES> g_state;

}  // namespace

int kel_nn_4clsdet_init(kel_nn_handle_t handle, int width, int height) {
  KEL_NN_FAIL_IF(!handle, -1, "Uninitialized handle.");
  // Before the model is loaded, and whether or not it can be: the interface says so.
  g_state.orientation = kelnn::orientation_of(width, height);
  return kel_nne_graph_init(&handle->graph_4clsdet, kFourClassGrid.model(g_state.orientation),
                            kelnn::kScrambled);
}

int kel_nn_4clsdet_deinit(kel_nn_handle_t handle) {
  KEL_NN_FAIL_IF(!handle, -1, "Uninitialized handle.");
  return kel_nne_graph_deinit(&handle->graph_4clsdet);
}

int kel_nn_4clsdet_process(kel_nn_handle_t handle, const void* image, kel_nn_det_result_t* result,
                           const kel_nn_size_t* frame_size, const kel_nn_size_t* input_size) {
  const bool complete = handle && image && result && frame_size && input_size;
  KEL_NN_FAIL_IF(!complete, -1, "Invalid arguments.");
  const kelnn::Detection found = kelnn::detect(
      kFourClassGrid, g_state.memory(), &handle->graph_4clsdet, image, *frame_size, *input_size);
  KEL_NN_FAIL_IF(!found.run.ok(), 1, "%s error: %d", kelnn::failed_call(found.run), found.run.code);
  KEL_NN_FAIL_IF(!found.complete, 1, "The outputs are smaller than the grids.");
  *result = found.result;
  return 0;
}
