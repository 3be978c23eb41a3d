// SPDX-License-Identifier: Apache-2.0
// Detectors of the anchor-grid kind: two output grids, three anchors a cell, one model for each
// orientation of the camera's frame. A detector is a table, a state and three exported functions.
//
// Nothing is reported here: the exported functions do, so that a line shows their names.
#ifndef KEL_NN_GRID_DETECTOR_H_
#define KEL_NN_GRID_DETECTOR_H_

#include "kel_nn.h"
#include "kel_nn_graph_run.h"

namespace kelnn {

constexpr int kGridLevels = 2;
constexpr int kAnchorsPerCell = 3;

// Landscape is 0, so that a state that is all zero stands for it.
enum class Orientation { kLandscape, kSquare, kPortrait };

struct GridLevel {
  int stride;
  kel_nn_size_t anchors[kAnchorsPerCell];  // in pixels of the input
};

// Each output has the cells of its grid row by row; a cell has its anchors one after the other; an
// anchor has tx, ty, tw, th, the logit of its score, then the values of its classes and whatever
// else the network adds.
struct GridDetector {
  GridLevel levels[kGridLevels];  // in the order of the outputs
  int values_per_anchor;
  int class_count;        // 0: boxes have class 0
  const char* models[3];  // by Orientation

  const char* model(Orientation orientation) const { return models[static_cast<int>(orientation)]; }
};

Orientation orientation_of(int frame_width, int frame_height);

// The size of the model's input.
kel_nn_size_t input_size_of(Orientation orientation);

// Where a detector's boxes go, and which of its grids are in use.
struct GridMemory {
  Orientation orientation;
  int max_count;             // of both:
  kel_nn_box_t* candidates;  // in pixels of the input
  kel_nn_box_t* boxes;       // in pixels of the frame; what the last result points at
};

template <int kMaxBoxes>
struct GridState {  // all zero until _init, so it takes no room in the library's file
  Orientation orientation;
  kel_nn_box_t candidates[kMaxBoxes], boxes[kMaxBoxes];

  GridMemory memory() { return {orientation, kMaxBoxes, candidates, boxes}; }
};

// The name of the engine's call that failed.
const char* failed_call(const RunStatus& status);

struct GridOutputs {
  const float* values[kGridLevels];
};

// Decodes the first `max_count` anchors that score high enough, in the order of the outputs, and
// returns how many there are. The orientation gives the grids, `input_size` scales the boxes.
int decode_grids(const GridDetector& detector, Orientation orientation, const GridOutputs& outputs,
                 const kel_nn_size_t& input_size, int max_count, kel_nn_box_t* candidates);

// Takes boxes out of the letterbox: from pixels of the input to whole pixels of the frame.
void map_to_frame(const kel_nn_box_t* candidates, int count, const kel_nn_size_t& frame_size,
                  const kel_nn_size_t& input_size, kel_nn_box_t* boxes);

struct Detection {
  RunStatus run;
  bool complete;  // every output covers its grid
  kel_nn_det_result_t result;
};

// From an image to boxes in the frame: runs the graph, decodes, suppresses overlaps, maps. There is
// a result when the run is ok and complete.
Detection detect(const GridDetector& detector, const GridMemory& memory, kel_nn_graph_t graph,
                 const void* image, const kel_nn_size_t& frame_size,
                 const kel_nn_size_t& input_size);

}  // namespace kelnn

#endif  // KEL_NN_GRID_DETECTOR_H_
