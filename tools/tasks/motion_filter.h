// The library's motion filter on frames.
#ifndef KEL_NN_TOOLS_MOTION_FILTER_H_
#define KEL_NN_TOOLS_MOTION_FILTER_H_

#include <opencv2/core.hpp>

#include "kel_nn.h"

namespace kelnn_cli {

struct MotionSettings {
  double ratio = 1;  // per cent
  int period = 25;   // frames
};

enum class Decision { kNotYet, kStill, kMotion };

// One at a time in the process: the library has one. Starts anew when the frames change their size.
class MotionFilter {
 public:
  explicit MotionFilter(const MotionSettings& settings);
  ~MotionFilter();
  MotionFilter(const MotionFilter&) = delete;
  MotionFilter& operator=(const MotionFilter&) = delete;

  Decision take(const cv::Mat& luma);

 private:
  MotionSettings settings_;
  kel_nn_handle_t handle_;
  cv::Size size_;  // none: not started
};

cv::Mat luma_of(const cv::Mat& bgr);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_MOTION_FILTER_H_
