// SPDX-License-Identifier: Apache-2.0
// The detectors' decoders as one would first write them, from outputs to candidates and from
// candidates to the frame. For tests (same bits) and benchmarks (less time).
#ifndef KEL_NN_TESTS_PLAIN_DETECTORS_H_
#define KEL_NN_TESTS_PLAIN_DETECTORS_H_

#include <algorithm>
#include <cmath>
#include <vector>

#include "kel_nn.h"

namespace kelnn_test {

// ----- Faces -------------------------------------------------------------------------------------

constexpr int kFaceAnchorCounts[4] = {40 * 30 * 3, 20 * 15 * 2, 10 * 8 * 2, 5 * 4 * 3};

struct PlainAnchor {
  float cx, cy, w, h;
};

inline std::vector<PlainAnchor> plain_face_anchors() {
  const int strides[4] = {8, 16, 32, 64};
  const std::vector<int> sizes[4] = {{10, 16, 24}, {32, 48}, {64, 96}, {128, 192, 256}};
  const auto unit = [](float x) { return std::min(std::max(x, 0.0f), 1.0f); };
  std::vector<PlainAnchor> anchors;
  for (int l = 0; l < 4; ++l) {
    const int columns = static_cast<int>(std::ceil(320.0 / strides[l]));
    const int rows = static_cast<int>(std::ceil(240.0 / strides[l]));
    for (int j = 0; j < rows; ++j) {
      for (int i = 0; i < columns; ++i) {
        for (int s : sizes[l]) {
          anchors.push_back({unit((i + 0.5) / columns), unit((j + 0.5) / rows), unit(s / 320.0f),
                             unit(s / 240.0f)});
        }
      }
    }
  }
  return anchors;
}

// `scores[l]` and `regressions[l]` are the outputs of level l; the scores become probabilities.
inline int plain_decode_faces(const std::vector<PlainAnchor>& anchors, float* const scores[4],
                              const float* const regressions[4], int width, int height,
                              kel_nn_box_t* boxes) {
  const auto unit = [](float x) { return x < 0 ? 0 : x > 1 ? 1 : x; };
  const PlainAnchor* a = anchors.data();
  int count = 0;
  for (int l = 0; l < 4; ++l) {
    for (int k = 0; k < kFaceAnchorCounts[l]; ++k, ++a) {
      float* p = scores[l] + 2 * k;
      const float* d = regressions[l] + 4 * k;
      float sum = 0;
      for (int c = 0; c < 2; ++c) sum += p[c] = std::exp(p[c]);
      for (int c = 0; c < 2; ++c) p[c] /= sum;
      if (p[1] > 0.8f && count < 100) {
        kel_nn_box_t& box = boxes[count++];
        box.cx = width * unit(a->cx + d[0] * 0.1f * a->w);
        box.cy = height * unit(a->cy + d[1] * 0.1f * a->h);
        box.w = width * unit(std::exp(d[2] * 0.2f) * a->w);
        box.h = height * unit(std::exp(d[3] * 0.2f) * a->h);
        box.score = unit(p[1]);
      }
    }
  }
  return count;
}

// ----- Anchor grids ------------------------------------------------------------------------------

struct PlainGrid {
  float anchors[2][3][2];  // coarse grid first; width, height
  int values_per_anchor, class_count, max_boxes;
};

constexpr PlainGrid kPlainPersons = {
    {{{64, 187}, {123, 211}, {227, 264}}, {{7, 17}, {20, 50}, {45, 99}}}, 6, 0, 100};
constexpr PlainGrid kPlainFourClasses = {
    {{{68, 52}, {74, 118}, {140, 155}}, {{24, 18}, {37, 36}, {41, 76}}}, 9, 4, 500};

// `network` is the size that was chosen at initialisation, `input` the size that the caller gives.
inline int plain_decode_grids(const PlainGrid& detector, const kel_nn_size_t& network,
                              const float* const outputs[2], const kel_nn_size_t& input,
                              kel_nn_box_t* candidates) {
  const auto sigmoid = [](double v) { return static_cast<float>(1 / (1 + std::exp(-v))); };
  int count = 0;
  for (int o = 0; o < 2; ++o) {
    const float stride = o == 0 ? 32.0f : 16.0f;
    const int grid_w = static_cast<int>(std::ceil(static_cast<float>(network.w) / stride));
    const int grid_h = static_cast<int>(std::ceil(static_cast<float>(network.h) / stride));
    const float w = static_cast<float>(input.w), h = static_cast<float>(input.h);
    const int n = detector.values_per_anchor;
    for (int r = 0; r < grid_h; ++r) {
      for (int q = 0; q < grid_w; ++q) {
        for (int k = 0; k < 3; ++k) {
          const float* v = outputs[o] + (r * grid_w + q) * 3 * n + k * n;
          const float x = sigmoid(v[0]), y = sigmoid(v[1]), score = sigmoid(v[4]);
          const double exp_w = std::exp(static_cast<double>(v[2]));
          const double exp_h = std::exp(static_cast<double>(v[3]));
          if (!(score >= 0.3f) || count >= detector.max_boxes) continue;
          kel_nn_box_t& box = candidates[count++];
          box.cx = w * ((x + q) / grid_w);
          box.cy = h * ((y + r) / grid_h);
          box.w = w * static_cast<float>(exp_w * (detector.anchors[o][k][0] / w));
          box.h = h * static_cast<float>(exp_h * (detector.anchors[o][k][1] / h));
          box.score = score;
          box.class_id = 0;
          for (int c = detector.class_count - 1; c >= 0; --c) {
            bool best = true;
            for (int other = 0; other < detector.class_count; ++other) {
              if (other != c && !(v[5 + c] >= v[5 + other])) best = false;
            }
            if (best) box.class_id = c;
          }
        }
      }
    }
  }
  return count;
}

// For coordinates that fit an int.
inline kel_nn_box_t plain_map_to_frame(const kel_nn_box_t& box, const kel_nn_size_t& frame,
                                       const kel_nn_size_t& input) {
  const double longest_input = std::max(input.w, input.h);
  const double longest_frame = std::max(frame.w, frame.h);
  const float s = static_cast<float>(longest_input / longest_frame);
  const float pad_x = (input.w - s * frame.w) * 0.5f, pad_y = (input.h - s * frame.h) * 0.5f;
  const int bw = std::min(static_cast<int>(box.w / s), frame.w);
  const int bh = std::min(static_cast<int>(box.h / s), frame.h);
  const int mx = std::max(static_cast<int>((box.cx - pad_x) / s), 0);
  const int my = std::max(static_cast<int>((box.cy - pad_y) / s), 0);
  int x1 = static_cast<int>(mx - bw * 0.5), x2 = static_cast<int>(mx + bw * 0.5);
  int y1 = static_cast<int>(my - bh * 0.5), y2 = static_cast<int>(my + bh * 0.5);
  if (x1 <= 0) x1 = 1;
  if (y1 <= 0) y1 = 1;
  if (x2 >= frame.w) x2 = frame.w - 1;
  if (y2 >= frame.h) y2 = frame.h - 1;
  return {static_cast<float>(static_cast<int>((x1 + x2) * 0.5)),
          static_cast<float>(static_cast<int>((y1 + y2) * 0.5)),
          static_cast<float>(x2 - x1),
          static_cast<float>(y2 - y1),
          box.score,
          box.class_id};
}

}  // namespace kelnn_test

#endif  // KEL_NN_TESTS_PLAIN_DETECTORS_H_
