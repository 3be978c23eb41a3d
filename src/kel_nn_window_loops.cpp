// SPDX-License-Identifier: Apache-2.0
#include "kel_nn_window_loops.h"

#include <cmath>
#include <cstddef>

#include "kel_nn_audio_context.h"
#include "kel_nn_compiler.h"
#include "kel_nn_float_rules.h"
#include "kel_nn_truncated.h"

namespace kelnn {
namespace {

constexpr int kGateStep = 10;           // the gate hears every tenth sample
constexpr float kFeatureLimit = 28.0f;  // features beyond it are clipped
constexpr double kBytesPerFeature = 4.5714;
constexpr double kZeroByte = 128.0;

size_t value_count(int32_t row_count) {
  return row_count > 0 ? static_cast<size_t>(row_count) * kChannels : 0;
}

KEL_NN_TARGET_CLONES
void widen_values(const int16_t* pcm, float* samples, int32_t count) {
  for (int32_t i = 0; i < count; ++i) samples[i] = static_cast<float>(pcm[i]);
}

// At the limits 4.5714 gives 255.9992 and 0.0008, and so the same bytes as beyond them. Two loops,
// because GCC makes branches, and no vectors, of one.
KEL_NN_TARGET_CLONES
void quantise_values(float* features, uint8_t* bytes, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    float value = features[i];
    value = value > kFeatureLimit ? kFeatureLimit : value;
    features[i] = value > -kFeatureLimit ? value : -kFeatureLimit;  // NaN too
  }
  for (size_t i = 0; i < count; ++i) {
    bytes[i] =
        static_cast<uint8_t>(static_cast<int32_t>(features[i] * kBytesPerFeature + kZeroByte));
  }
}

}  // namespace

void widen(const int16_t* pcm, float* samples, int32_t count) { widen_values(pcm, samples, count); }

// A sum in order, in single precision; one that equals the threshold passes.
bool is_loud_enough(const float* samples, int32_t count, float threshold) {
  float sum = 0.0f;
  for (int64_t i = 0; i < count; i += kGateStep) {
    sum += static_cast<float>(truncated(std::fabs(samples[i])));
  }
  return !(sum < threshold);
}

void subtract_means(float* features, int32_t row_count) {
  float mean[kChannels] = {};
  const float* end = features + value_count(row_count);
  for (const float* row = features; row != end; row += kChannels) {
    for (int c = 0; c < kChannels; ++c) mean[c] += row[c];
  }
  for (float& sum : mean) sum /= static_cast<float>(row_count);
  for (float* row = features; row != end; row += kChannels) {
    for (int c = 0; c < kChannels; ++c) row[c] -= mean[c];
  }
}

void quantise(float* features, int32_t row_count, uint8_t* bytes) {
  quantise_values(features, bytes, value_count(row_count));
}

}  // namespace kelnn
