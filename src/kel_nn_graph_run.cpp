// SPDX-License-Identifier: Apache-2.0
#include "kel_nn_graph_run.h"

namespace kelnn {

RunStatus run_image(kel_nn_graph_t graph, const ImageShape& shape, const void* image) {
  size_t dim[4] = {1, shape.height, shape.width, shape.channels};
  const kel_nn_tensor_t input =
      static_cast<kel_nn_tensor_t>(kel_nne_graph_get_input_tensor(graph, 0));
  if (const int code = kel_nne_tensor_set_dim(input, dim)) return {RunStep::kSetDim, code};
  // The engine copies the image before it changes anything.
  if (const int code = kel_nne_tensor_set_buffer(input, const_cast<void*>(image))) {
    return {RunStep::kSetBuffer, code};
  }
  if (const int code = kel_nne_run_graph(graph)) return {RunStep::kRun, code};
  return {RunStep::kDone, 0};
}

float* output_data(kel_nn_graph_t graph, size_t index, size_t count) {
  const kel_nn_tensor_t output =
      static_cast<kel_nn_tensor_t>(kel_nne_graph_get_output_tensor(graph, index));
  // The engine has checked that the product fits the output.
  const size_t* dim = kel_nne_tensor_get_dim(output);
  if (!dim || dim[0] * dim[1] * dim[2] < count) return nullptr;
  return kel_nne_tensor_get_buffer(output);
}

}  // namespace kelnn
