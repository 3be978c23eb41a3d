// SPDX-License-Identifier: Apache-2.0
// What the steps of the audio front end share: how a window is cut, and when a context has all its
// memory.
#ifndef KEL_NN_AUDIO_CONTEXT_H_
#define KEL_NN_AUDIO_CONTEXT_H_

#include "kel_nn.h"

namespace kelnn {

constexpr uint32_t kSampleRate = 16000;  // the only one that there is a network for
constexpr int32_t kWindowMs = 3000;
constexpr int32_t kFrameSize = 512;   // samples
constexpr int32_t kFrameShift = 160;  // from the start of a frame to that of the next
constexpr int32_t kChannels = 64;

// Samples in a window, in the 32 bits of the interface, which a high rate exceeds.
constexpr uint32_t samples_in_window(uint32_t sample_rate, int32_t window_ms) {
  return sample_rate * static_cast<uint32_t>(window_ms) / 1000;
}

inline bool is_complete(const kel_nn_mfcc_t& m) {
  const kel_nn_frame_cfg_t& cfg = m.cfg;
  const kel_nn_fbank_info_t& info = cfg.fbank;
  return m.feature_u8 && m.window && m.wave.samples && m.wave.features && cfg.frame &&
         cfg.fbank_out && info.cf && info.lo_chan && info.lo_wt && info.x;
}

}  // namespace kelnn

#endif  // KEL_NN_AUDIO_CONTEXT_H_
