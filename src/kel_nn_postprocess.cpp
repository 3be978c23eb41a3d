// SPDX-License-Identifier: Apache-2.0
// Decoders: boxes from the output map of a YOLOv3 or CenterNet head of one scale.
//
// Nearly all places of a map hold nothing. They are turned away by one comparison with a logit that
// no place above the threshold lies below; the few others take the exact way.
#include <cmath>
#include <limits>

#include "kel_nn.h"
#include "kel_nn_compiler.h"
#include "kel_nn_float_rules.h"
#include "kel_nn_log.h"

namespace {

// A logit below which 1 / (1 + expf(-logit)) stays below the threshold, -infinity if none is known.
// It lies lower than the exact one by far more than expf() and the roundings can be off, which
// holds as long as the threshold is not next to 1.
float safe_logit_floor(float threshold) {
  constexpr double kMargin = 0.01;
  if (!(threshold >= 1e-30f && threshold <= 0.999f)) return -std::numeric_limits<float>::infinity();
  return static_cast<float>(-std::log(1.0 / threshold - 1.0) - kMargin);
}

// The cells of a map, or none when the parameters make no grid or memory could not hold the map.
struct Grid {
  int columns, rows;
  size_t cell_count;
};
Grid grid_of(int input_w, int input_h, int stride, uint64_t values_per_cell) {
  constexpr Grid kNone = {0, 0, 0};
  if (stride == 0) return kNone;
  const int64_t columns = int64_t{input_w} / stride, rows = int64_t{input_h} / stride;
  if (columns < 1 || rows < 1 || columns > INT32_MAX || rows > INT32_MAX) return kNone;
  const uint64_t cell_count = static_cast<uint64_t>(columns) * static_cast<uint64_t>(rows);
  if (values_per_cell > PTRDIFF_MAX / sizeof(float) / cell_count) return kNone;
  return {static_cast<int>(columns), static_cast<int>(rows), static_cast<size_t>(cell_count)};
}

// The first of the largest scores. A score that is not a number is never larger than another.
int best_class(const float* scores, int class_num) {
  // With many classes, the largest of every eighth is found first: eight at a time.
  constexpr int kLanes = 8;
  float largest[kLanes];
  for (float& lane : largest) lane = scores[0];
  int i = 0;
  for (; i + kLanes <= class_num; i += kLanes) {
    for (int lane = 0; lane < kLanes; ++lane) {
      largest[lane] = scores[i + lane] > largest[lane] ? scores[i + lane] : largest[lane];
    }
  }
  float best = largest[0];
  for (float lane : largest) best = lane > best ? lane : best;
  for (; i < class_num; ++i) best = scores[i] > best ? scores[i] : best;
  // Where class 0 is not a number it wins, and no score equals it.
  for (int c = 0; c < class_num; ++c) {
    if (scores[c] == best) return c;
  }
  return 0;
}

// The first cell from `cell` on with a class score that reaches the floor, or the cell count. Within
// a cell there is no early way out, so that many scores are compared at a time.
KEL_NN_TARGET_CLONES size_t next_candidate(const float* map, size_t values_per_cell, int class_num,
                                           float floor, size_t cell, size_t cell_count) {
  for (; cell < cell_count; ++cell) {
    const float* const scores = map + cell * values_per_cell;
    unsigned reached = 0;
    for (int i = 0; i < class_num; ++i) reached |= scores[i] >= floor ? 1u : 0u;
    if (reached) break;
  }
  return cell;
}

// The mean of 0, 1, 2 ... weighted with the softmax of the logits, rounded as kel_nn_softmax() and
// a sum of products round it. Exponentials that the buffer has no room for are taken again.
float expected_bin(const float* logits, size_t count) {
  constexpr size_t kBuffered = 64;
  float weights[kBuffered];
  const size_t buffered = count < kBuffered ? count : kBuffered;

  float largest = logits[0];
  for (size_t i = 1; i < count; ++i) {
    if (logits[i] > largest) largest = logits[i];
  }
  const auto weight = [logits, largest](size_t i) { return std::exp(logits[i] - largest); };
  float sum = 0.0f;
  for (size_t i = 0; i < buffered; ++i) sum += weights[i] = weight(i);
  for (size_t i = buffered; i < count; ++i) sum += weight(i);

  float mean = 0.0f;
  for (size_t i = 0; i < buffered; ++i) weights[i] /= sum;
  for (size_t i = 0; i < buffered; ++i) mean += static_cast<float>(i) * weights[i];
  for (size_t i = buffered; i < count; ++i) mean += static_cast<float>(i) * (weight(i) / sum);
  return mean;
}

#define KEL_NN_WARN_OF_CAPACITY(boxes_num)                                            \
  KEL_NN_WARNING(                                                                     \
      "The number of predict bounding boxes are more than dest_boxes_num: %d, early " \
      "stoped, some boxes may missing.",                                              \
      static_cast<int>(boxes_num))

}  // namespace

