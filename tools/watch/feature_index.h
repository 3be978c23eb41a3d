// SPDX-License-Identifier: Apache-2.0
// Many features, and which of them is nearest: every one is compared.
#pragma once

#include <cstddef>
#include <vector>

#include "kel_nn.hpp"

namespace kelnn_cli {

class FeatureIndex {
 public:
  struct Nearest {
    size_t number;     // in the order in which they were added
    float similarity;  // as kel_nn::similarity() has it, to the bit
  };

  size_t size() const { return size_; }
  void add(const kel_nn::Feature& feature);
  Nearest nearest(const kel_nn::Feature& feature) const;  // of several the first; there must be one

 private:
  static constexpr size_t kLanes = 16;

  size_t size_ = 0;
  std::vector<float>
      blocks_;  // kLanes features each, side by side: value k of all, then value k + 1
};

}  // namespace kelnn_cli
