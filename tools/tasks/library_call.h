// SPDX-License-Identifier: Apache-2.0
// Between OpenCV's pictures and the library's objects, and between its errors and a user.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "detection.h"
#include "kel_nn.hpp"

namespace kelnn_cli {

// Of a model that does not load: which file it is, what is wrong with it and what to do.
std::string explanation(const kel_nn::Error& error);

inline kel_nn::Frame frame_of(const cv::Mat& bgr) {
  return kel_nn::Frame::bgr(bgr.data, bgr.cols, bgr.rows, static_cast<int>(bgr.step));
}

inline kel_nn::Size size_of(const cv::Mat& picture) { return {picture.cols, picture.rows}; }

inline kel_nn::Rect rect_of(const cv::Rect& box) { return {box.x, box.y, box.width, box.height}; }

cv::Mat luma_of(const cv::Mat& bgr);

// What a detector finds, best score first.
template <typename Task>
std::vector<Detection> found_in(const cv::Mat& bgr, Task* task) {
  std::vector<Detection> found;
  for (const auto& [box, score, class_id] : task->detect(frame_of(bgr))) {
    found.push_back({{box.x, box.y, box.w, box.h}, score, class_id});
  }
  return found;
}

}  // namespace kelnn_cli
