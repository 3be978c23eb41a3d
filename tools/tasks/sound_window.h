// SPDX-License-Identifier: Apache-2.0
// The windows that the cry detector cuts sound into, and what it hears in one.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "kel_nn.hpp"
#include "sound_file.h"

namespace kelnn_cli {

constexpr int kWindowSeconds = 3;
using kel_nn::kLowestGate;
using kel_nn::kWindowSamples;

// The sound's next window, or what is left of it at its end.
inline std::vector<int16_t> next_window(Sound* sound) {
  std::vector<int16_t> window(kWindowSamples);
  window.resize(sound->read(window.data(), window.size()));
  return window;
}

// What the library's gate compares with its threshold.
inline float loudness(const std::vector<int16_t>& window) {
  return kel_nn::loudness(window.data(), window.size());
}

// Of a whole window that comes after another one.
inline float cry_probability(const std::vector<int16_t>& window, kel_nn::CryDetector* detector) {
  float probability = 0;
  detector->add(window.data(), window.size(), [&](float heard) { probability = heard; });
  return probability;
}

inline bool is_loud_enough(const std::vector<int16_t>& window, float gate) {
  return !(loudness(window) < std::max(gate, kLowestGate));
}

}  // namespace kelnn_cli
