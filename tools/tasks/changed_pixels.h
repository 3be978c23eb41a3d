// Which pixels the motion filter sees change. The library keeps that to itself and only says what it
// decides; so its steps are taken once more, with OpenCV, to have something to show. Nothing is
// decided here.
#ifndef KEL_NN_TOOLS_CHANGED_PIXELS_H_
#define KEL_NN_TOOLS_CHANGED_PIXELS_H_

#include <opencv2/core.hpp>

namespace kelnn_cli {

cv::Mat luma_of(const cv::Mat& bgr);

class ChangedPixels {
 public:
  // A mask of the halved frame, 255 where it changed between the last three frames both times. Empty
  // for the first two frames, and for those after a change of size.
  cv::Mat take(const cv::Mat& luma);

 private:
  cv::Mat last_, changed_;  // the last frame, smoothed; where it differed from the one before
};

double percentage(const cv::Mat& mask);  // of pixels that are not 0

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_CHANGED_PIXELS_H_
