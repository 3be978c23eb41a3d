// The windows that the cry detector cuts sound into, and what it makes of one.
#ifndef KEL_NN_TOOLS_SOUND_WINDOW_H_
#define KEL_NN_TOOLS_SOUND_WINDOW_H_

#include <cstdint>
#include <string>
#include <vector>

#include "feature_matrix.h"
#include "sound_file.h"

namespace kelnn_cli {

constexpr int kWindowSeconds = 3;
constexpr uint32_t kWindowSamples = kWindowSeconds * kSoundRate;
constexpr float kLowestGate = 86046.0f;  // what the library raises lower thresholds to

// What the library's gate compares with its threshold: the sizes of every tenth sample, added up.
float loudness(const std::vector<int16_t>& window);

// Window `index` of the sound, from 0. A Failure tells when there is none, or one that the gate
// keeps from the network; `name` is for its message.
FeatureMatrix window_features(Sound* sound, const std::string& name, uint64_t index);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_SOUND_WINDOW_H_
