// What was found, drawn into a picture.
#ifndef KEL_NN_TOOLS_DRAWING_H_
#define KEL_NN_TOOLS_DRAWING_H_

#include <opencv2/core.hpp>
#include <optional>
#include <string>

namespace kelnn_cli {

// `colour` tells kinds of boxes apart: any number, 0 and up. Lines and letters grow with the picture.
void draw_box(cv::Mat* bgr, const cv::Rect& box, const std::string& label, int colour);

// A copy of the frame with what the motion filter saw: `changed` is the mask of the halved frame, or
// empty; `is_motion` is the last decision.
cv::Mat frame_with_changes(const cv::Mat& bgr, const cv::Mat& changed,
                           std::optional<bool> is_motion);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_DRAWING_H_
