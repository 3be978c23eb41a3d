// SPDX-License-Identifier: Apache-2.0
#include "kel_nn_grid_detector.h"

#include <algorithm>
#include <cmath>

#include "kel_nn_float_rules.h"
#include "kel_nn_truncated.h"

namespace kelnn {
namespace {

constexpr float kScoreThreshold = 0.3f;  // a candidate's score may equal it
constexpr float kNmsThreshold = 0.4f;    // the IoU above which it gives way to a better one

// Most anchors see nothing, and exp() is most of the work. The sigmoid of this logit is 0.289; any
// logit below is below the threshold, however exp() rounds.
constexpr float kHopelessLogit = -0.9f;

// exp() in double, one rounding at the end; expf() changes the last bit of many scores.
float sigmoid(float logit) { return static_cast<float>(1.0 / (1.0 + std::exp(-double{logit}))); }

struct Grid {
  int rows, columns;
};

Grid grid_of(const kel_nn_size_t& input, int stride) {
  const auto cells = [stride](int32_t pixels) {
    return static_cast<int>(std::ceil(static_cast<float>(pixels) / static_cast<float>(stride)));
  };
  return {cells(input.h), cells(input.w)};
}

// The first class with a value that no other exceeds. A NaN compares false, so beside one no class
// may qualify; then it is class 0.
int best_class(const float* values, int class_count) {
  for (int i = 0; i < class_count; ++i) {
    int matched = 0;
    while (matched < class_count && values[i] >= values[matched]) ++matched;
    if (matched == class_count) return i;
  }
  return 0;
}

// A size in pixels of the input: the ratio in single, the product in double, the scaling in single
// precision.
float decode_size(float value, int32_t anchor_size, float input_size) {
  const float ratio = static_cast<float>(anchor_size) / input_size;
  return input_size * static_cast<float>(std::exp(double{value}) * double{ratio});
}

float decode_centre(float value, int cell, int cell_count, float input_size) {
  const float position = sigmoid(value) + static_cast<float>(cell);
  return input_size * (position / static_cast<float>(cell_count));
}

// One axis of the way back into the frame.
struct FrameAxis {
  float scale, padding;
  int32_t frame_size;

  // Changes a centre and a size.
  void map(float* centre, float* size) const {
    const int32_t length = std::min(truncated(*size / scale), frame_size);
    const int32_t middle = std::max(truncated((*centre - padding) / scale), 0);
    int64_t low = truncated(middle - length * 0.5);
    int64_t high = truncated(middle + length * 0.5);
    if (low <= 0) low = 1;  // 1, not 0: the interface says so
    if (high >= frame_size) high = int64_t{frame_size} - 1;
    *size = static_cast<float>(high - low);  // may be negative
    *centre = static_cast<float>(truncated((low + high) * 0.5));
  }
};

FrameAxis axis_of(float scale, int32_t frame_size, int32_t input_size) {
  const float scaled = scale * static_cast<float>(frame_size);
  return {scale, (static_cast<float>(input_size) - scaled) * 0.5f, frame_size};
}

}  // namespace

Orientation orientation_of(int frame_width, int frame_height) {
  if (frame_height < frame_width) return Orientation::kLandscape;
  return frame_width == frame_height ? Orientation::kSquare : Orientation::kPortrait;
}

kel_nn_size_t input_size_of(Orientation orientation) {
  constexpr kel_nn_size_t kInputs[] = {{416, 256}, {320, 320}, {256, 416}};
  return kInputs[static_cast<int>(orientation)];
}

const char* failed_call(const RunStatus& status) {
  switch (status.reached) {
    case RunStep::kSetDim:
      return "kel_nne_tensor_set_dim";
    case RunStep::kSetBuffer:
      return "kel_nne_tensor_set_buffer";
    default:
      return "kel_nne_run_graph";
  }
}

int decode_grids(const GridDetector& detector, Orientation orientation, const GridOutputs& outputs,
                 const kel_nn_size_t& input_size, int max_count, kel_nn_box_t* candidates) {
  const float input_width = static_cast<float>(input_size.w);
  const float input_height = static_cast<float>(input_size.h);
  int count = 0;
  for (int o = 0; o < kGridLevels; ++o) {
    const GridLevel& level = detector.levels[o];
    const Grid grid = grid_of(input_size_of(orientation), level.stride);
    const float* values = outputs.values[o];
    for (int row = 0; row < grid.rows; ++row) {
      for (int column = 0; column < grid.columns; ++column) {
        for (const kel_nn_size_t& anchor : level.anchors) {
          const float* v = values;
          values += detector.values_per_anchor;
          if (v[4] < kHopelessLogit) continue;
          const float score = sigmoid(v[4]);
          if (!(score >= kScoreThreshold)) continue;  // NaN too
          candidates[count] = {decode_centre(v[0], column, grid.columns, input_width),
                               decode_centre(v[1], row, grid.rows, input_height),
                               decode_size(v[2], anchor.w, input_width),
                               decode_size(v[3], anchor.h, input_height),
                               score,
                               best_class(v + 5, detector.class_count)};
          if (++count == max_count) return count;  // the first ones, not the best ones
        }
      }
    }
  }
  return count;
}

void map_to_frame(const kel_nn_box_t* candidates, int count, const kel_nn_size_t& frame_size,
                  const kel_nn_size_t& input_size, kel_nn_box_t* boxes) {
  const double longest_input_side = std::max(input_size.w, input_size.h);
  const double longest_frame_side = std::max(frame_size.w, frame_size.h);
  const float scale = static_cast<float>(longest_input_side / longest_frame_side);
  const FrameAxis x = axis_of(scale, frame_size.w, input_size.w);
  const FrameAxis y = axis_of(scale, frame_size.h, input_size.h);
  for (int i = 0; i < count; ++i) {
    boxes[i] = candidates[i];
    x.map(&boxes[i].cx, &boxes[i].w);
    y.map(&boxes[i].cy, &boxes[i].h);
  }
}

Detection detect(const GridDetector& detector, const GridMemory& memory, kel_nn_graph_t graph,
                 const void* image, const kel_nn_size_t& frame_size,
                 const kel_nn_size_t& input_size) {
  Detection detection = {};
  const ImageShape shape = {static_cast<size_t>(input_size.h), static_cast<size_t>(input_size.w),
                            /*channels=*/3};
  detection.run = run_image(graph, shape, image);
  if (!detection.run.ok()) return detection;
  GridOutputs outputs;
  for (int o = 0; o < kGridLevels; ++o) {
    const Grid grid = grid_of(input_size_of(memory.orientation), detector.levels[o].stride);
    const int anchor_count = grid.rows * grid.columns * kAnchorsPerCell;
    outputs.values[o] = output_data(graph, o, anchor_count * detector.values_per_anchor);
    if (!outputs.values[o]) return detection;
  }
  detection.complete = true;
  int count = decode_grids(detector, memory.orientation, outputs, input_size, memory.max_count,
                           memory.candidates);
  count = kel_nn_nms(memory.candidates, count, kNmsThreshold, KEL_NN_NMS_HARD);
  map_to_frame(memory.candidates, count, frame_size, input_size, memory.boxes);
  detection.result = {memory.boxes, count};
  return detection;
}

}  // namespace kelnn
