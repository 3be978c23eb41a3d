// SPDX-License-Identifier: Apache-2.0
// What goes into an ONNX graph and what comes out, in the graph's own order. OpenCV knows neither
// which outputs the graph declares nor their order.
#ifndef KEL_NN_HOST_ONNX_GRAPH_H_
#define KEL_NN_HOST_ONNX_GRAPH_H_

#include <string>
#include <vector>

#include "model_container.h"
#include "runtime_errors.h"

namespace kelnn_host {

struct OnnxGraph {
  struct Output {
    std::string name;
    int rank;  // -1: the graph does not say
  };
  std::string input_name;
  int channels = 0, height = 0, width = 0;  // of the input, all above 0
  std::vector<Output> outputs;              // at least one
};

// Reads the graph of a model; `graph` is meaningful only on success. `reason`: what ONNX's checker says, else unchanged.
RuntimeError read_onnx_graph(const OnnxBytes& onnx, OnnxGraph* graph, std::string* reason);

}  // namespace kelnn_host

#endif  // KEL_NN_HOST_ONNX_GRAPH_H_
