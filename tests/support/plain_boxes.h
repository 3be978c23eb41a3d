// SPDX-License-Identifier: Apache-2.0
// Overlap and suppression of boxes as one would first write them: the twin of what the library does
// in less time. For tests (same bits) and benchmarks (less time).
#ifndef KEL_NN_TESTS_PLAIN_BOXES_H_
#define KEL_NN_TESTS_PLAIN_BOXES_H_

#include <algorithm>
#include <cmath>
#include <vector>

#include "kel_nn.h"

namespace kelnn_test {

inline float plain_iou(const kel_nn_box_t& a, const kel_nn_box_t& b) {
  const float ax1 = a.cx - a.w * 0.5f + 0.5f, ax2 = a.cx + a.w * 0.5f + 0.5f;
  const float ay1 = a.cy - a.h * 0.5f + 0.5f, ay2 = a.cy + a.h * 0.5f + 0.5f;
  const float bx1 = b.cx - b.w * 0.5f + 0.5f, bx2 = b.cx + b.w * 0.5f + 0.5f;
  const float by1 = b.cy - b.h * 0.5f + 0.5f, by2 = b.cy + b.h * 0.5f + 0.5f;
  const float ih = std::min(ay2, by2) - std::max(ay1, by1);
  if (ih <= 0) return 0;
  const float iw = std::min(ax2, bx2) - std::max(ax1, bx1);
  if (iw <= 0) return 0;
  const float inter = ih * iw;
  return inter / (a.w * a.h + b.w * b.h - inter);
}

inline int plain_nms(kel_nn_box_t* boxes, int count, float iou_threshold, bool weighted) {
  std::stable_sort(boxes, boxes + count,
                   [](const kel_nn_box_t& a, const kel_nn_box_t& b) { return a.score > b.score; });
  std::vector<char> taken(count);
  std::vector<kel_nn_box_t> group(count), kept;
  for (int i = 0; i < count; ++i) {
    if (taken[i]) continue;
    int size = 0;
    group[size++] = boxes[i];
    for (int j = i + 1; j < count; ++j) {
      if (taken[j] || !(iou_threshold < plain_iou(boxes[i], boxes[j]))) continue;
      taken[j] = 1;
      group[size++] = boxes[j];
    }
    kel_nn_box_t out = group[0];
    if (weighted) {
      float total = 0;
      for (int s = 0; s < size; ++s) total += std::exp(group[s].score);
      const float weight = std::exp(group[i].score) / total;
      out = {};
      for (int s = 0; s < size; ++s) {
        out.cx += weight * group[s].cx;
        out.cy += weight * group[s].cy;
        out.w += weight * group[s].w;
        out.h += weight * group[s].h;
        out.score += weight * group[s].score;
      }
    }
    kept.push_back(out);
  }
  std::copy(kept.begin(), kept.end(), boxes);
  return static_cast<int>(kept.size());
}

}  // namespace kelnn_test

#endif  // KEL_NN_TESTS_PLAIN_BOXES_H_
