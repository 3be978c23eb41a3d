// SPDX-License-Identifier: Apache-2.0
// What the detectors' networks play in tests: they find nothing, until a test puts something in.
#ifndef KEL_NN_TESTS_NETWORKS_H_
#define KEL_NN_TESTS_NETWORKS_H_

#include <vector>

#include "support/plain_detectors.h"

namespace kelnn_test {

// The eight outputs, in level order: two scores, then four regression values for each anchor.
struct FaceNetwork {
  std::vector<std::vector<float>> outputs;

  FaceNetwork() {
    for (int count : kFaceAnchorCounts) {
      for (int values : {2, 4}) outputs.emplace_back(values * count);
    }
  }
  std::vector<float>& scores(int level) { return outputs[2 * level]; }
  float* regression(int level, int anchor) { return &outputs[2 * level + 1][4 * anchor]; }
  void set_face(int level, int anchor, float logit = 10.0f) {
    scores(level)[2 * anchor + 1] = logit;
  }
};

// The two outputs for an input of that size, the coarse grid first.
struct GridNetwork {
  kel_nn_size_t input;
  int values_per_anchor;
  std::vector<std::vector<float>> outputs;

  GridNetwork(int values_per_anchor, const kel_nn_size_t& input)
      : input(input), values_per_anchor(values_per_anchor) {
    for (int stride : {32, 16}) {
      outputs.emplace_back((input.w / stride) * (input.h / stride) * 3 * values_per_anchor);
    }
    for_each_anchor([](float* values) { values[4] = -20.0f; });
  }
  template <typename Change>
  void for_each_anchor(Change change) {
    for (auto& output : outputs) {
      for (size_t i = 0; i < output.size(); i += values_per_anchor) change(&output[i]);
    }
  }
  float* anchor(int output, int row, int column, int index) {
    const int columns = input.w / (output == 0 ? 32 : 16);
    return &outputs[output][((row * columns + column) * 3 + index) * values_per_anchor];
  }
};

}  // namespace kelnn_test

#endif  // KEL_NN_TESTS_NETWORKS_H_
