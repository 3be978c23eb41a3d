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

// The two stages report under their own names, which is why they have them. They are one pass: the
// first also takes the differences, as far as there is a history to take them from.
bool kel_nn_gaussian_filter(const uint8_t* image, uint32_t* changed_count) {
  KEL_NN_FAIL_IF(!g_state.pixels.has_row_buffers(), false, "imput params is err.");
  if (g_state.pixels.has_history()) *changed_count = count_changed_pixels(image);
  return true;
}

bool kel_nn_diff() {
  KEL_NN_FAIL_IF(!g_state.pixels.has_history(), false, "imput params is err.");
  return true;
}

// The product is in single precision, its hundredth in double. A count that reaches the threshold
// is motion, and so is every count where `ratio` is NaN.
bool is_motion(uint32_t changed_count, int32_t width, int32_t height, float ratio) {
  const int32_t columns = width / 2, rows = height / 2;
  const float product = static_cast<float>(columns) * ratio * static_cast<float>(rows);
  const double threshold = std::trunc(static_cast<double>(product) * 0.01);
  return !(changed_count < threshold);
}

}  // namespace

int32_t kel_nn_pir_filter_init(kel_nn_handle_t handle, int32_t width, int32_t height) {
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
  uint32_t changed_count = 0;
  const bool smoothed = kel_nn_gaussian_filter(image, &changed_count);
  KEL_NN_FAIL_IF(!smoothed, -1, "kel_nn_gaussianFilter is err!");

  g_state.votes.begin_frame();
  if (!g_state.votes.can_vote()) return 0;  // `result` stays as it is
  KEL_NN_FAIL_IF(!kel_nn_diff(), -1, "kel_nn_diff is err!");
  const bool motion = is_motion(changed_count, width, height, ratio);
  *result = g_state.votes.vote(motion, period);
  return 0;
}
