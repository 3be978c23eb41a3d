#include "motion_filter.h"

#include <opencv2/imgproc.hpp>

#include "report.h"

namespace kelnn_cli {

MotionFilter::MotionFilter(const MotionSettings& settings)
    : settings_(settings), handle_(kel_nn_handle_create()) {
  if (!handle_) throw Failure("out of memory");
}

MotionFilter::~MotionFilter() {
  kel_nn_pir_filter_deinit(handle_);
  kel_nn_handle_destroy(handle_);
}

Decision MotionFilter::take(const cv::Mat& luma) {
  if (luma.size() != size_) {
    kel_nn_pir_filter_init(handle_, luma.cols, luma.rows);
    size_ = luma.size();
  }
  const cv::Mat plane = luma.isContinuous() ? luma : luma.clone();
  int32_t result = -1;
  if (kel_nn_pir_filter_process(handle_, plane.data, plane.cols, plane.rows,
                                static_cast<float>(settings_.ratio), settings_.period,
                                &result) != 0) {
    throw Failure("the motion filter failed, see above");
  }
  if (result < 0) return Decision::kNotYet;
  return result == 1 ? Decision::kMotion : Decision::kStill;
}

cv::Mat luma_of(const cv::Mat& bgr) {
  cv::Mat luma;
  cv::cvtColor(bgr, luma, cv::COLOR_BGR2GRAY);
  return luma;
}

}  // namespace kelnn_cli
