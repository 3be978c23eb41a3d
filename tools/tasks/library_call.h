// SPDX-License-Identifier: Apache-2.0
// Between OpenCV's pictures and the library's objects, and between its errors and a user.
#ifndef KEL_NN_TOOLS_LIBRARY_CALL_H_
#define KEL_NN_TOOLS_LIBRARY_CALL_H_

#include <opencv2/core.hpp>
#include <string>

#include "kel_nn.hpp"

namespace kelnn_cli {

// Of a model that does not load: which file it is, what is wrong with it and what to do.
std::string explanation(const kel_nn::Error& error);

inline kel_nn::Frame frame_of(const cv::Mat& bgr) {
  return kel_nn::Frame::bgr(bgr.data, bgr.cols, bgr.rows, static_cast<int>(bgr.step));
}

inline kel_nn::Size size_of(const cv::Mat& picture) { return {picture.cols, picture.rows}; }

cv::Mat luma_of(const cv::Mat& bgr);

// `part`, cut off at the picture's edges, as the tasks on a cut-out take it.
kel_nn::Image grey_cut_out(const cv::Mat& bgr, const cv::Rect& part);
kel_nn::Image rgb_cut_out(const cv::Mat& bgr, const cv::Rect& part);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_LIBRARY_CALL_H_
