// SPDX-License-Identifier: Apache-2.0
// The audio context: how a window is cut into frames, the memory for all steps, the Hamming window.
// The names promise cepstra, but there are none: features are logarithms of channel energies.
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "kel_nn.h"
#include "kel_nn_audio_context.h"
#include "kel_nn_float_rules.h"
#include "kel_nn_log.h"
#include "kel_nn_rotation.h"

namespace {

using kelnn::kChannels;

constexpr float kLowestGateThreshold = 86046.0f;

// A zeroed block, also for a count of 0 or less, which odd settings can give. Null when memory is
// short.
template <typename T>
T* allocate(int64_t count) {
  if (count < 1) count = 1;
  if (static_cast<uint64_t>(count) > SIZE_MAX / sizeof(T)) return nullptr;
  return static_cast<T*>(std::calloc(static_cast<size_t>(count), sizeof(T)));
}

template <typename T>
void release(T** block) {
  std::free(*block);
  *block = nullptr;
}

// As many whole frames as fit, in the integer arithmetic of the interface.
int32_t count_frames(int32_t n_samples, int32_t frame_size, int32_t frame_shift) {
  if (frame_shift == 0) return 0;
  const int64_t count = (int64_t{n_samples} - frame_size) / frame_shift + 1;
  if (count > INT32_MAX) return INT32_MAX;
  return count < INT32_MIN ? INT32_MIN : static_cast<int32_t>(count);
}

// The angle in single precision, the rest in double.
void fill_hamming_window(float* window, int32_t size) {
  const float step = static_cast<float>(kelnn::kTwoPi / (size - 1));
  for (int32_t i = 0; i < size; ++i) {
    const float angle = static_cast<float>(i) * step;
    window[i + 1] = static_cast<float>(0.54 - std::cos(static_cast<double>(angle)) * 0.46);
  }
}

}  // namespace

int32_t kel_nn_mfcc_para_init(kel_nn_mfcc_t* m, int32_t position, int32_t frame_shift,
                              int32_t frame_size, int32_t n_samples, float gate_threshold) {
  KEL_NN_FAIL_IF(!m, -1, "kel_nn_mfcc_para_init g_mfcc is NULL.");
  m->wave.n_samples = n_samples;
  m->wave.position = position;
  m->wave.frame_shift = frame_shift;
  m->wave.frame_size = frame_size;
  m->wave.n_frames = count_frames(n_samples, frame_size, frame_shift);
  // NaN becomes the lowest, too.
  m->gate_threshold =
      gate_threshold >= kLowestGateThreshold ? gate_threshold : kLowestGateThreshold;
  return 0;
}

void* kel_nn_mfcc_mem_malloc(kel_nn_mfcc_t* m) {
  if (!m) return nullptr;
  kel_nn_wave_t& wave = m->wave;
  kel_nn_fbank_info_t& info = m->cfg.fbank;
  const int64_t size = wave.frame_size, frames = wave.n_frames;
  wave.samples = allocate<float>(wave.n_samples);
  wave.features = allocate<float>((frames + 1) * kChannels);
  info.cf = allocate<float>(kChannels + 2);
  info.lo_chan = allocate<float>(size / 2 + 1);
  info.lo_wt = allocate<float>(size / 2 + 1);
  info.x = allocate<float>(size + 1);
  // Pre-emphasis ends with element 1, also of no samples.
  m->cfg.frame = allocate<float>(std::max<int64_t>(size, 1) + 1);
  m->cfg.fbank_out = allocate<float>(kChannels + 1);
  m->window = allocate<float>(size + 1);
  m->feature_u8 = allocate<uint8_t>(frames * kChannels);
  if (!kelnn::is_complete(*m)) kel_nn_mfcc_mem_free(m);
  return m->feature_u8;
}

void kel_nn_mfcc_mem_free(kel_nn_mfcc_t* m) {
  if (!m) return;
  kel_nn_wave_t& wave = m->wave;
  kel_nn_fbank_info_t& info = m->cfg.fbank;
  release(&m->window);
  release(&m->cfg.frame);
  release(&m->cfg.fbank_out);
  release(&info.x);
  release(&info.lo_wt);
  release(&info.lo_chan);
  release(&info.cf);
  release(&wave.features);
  release(&wave.samples);
  release(&m->feature_u8);
}

int32_t kel_nn_mfcc_create(kel_nn_mfcc_t** out, uint32_t sample_rate, float gate_threshold) {
  KEL_NN_FAIL_IF(!out, -1, "kel_nn_mfcc_create g_mfcc is NULL.");
  kel_nn_mfcc_t* m = static_cast<kel_nn_mfcc_t*>(std::calloc(1, sizeof(kel_nn_mfcc_t)));
  KEL_NN_FAIL_IF(!m, -1, "Out of memory.");
  m->audio_ms = kelnn::kWindowMs;
  const uint32_t n_samples = kelnn::samples_in_window(sample_rate, m->audio_ms);
  kel_nn_mfcc_para_init(m, 0, kelnn::kFrameShift, kelnn::kFrameSize,
                        static_cast<int32_t>(n_samples), gate_threshold);
  if (!kel_nn_mfcc_mem_malloc(m)) {
    std::free(m);
    KEL_NN_ERROR("Out of memory.");
    return -1;
  }
  fill_hamming_window(m->window, m->wave.frame_size);
  m->cfg.frame_size = m->wave.frame_size;
  kel_nn_filter_bank_init(&m->cfg, &m->cfg.fbank);
  *out = m;
  return 0;
}

int32_t kel_nn_mfcc_destory(kel_nn_mfcc_t** p) {
  KEL_NN_FAIL_IF(!p, -1, "kel_nn_mfcc_destory g_mfcc is NULL.");
  kel_nn_mfcc_mem_free(*p);
  release(p);
  return 0;
}

int32_t kel_nn_mfcc_process(kel_nn_mfcc_t* m, const int16_t* pcm) {
  KEL_NN_FAIL_IF(!m || !pcm, -1, "kel_nn_mfcc_process g_mfcc or input buf is NULL.");
  m->wave.position = 0;
  KEL_NN_FAIL_IF(kel_nn_filter_bank(m, pcm) != 0, -1, "kel_nn_filter_bank is err!");
  return 0;
}
