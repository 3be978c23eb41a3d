// SPDX-License-Identifier: Apache-2.0
// Between OpenCV's pictures and the library's objects, and between its errors and a user.
#pragma once

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

inline cv::Rect cv_rect(const kel_nn::Rect& box) { return {box.x, box.y, box.w, box.h}; }

cv::Mat luma_of(const cv::Mat& bgr);

// What of the box lies in the picture: detectors' boxes reach out of it. Without a box, which has no width, its centre
// square. A Failure names the path.
kel_nn::Rect chosen_part(const std::string& path, const cv::Mat& picture, const kel_nn::Rect& box);

}  // namespace kelnn_cli
