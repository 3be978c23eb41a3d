// What kelnn motion --draw writes: frames with their changed pixels, or all decisions in a picture.
#ifndef KEL_NN_TOOLS_MOTION_DRAWING_H_
#define KEL_NN_TOOLS_MOTION_DRAWING_H_

#include <opencv2/core.hpp>
#include <vector>

#include "motion_filter.h"

namespace kelnn_cli {

// `changed` is the mask of the halved frame, or empty. Returns a copy.
cv::Mat frame_with_changes(const cv::Mat& bgr, const cv::Mat& changed, Decision last_decision);

struct DecisionMark {
  bool is_motion;
  double changed;  // per cent
};

// A cell for each decision, red for motion, rows from the top like lines of text. The bar in it is
// the share of changed pixels; it reaches the line in the middle at `ratio`.
cv::Mat decision_strip(const std::vector<DecisionMark>& decisions, double ratio);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_MOTION_DRAWING_H_
