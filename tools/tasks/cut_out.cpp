#include "cut_out.h"

#include "kel_nn_kit.h"
#include "report.h"

namespace kelnn_cli {
namespace {

Bytes cut_out(const cv::Mat& bgr, const cv::Rect& part, kel_nn_kit_format_t format) {
  const size_t channels = format == KEL_NN_KIT_GREY ? 1 : 3;
  Bytes pixels(size_t{kCutOutSize} * kCutOutSize * channels);
  const kel_nn_kit_frame_t frame = {bgr.data,       bgr.cols, bgr.rows, static_cast<int>(bgr.step),
                                    KEL_NN_KIT_BGR, nullptr};
  const kel_nn_kit_image_t image = {pixels.data(), kCutOutSize, kCutOutSize, format, nullptr};
  const int result = kel_nn_kit_crop(&frame, {part.x, part.y, part.width, part.height}, &image);
  if (result == KEL_NN_KIT_NO_MEMORY) throw Failure("out of memory");
  if (result != 0) {
    throw Failure("nothing can be cut out of a picture of " + std::to_string(bgr.cols) + " x " +
                  std::to_string(bgr.rows) + " pixels; the longest side is " +
                  std::to_string(KEL_NN_KIT_MAX_SIDE));
  }
  return pixels;
}

}  // namespace

Bytes grey_cut_out(const cv::Mat& bgr, const cv::Rect& part) {
  return cut_out(bgr, part, KEL_NN_KIT_GREY);
}

Bytes rgb_cut_out(const cv::Mat& bgr, const cv::Rect& part) {
  return cut_out(bgr, part, KEL_NN_KIT_RGB);
}

}  // namespace kelnn_cli
