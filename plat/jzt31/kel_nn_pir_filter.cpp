// SPDX-License-Identifier: Apache-2.0
// The motion filter, which checks a PIR sensor against the picture: a frame votes for motion when
// enough pixels of the halved, smoothed picture changed twice in succession; every period the
// majority decides.
#include <cmath>

#include "kel_nn.h"
#include "kel_nn_change_counter.h"
#include "kel_nn_compiler.h"
#include "kel_nn_float_rules.h"
#include "kel_nn_log.h"
#include "kel_nn_motion_votes.h"

namespace {

// Loops over 16-bit words become vectors where there are any; else two pixels share a word.
#if KEL_NN_HAS_VECTORS
using Word = uint16_t;
#else
using Word = uint32_t;
#endif

struct State {  // one per process; constant-initialised, so there is no static constructor
  int32_t width = 640, height = 360;
  kelnn::MotionVotes votes;
  kelnn::ChangeCounter<Word> pixels;
} g_state;

KEL_NN_TARGET_CLONES uint32_t count_changed_pixels(const uint8_t* image) {
  return g_state.pixels.count(image);
}

// The product is in single precision, its hundredth in double. A count that reaches the threshold,
// which loses its fraction, is motion, and so is every count where `ratio` is negative or NaN.
bool is_motion(uint32_t changed_count, int32_t width, int32_t height, float ratio) {
  const int32_t columns = width / 2, rows = height / 2;
  const float product = static_cast<float>(columns) * ratio * static_cast<float>(rows);
  const double threshold = std::floor(static_cast<double>(product) * 0.01);
  return !(changed_count < threshold);
}

}  // namespace

KEL_NN_COLD int32_t kel_nn_pir_filter_init(kel_nn_handle_t handle, int32_t width, int32_t height) {
  KEL_NN_FAIL_IF(!handle, -1, "Uninitialized handle.");
  g_state.width = width;
  g_state.height = height;
  g_state.votes = kelnn::MotionVotes();
  g_state.pixels.allocate(width, height);
  return 0;  // without memory too: the frames report that
}

int32_t kel_nn_pir_filter_deinit(kel_nn_handle_t handle) {
  KEL_NN_FAIL_IF(!handle, -1, "Uninitialized handle.");
  g_state.pixels.release();  // and nothing else: the size still counts
  return 0;
}

int32_t kel_nn_pir_filter_process(kel_nn_handle_t handle, const uint8_t* image, int32_t width,
                                  int32_t height, float ratio, int32_t period, int32_t* result) {
  KEL_NN_FAIL_IF(!handle || !image || !result, -1, "input arguments.");
  KEL_NN_FAIL_IF(width != g_state.width || height != g_state.height, -1, "input w,h arguments.");
  // Smoothing and differences are one pass, but missing memory is told stage by stage.
  const bool can_smooth = g_state.pixels.has_row_buffers(), can_diff = g_state.pixels.has_history();
  if (!can_smooth) KEL_NN_ERROR_OF("kel_nn_gaussian_filter", "imput params is err.");
  KEL_NN_FAIL_IF(!can_smooth, -1, "kel_nn_gaussianFilter is err!");
  const uint32_t changed_count = can_diff ? count_changed_pixels(image) : 0;

  g_state.votes.begin_frame();
  if (!g_state.votes.can_vote()) return 0;  // `result` stays as it is
  if (!can_diff) KEL_NN_ERROR_OF("kel_nn_diff", "imput params is err.");
  KEL_NN_FAIL_IF(!can_diff, -1, "kel_nn_diff is err!");
  const bool motion = is_motion(changed_count, width, height, ratio);
  *result = g_state.votes.vote(motion, period);
  return 0;
}