int kel_nn_yolov3_postprocess(const float* map, int stride, const kel_nn_yolov3_param_t* param,
                              kel_nn_box_t* boxes, uint32_t boxes_num) {
  if (!map || !param || !param->anchors || !boxes) return 0;
  if (param->class_num < 1 || param->anchor_num < 1) return 0;
  const size_t anchor_num = static_cast<size_t>(param->anchor_num);
  const uint64_t values_per_anchor = 5 + static_cast<uint64_t>(param->class_num);
  const Grid grid = grid_of(param->input_w, param->input_h, stride, values_per_anchor * anchor_num);
  const float img_w = static_cast<float>(param->img_w), img_h = static_cast<float>(param->img_h);
  const float input_w = static_cast<float>(param->input_w);
  const float input_h = static_cast<float>(param->input_h);
  // The class can only lower the score.
  const float objectness_floor = safe_logit_floor(param->score_threshold);

  uint32_t count = 0;
  for (size_t i = 0; i < grid.cell_count * anchor_num; ++i) {
    const float* const entry = map + i * static_cast<size_t>(values_per_anchor);
    const float objectness = entry[4];
    if (!(objectness >= objectness_floor)) continue;  // nor does NaN make a score
    const int class_id = best_class(entry + 5, param->class_num);
    // Not the product of two sigmoids. Keep it.
    const float score =
        1.0f / (1.0f + std::exp(-objectness) * (1.0f + std::exp(-entry[5 + class_id])));
    if (!(param->score_threshold <= score)) continue;

    const size_t cell = i / anchor_num, row_of_cell = cell / static_cast<size_t>(grid.columns);
    const float column = static_cast<float>(cell % static_cast<size_t>(grid.columns));
    const float row = static_cast<float>(row_of_cell);
    const int32_t* const anchor = param->anchors + 2 * (i % anchor_num);
    kel_nn_box_t& box = boxes[count];
    box.cx = img_w * ((column + kel_nn_sigmoid(entry[0])) / static_cast<float>(grid.columns));
    box.cy = img_h * ((row + kel_nn_sigmoid(entry[1])) / static_cast<float>(grid.rows));
    box.w = img_w * (std::exp(entry[2]) * static_cast<float>(anchor[0]) / input_w);
    box.h = img_h * (std::exp(entry[3]) * static_cast<float>(anchor[1]) / input_h);
    box.score = score;
    box.class_id = class_id;
    if (++count >= boxes_num) {  // after writing: the warning means that the array is full
      KEL_NN_WARN_OF_CAPACITY(boxes_num);
      return static_cast<int>(count);
    }
  }
  return static_cast<int>(count);
}

int kel_nn_centernet_postprocess(const float* map, int stride,
                                 const kel_nn_centernet_param_t* param, kel_nn_box_t* boxes,
                                 uint32_t boxes_num) {
  if (!map || !param || !boxes) return 0;
  if (param->class_num < 1 || param->reg_max < 0) return 0;
  const size_t class_num = static_cast<size_t>(param->class_num);
  const uint64_t bins_per_side = static_cast<uint64_t>(param->reg_max) + 1;
  const Grid grid = grid_of(param->input_w, param->input_h, stride, class_num + 4 * bins_per_side);
  const size_t bin_count = static_cast<size_t>(bins_per_side);
  const size_t values_per_cell = class_num + 4 * bin_count;
  const float img_w = static_cast<float>(param->img_w), img_h = static_cast<float>(param->img_h);
  const float input_w = static_cast<float>(param->input_w);
  const float input_h = static_cast<float>(param->input_h);
  const float pixels = static_cast<float>(stride);
  const float score_floor = safe_logit_floor(param->score_threshold);

  uint32_t count = 0;
  for (size_t cell = 0;; ++cell) {
    cell =
        next_candidate(map, values_per_cell, param->class_num, score_floor, cell, grid.cell_count);
    if (cell >= grid.cell_count) break;
    const float* const scores = map + cell * values_per_cell;
    const int class_id = best_class(scores, param->class_num);
    const float score = kel_nn_sigmoid(scores[class_id]);
    if (!(param->score_threshold < score)) continue;
    if (count >= boxes_num) {  // before writing: the warning means that a box is lost
      KEL_NN_WARN_OF_CAPACITY(boxes_num);
      return static_cast<int>(count);
    }

    const size_t column = cell % static_cast<size_t>(grid.columns);
    const size_t row = cell / static_cast<size_t>(grid.columns);
    const float px = static_cast<float>((static_cast<double>(column) + 0.5) * stride);
    const float py = static_cast<float>((static_cast<double>(row) + 0.5) * stride);
    const float* const sides = scores + class_num;  // left, top, right, bottom
    float x1 = px - expected_bin(sides, bin_count) * pixels;
    float y1 = py - expected_bin(sides + bin_count, bin_count) * pixels;
    float x2 = px + expected_bin(sides + 2 * bin_count, bin_count) * pixels;
    float y2 = py + expected_bin(sides + 3 * bin_count, bin_count) * pixels;
    x1 = x1 > 0.0f ? x1 : 0.0f;  // the comparisons send NaN to the edge
    y1 = y1 > 0.0f ? y1 : 0.0f;
    x2 = x2 < input_w ? x2 : input_w;
    y2 = y2 < input_h ? y2 : input_h;
    kel_nn_box_t& box = boxes[count++];
    box.cx = (x1 + x2) * 0.5f * img_w / input_w;
    box.cy = (y1 + y2) * 0.5f * img_h / input_h;
    box.w = img_w * (x2 - x1) / input_w;
    box.h = img_h * (y2 - y1) / input_h;
    box.score = score;
    box.class_id = class_id;
  }
  return static_cast<int>(count);
}
