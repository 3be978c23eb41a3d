// SPDX-License-Identifier: Apache-2.0
// Image in, run, values out: the sequence that every task with a network shares.
//
// Nothing is reported here. The engine says why a call failed; what else a task prints is its own.
#ifndef KEL_NN_GRAPH_RUN_H_
#define KEL_NN_GRAPH_RUN_H_

#include "kel_nn.h"

namespace kelnn {

struct ImageShape {
  size_t height, width, channels;
};

enum class RunStep { kSetDim, kSetBuffer, kRun, kDone };

struct RunStatus {
  RunStep reached;  // the call that failed, or kDone
  int code;         // what it returned
  bool ok() const { return reached == RunStep::kDone; }
};

// Checks the image's shape against the graph's input 0, hands it over and runs the graph.
RunStatus run_image(kel_nn_graph_t graph, const ImageShape& shape, const void* image);

// The values of an output that has at least `count` of them, or null.
float* output_data(kel_nn_graph_t graph, size_t index, size_t count);

}  // namespace kelnn

#endif  // KEL_NN_GRAPH_RUN_H_
