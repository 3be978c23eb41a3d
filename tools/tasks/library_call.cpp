// SPDX-License-Identifier: Apache-2.0
#include "library_call.h"

#include <fmt/format.h>

#include <opencv2/imgproc.hpp>

#include "model_inspection.h"

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

cv::Mat luma_of(const cv::Mat& bgr) {
  cv::Mat luma;
  cv::cvtColor(bgr, luma, cv::COLOR_BGR2GRAY);
  return luma;
}

}  // namespace kelnn_cli
