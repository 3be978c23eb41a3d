#include "motion_drawing.h"

#include <opencv2/imgproc.hpp>

#include "drawing.h"

namespace kelnn_cli {
namespace {

const cv::Scalar kChanged(40, 40, 255);             // blue, green, red
constexpr int kMotionColour = 1, kStillColour = 0;  // of draw_box()

}  // namespace

cv::Mat frame_with_changes(const cv::Mat& bgr, const cv::Mat& changed,
                           std::optional<bool> is_motion) {
  cv::Mat drawn = bgr.clone();
  if (!changed.empty()) {
    const cv::Rect covered(0, 0, 2 * changed.cols, 2 * changed.rows);  // an odd edge is not seen
    cv::Mat mask;
    cv::resize(changed, mask, covered.size(), 0, 0, cv::INTER_NEAREST);
    drawn(covered).setTo(kChanged, mask);
  }
  if (!is_motion) return drawn;
  draw_box(&drawn, cv::Rect({}, drawn.size()), *is_motion ? "motion" : "still",
           *is_motion ? kMotionColour : kStillColour);
  return drawn;
}

}  // namespace kelnn_cli
