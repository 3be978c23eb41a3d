#include "picture.h"

#include <algorithm>

#include "picture_codecs.h"
#include "report.h"

namespace kelnn_cli {
namespace {

std::string size_text(const cv::Mat& picture) {
  return std::to_string(picture.cols) + " x " + std::to_string(picture.rows);
}

cv::Rect centre_square(const cv::Mat& picture) {
  const int size = std::min(picture.cols, picture.rows);
  return {(picture.cols - size) / 2, (picture.rows - size) / 2, size, size};
}

}  // namespace

cv::Rect chosen_part(const std::string& path, const cv::Mat& picture, const Box& box) {
  if (box.width == 0) return centre_square(picture);
  if (box.width > picture.cols - box.x || box.height > picture.rows - box.y) {
    throw Failure(path + ": the box reaches out of the picture, which is " + size_text(picture));
  }
  return {box.x, box.y, box.width, box.height};
}

cv::Mat load_picture(const std::string& path) {
  const cv::Mat picture = decode_picture(read_file(path));
  if (picture.empty()) throw Failure(path + ": not a picture that can be read");
  return picture;
}

}  // namespace kelnn_cli
