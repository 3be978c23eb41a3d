// The windows that the cry detector cuts sound into, and what it makes of one.
#ifndef KEL_NN_TOOLS_SOUND_WINDOW_H_
#define KEL_NN_TOOLS_SOUND_WINDOW_H_

#include <cstdint>
#include <string>
#include <vector>

#include "kel_nn.hpp"
#include "sound_file.h"

namespace kelnn_cli {

constexpr int kWindowSeconds = 3;
using kel_nn::kLowestGate;
using kel_nn::kWindowSamples;

// What the library's gate compares with its threshold.
inline float loudness(const std::vector<int16_t>& window) {
  return kel_nn::loudness(window.data(), window.size());
}

// Window `index` of the sound, from 0. A Failure tells when there is none, or one that the gate
// keeps from the network; `name` is for its message.
kel_nn::SoundFeatures window_features(Sound* sound, const std::string& name, uint64_t index);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_SOUND_WINDOW_H_
