// SPDX-License-Identifier: Apache-2.0
#include "library_call.h"

#include <fmt/format.h>

#include <algorithm>
#include <opencv2/imgproc.hpp>

#include "model_inspection.h"
#include "report.h"

namespace kelnn_cli {

std::string explanation(const kel_nn::Error& error) {
  const Task* task = find_task(error.task());
  if (error.kind() == kel_nn::Error::kModel && task) {
    const std::string root = kel_nn_get_model_root_dir();  // of the load that failed
    const Inspection why = inspect_model(*task, root);
    return fmt::format("{} has no model that can be used: {}\n{}\nTo do: {}", task->key, why.path,
                       why.problem, why.command);
  }
  const bool is_told = error.kind() == kel_nn::Error::kRun && error.line().empty();
  return error.what() + std::string(is_told ? ", see above" : "");
}

kel_nn::Rect chosen_part(const std::string& path, const cv::Mat& picture, const kel_nn::Rect& box) {
  if (box.w == 0) {
    const int size = std::min(picture.cols, picture.rows);
    return {(picture.cols - size) / 2, (picture.rows - size) / 2, size, size};
  }
  // Its far edges first: they need more room than an int has.
  const auto right = static_cast<int>(std::min<int64_t>(int64_t{box.x} + box.w, picture.cols));
  const auto bottom = static_cast<int>(std::min<int64_t>(int64_t{box.y} + box.h, picture.rows));
  const int left = std::max(box.x, 0), top = std::max(box.y, 0);
  if (left >= right || top >= bottom) {
    throw Failure(path, fmt::format("the box is outside the picture, which is {} x {}",
                                    picture.cols, picture.rows));
  }
  return {left, top, right - left, bottom - top};
}

cv::Mat luma_of(const cv::Mat& bgr) {
  cv::Mat luma;
  cv::cvtColor(bgr, luma, cv::COLOR_BGR2GRAY);
  return luma;
}

}  // namespace kelnn_cli
