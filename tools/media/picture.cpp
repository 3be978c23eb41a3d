#include "picture.h"

#include <algorithm>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "report.h"

namespace kelnn_cli {
namespace {

std::string size_text(const cv::Mat& picture) {
  return std::to_string(picture.cols) + " x " + std::to_string(picture.rows);
}

// Decoded from memory, so that a file that cannot be read and one that is no picture are told apart.
cv::Mat decode(const std::string& path, cv::ImreadModes mode) {
  const Bytes bytes = read_file(path);
  cv::Mat picture;
  try {
    if (!bytes.empty()) picture = cv::imdecode(bytes, mode);
  } catch (const cv::Exception&) {
    picture.release();  // too large, or damaged in a way that the decoder does not survive
  }
  if (picture.empty()) throw Failure(path + ": not a picture that can be read");
  return picture;
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

cv::Mat load_picture(const std::string& path) { return decode(path, cv::IMREAD_COLOR); }

Bytes load_face(const std::string& path, const Box& box) {
  const cv::Mat picture = decode(path, cv::IMREAD_GRAYSCALE);
  cv::Mat face;
  cv::resize(picture(chosen_part(path, picture, box)), face, {kFaceSize, kFaceSize}, 0, 0,
             cv::INTER_AREA);
  return Bytes(face.datastart, face.dataend);
}

}  // namespace kelnn_cli
