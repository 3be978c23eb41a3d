// SPDX-License-Identifier: Apache-2.0
// Cry detection: gathers 3 seconds of sound, and scores them when they are complete.
#include <cstdlib>
#include <cstring>

#include "kel_nn_audio_context.h"
#include "kel_nn_graph_run.h"
#include "kel_nn_handle.h"
#include "kel_nn_log.h"
#include "kel_nn_model_files.h"

namespace {

using kelnn::kSampleRate;

constexpr uint32_t kScoreCount = 2;  // no cry, cry
constexpr float kNotFull = -1.0f;
constexpr float kTooQuiet = 1e-5f;

struct State {  // one per process; constant-initialised, so there is no static constructor
  uint32_t sample_rate = kSampleRate;  // the last accepted; _deinit keeps it and the threshold
  float gate_threshold = 0.0f;
  int16_t* audio = nullptr;  // the window, `audio_len` samples, of which `fill` are there
  uint32_t fill = 0;
  uint32_t audio_len = 0;
  kel_nn_mfcc_t* mfcc = nullptr;
} g_state;

void release_audio() {
  std::free(g_state.audio);
  g_state.audio = nullptr;
  g_state.fill = 0;
  g_state.audio_len = 0;
}

void append(const int16_t* pcm, uint32_t n) {
  if (n == 0) return;
  std::memcpy(g_state.audio + g_state.fill, pcm, n * sizeof(int16_t));
  g_state.fill += n;
}

}  // namespace

int kel_nn_crydet_init(kel_nn_handle_t handle, uint32_t sample_rate, float gate_threshold) {
  KEL_NN_FAIL_IF(!handle, -1, "Uninitialized handle.");
  KEL_NN_FAIL_IF(sample_rate != kSampleRate, -1, "Do not support sample rate: %d.",
                 static_cast<int>(sample_rate));
  g_state.sample_rate = sample_rate;
  g_state.gate_threshold = gate_threshold;
  // An earlier _init may have left these, whether it failed or not.
  release_audio();
  kel_nn_mfcc_destory(&g_state.mfcc);

  const int created =
      kel_nn_mfcc_create(&g_state.mfcc, g_state.sample_rate, g_state.gate_threshold);
  KEL_NN_FAIL_IF(created != 0, -1, "kel_nn_mfcc_create is err!");
  const uint32_t audio_len = kelnn::samples_in_window(g_state.sample_rate, g_state.mfcc->audio_ms);
  g_state.audio = static_cast<int16_t*>(std::calloc(audio_len, sizeof(int16_t)));
  if (!g_state.audio) {
    kel_nn_mfcc_destory(&g_state.mfcc);
    KEL_NN_ERROR("Out of memory.");
    return -1;
  }
  g_state.audio_len = audio_len;
  std::printf("config.audio_len = %u with int16_t\n", audio_len);
  return kel_nne_graph_init(&handle->graph_crydet, kelnn::kCryDetectionModel, kelnn::kScrambled);
}

int kel_nn_crydet_deinit(kel_nn_handle_t handle) {
  KEL_NN_FAIL_IF(!handle, -1, "Uninitialized handle.");
  KEL_NN_FAIL_IF(kel_nn_mfcc_destory(&g_state.mfcc) != 0, -1, "kel_nn_mfcc_destory is err!");
  release_audio();
  return kel_nne_graph_deinit(&handle->graph_crydet);
}

int kel_nn_crydet_process(kel_nn_handle_t handle, const int16_t* pcm, uint32_t n, float* score) {
  KEL_NN_FAIL_IF(!handle || !pcm || !score, -1, "Invalid arguments.");
  const uint32_t room = g_state.audio_len - g_state.fill;
  if (n > room) {  // what does not fit is lost
    KEL_NN_WARNING(
        "Audio lenth cannot be divisible, audio buffer length is: %u, but input length: %u",
        g_state.audio_len, n);
  }
  append(pcm, n < room ? n : room);
  if (n < room) {
    *score = kNotFull;
    return 0;
  }

  g_state.fill = 0;
  // Without an _init there is no window, and this is what says so.
  KEL_NN_FAIL_IF(kel_nn_mfcc_process(g_state.mfcc, g_state.audio) != 0, -1,
                 "kel_nn_mfcc_process is err!");
  if (!g_state.mfcc->has_voice) {
    *score = kTooQuiet;
    return 0;
  }
  const kelnn::ImageShape shape = {static_cast<size_t>(g_state.mfcc->wave.n_frames),
                                   kelnn::kChannels, 1};
  const kel_nn_graph_t graph = &handle->graph_crydet;
  if (!kelnn::run_image(graph, shape, g_state.mfcc->feature_u8).ok()) return -1;
  float* scores = kelnn::output_data(graph, 0, kScoreCount);
  KEL_NN_FAIL_IF(!scores, -1, "Output 0 has fewer than %u values.", kScoreCount);
  kel_nn_softmax(scores, kScoreCount);
  *score = scores[1];
  return 0;
}
