// A part of a picture or frame as a task wants it: cut out and scaled by the kit, as a camera would.
#ifndef KEL_NN_TOOLS_CUT_OUT_H_
#define KEL_NN_TOOLS_CUT_OUT_H_

#include <opencv2/core.hpp>

#include "files.h"

namespace kelnn_cli {

constexpr int kCutOutSize = 112;

// 112 x 112 bytes, or three times that, red first. `part` is cut off at the picture's edges.
Bytes grey_cut_out(const cv::Mat& bgr, const cv::Rect& part);
Bytes rgb_cut_out(const cv::Mat& bgr, const cv::Rect& part);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_CUT_OUT_H_
