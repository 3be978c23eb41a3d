#include "picture.h"

#include <algorithm>
#include <opencv2/imgcodecs.hpp>

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

Bytes png_of(const cv::Mat& picture) {
  Bytes png;
  if (!cv::imencode(".png", picture, png)) throw Failure("OpenCV cannot make a PNG file");
  return png;
}

// Decoded from memory, so that a file that cannot be read and one that is no picture are told apart.
cv::Mat load_picture(const std::string& path) {
  const Bytes bytes = read_file(path);
  cv::Mat picture;
  try {
    if (!bytes.empty()) picture = cv::imdecode(bytes, cv::IMREAD_COLOR);
  } catch (const cv::Exception&) {
    picture.release();  // too large, or damaged in a way that the decoder does not survive
  }
  if (picture.empty()) throw Failure(path + ": not a picture that can be read");
  return picture;
}

}  // namespace kelnn_cli
