// SPDX-License-Identifier: Apache-2.0
#include "feature_index.h"

#include <algorithm>
#include <array>

namespace kelnn_cli {

void FeatureIndex::add(const kel_nn::Feature& feature) {
  const size_t lane = size_++ % kLanes;
  if (lane == 0) blocks_.resize(blocks_.size() + kLanes * feature.size());
  float* block = blocks_.data() + blocks_.size() - kLanes * feature.size();
  for (size_t k = 0; k < feature.size(); ++k) block[kLanes * k + lane] = feature[k];
}

FeatureIndex::Nearest FeatureIndex::nearest(const kel_nn::Feature& feature) const {
  Nearest best = {0, -2};
  for (size_t first = 0; first < size_; first += kLanes) {
    const float* block = blocks_.data() + first * feature.size();
    // A sum runs in order, as the library's does; it is the features that are taken side by side.
    std::array<float, kLanes> sums = {};
    for (size_t k = 0; k < feature.size(); ++k) {
      for (size_t lane = 0; lane < kLanes; ++lane)
        sums[lane] += feature[k] * block[kLanes * k + lane];
    }
    for (size_t lane = 0; lane < std::min(kLanes, size_ - first); ++lane) {
      if (sums[lane] > best.similarity) best = {first + lane, sums[lane]};
    }
  }
  return best;
}

}  // namespace kelnn_cli
