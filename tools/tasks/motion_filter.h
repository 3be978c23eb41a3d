// The library's motion filter on frames.
#ifndef KEL_NN_TOOLS_MOTION_FILTER_H_
#define KEL_NN_TOOLS_MOTION_FILTER_H_

#include <opencv2/core.hpp>

#include "kel_nn.hpp"

namespace kelnn_cli {

struct MotionSettings {
  double ratio = 1;  // per cent
  int period = 25;   // frames
};

enum class Decision { kNotYet, kStill, kMotion };

// Starts anew when the frames change their size.
class MotionFilter {
 public:
  MotionFilter(const kel_nn::Library& library, const MotionSettings& settings);

  Decision take(const cv::Mat& luma);

 private:
  kel_nn::MotionFilter filter_;
};

cv::Mat luma_of(const cv::Mat& bgr);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_MOTION_FILTER_H_
