// SPDX-License-Identifier: Apache-2.0
// The decoders as one would first write them: every place of the map is worked out in full. What
// the library's have to agree with, and to beat. Without capacity.
#ifndef KEL_NN_TESTS_PLAIN_DECODERS_H_
#define KEL_NN_TESTS_PLAIN_DECODERS_H_

#include <cmath>
#include <vector>

#include "kel_nn.h"

namespace kelnn_test {

inline float plain_sigmoid(float x) { return 1.0f / (expf(-x) + 1.0f); }

inline int plain_best_class(const float* scores, int class_num) {
  int best = 0;
  float best_score = scores[0];
  for (int i = 1; i < class_num; ++i) {
    if (scores[i] > best_score) {
      best_score = scores[i];
      best = i;
    }
  }
  return best;
}

inline int plain_yolov3(const float* map, int stride, const kel_nn_yolov3_param_t& p,
                        kel_nn_box_t* boxes) {
  int count = 0;
  const int grid_w = p.input_w / stride, grid_h = p.input_h / stride;
  for (int row = 0; row < grid_h; ++row) {
    for (int col = 0; col < grid_w; ++col) {
      for (int a = 0; a < p.anchor_num; ++a, map += 5 + p.class_num) {
        const int c = plain_best_class(map + 5, p.class_num);
        const float score = 1.0f / (1.0f + expf(-map[4]) * (1.0f + expf(-map[5 + c])));
        if (!(p.score_threshold <= score)) continue;
        kel_nn_box_t& box = boxes[count++];
        box.cx = float(p.img_w) * ((float(col) + plain_sigmoid(map[0])) / float(grid_w));
        box.cy = float(p.img_h) * ((float(row) + plain_sigmoid(map[1])) / float(grid_h));
        box.w = float(p.img_w) * (expf(map[2]) * float(p.anchors[2 * a]) / float(p.input_w));
        box.h = float(p.img_h) * (expf(map[3]) * float(p.anchors[2 * a + 1]) / float(p.input_h));
        box.score = score;
        box.class_id = c;
      }
    }
  }
  return count;
}

inline float plain_distance(const float* logits, int bins, int stride) {
  std::vector<float> p(logits, logits + bins);
  float maximum = p[0];
  for (float x : p) {
    if (x > maximum) maximum = x;
  }
  float sum = 0.0f, expectation = 0.0f;
  for (float& x : p) sum += x = expf(x - maximum);
  for (float& x : p) x /= sum;
  for (int k = 0; k < bins; ++k) expectation += float(k) * p[k];
  return expectation * float(stride);
}

inline int plain_centernet(const float* map, int stride, const kel_nn_centernet_param_t& p,
                           kel_nn_box_t* boxes) {
  int count = 0;
  const int bins = p.reg_max + 1;
  const float width = float(p.input_w), height = float(p.input_h);
  for (int row = 0; row < p.input_h / stride; ++row) {
    for (int col = 0; col < p.input_w / stride; ++col, map += p.class_num + 4 * bins) {
      const int c = plain_best_class(map, p.class_num);
      const float score = plain_sigmoid(map[c]);
      if (!(p.score_threshold < score)) continue;
      const float px = float((col + 0.5) * stride), py = float((row + 0.5) * stride);
      const float* side = map + p.class_num;
      float x1 = px - plain_distance(side, bins, stride);
      float y1 = py - plain_distance(side + bins, bins, stride);
      float x2 = px + plain_distance(side + 2 * bins, bins, stride);
      float y2 = py + plain_distance(side + 3 * bins, bins, stride);
      if (!(x1 > 0.0f)) x1 = 0.0f;
      if (!(y1 > 0.0f)) y1 = 0.0f;
      if (!(x2 < width)) x2 = width;
      if (!(y2 < height)) y2 = height;
      boxes[count++] = {(x1 + x2) * 0.5f * float(p.img_w) / width,
                        (y1 + y2) * 0.5f * float(p.img_h) / height,
                        float(p.img_w) * (x2 - x1) / width,
                        float(p.img_h) * (y2 - y1) / height,
                        score,
                        c};
    }
  }
  return count;
}

}  // namespace kelnn_test

#endif  // KEL_NN_TESTS_PLAIN_DECODERS_H_
