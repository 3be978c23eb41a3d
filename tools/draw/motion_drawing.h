// What kelnn motion --draw writes: frames with their changed pixels.
#ifndef KEL_NN_TOOLS_MOTION_DRAWING_H_
#define KEL_NN_TOOLS_MOTION_DRAWING_H_

#include <opencv2/core.hpp>
#include <optional>

namespace kelnn_cli {

// `changed` is the mask of the halved frame, or empty. Returns a copy.
cv::Mat frame_with_changes(const cv::Mat& bgr, const cv::Mat& changed,
                           std::optional<bool> is_motion);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_MOTION_DRAWING_H_
