#include "motion_filter.h"

#include <opencv2/imgproc.hpp>

#include "library_call.h"

namespace kelnn_cli {

MotionFilter::MotionFilter(const kel_nn::Library& library, const MotionSettings& settings)
    : filter_(library, static_cast<float>(settings.ratio), settings.period) {}

Decision MotionFilter::take(const cv::Mat& luma) {
  const cv::Mat plane = luma.isContinuous() ? luma : luma.clone();
  const std::optional<bool> is_motion =
      explained("", [&] { return filter_.take(plane.data, size_of(plane)); });
  if (!is_motion) return Decision::kNotYet;
  return *is_motion ? Decision::kMotion : Decision::kStill;
}

cv::Mat luma_of(const cv::Mat& bgr) {
  cv::Mat luma;
  cv::cvtColor(bgr, luma, cv::COLOR_BGR2GRAY);
  return luma;
}

}  // namespace kelnn_cli
