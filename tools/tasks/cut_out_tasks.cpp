#include "cut_out_tasks.h"

namespace kelnn_cli {
namespace {

kel_nn::Image cut_out(const cv::Mat& bgr, const cv::Rect& part, kel_nn::Format format) {
  return explained("", [&] {
    kel_nn::Image image(kel_nn::kCropSize, format);
    image.crop(frame_of(bgr), {part.x, part.y, part.width, part.height});
    return image;
  });
}

}  // namespace

kel_nn::Image grey_cut_out(const cv::Mat& bgr, const cv::Rect& part) {
  return cut_out(bgr, part, KEL_NN_KIT_GREY);
}

kel_nn::Image rgb_cut_out(const cv::Mat& bgr, const cv::Rect& part) {
  return cut_out(bgr, part, KEL_NN_KIT_RGB);
}

}  // namespace kelnn_cli
