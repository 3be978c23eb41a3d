// SPDX-License-Identifier: Apache-2.0
#include "library_call.h"

#include <fmt/format.h>

#include <opencv2/imgproc.hpp>

#include "model_inspection.h"

namespace kelnn_cli {
namespace {

kel_nn::Image cut_out(const cv::Mat& bgr, const cv::Rect& part, kel_nn::Format format) {
  kel_nn::Image image(kel_nn::kCropSize, format);
  image.crop(frame_of(bgr), {part.x, part.y, part.width, part.height});
  return image;
}

}  // namespace

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

kel_nn::Image grey_cut_out(const cv::Mat& bgr, const cv::Rect& part) {
  return cut_out(bgr, part, KEL_NN_KIT_GREY);
}

kel_nn::Image rgb_cut_out(const cv::Mat& bgr, const cv::Rect& part) {
  return cut_out(bgr, part, KEL_NN_KIT_RGB);
}

}  // namespace kelnn_cli
