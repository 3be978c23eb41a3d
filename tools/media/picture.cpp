#include "picture.h"

#include <algorithm>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>

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

bool parse_box(const std::string& text, Box* box) {
  std::istringstream in(text);
  char comma[3] = {};
  in >> box->x >> comma[0] >> box->y >> comma[1] >> box->width >> comma[2] >> box->height;
  return in && in.peek() == EOF && std::string(comma, 3) == ",,," && box->x >= 0 && box->y >= 0 &&
         box->width > 0 && box->height > 0;
}

}  // namespace

cv::Rect chosen_part(const std::string& path, const cv::Mat& picture, const Box& box) {
  if (box.width == 0) return centre_square(picture);
  if (box.width > picture.cols - box.x || box.height > picture.rows - box.y) {
    throw Failure(path + ": the box reaches out of the picture, which is " + size_text(picture));
  }
  return {box.x, box.y, box.width, box.height};
}

cv::Mat load_picture(const std::string& path) { return decode(path, cv::IMREAD_COLOR); }

Bytes load_face(const std::string& path, const Box& box) {
  const cv::Mat picture = decode(path, cv::IMREAD_GRAYSCALE);
  cv::Mat face;
  cv::resize(picture(chosen_part(path, picture, box)), face, {kFaceSize, kFaceSize}, 0, 0,
             cv::INTER_AREA);
  return Bytes(face.datastart, face.dataend);
}

void add_box(CLI::App* command, const std::string& name, Box* box, const std::string& help) {
  command
      ->add_option_function<std::string>(
          name, [box](const std::string& text) { parse_box(text, box); }, help)
      ->type_name("X,Y,W,H")
      ->check(CLI::Validator(
          [](std::string& text) {
            Box parsed;
            return parse_box(text, &parsed) ? "" : "\"" + text + "\" is not X,Y,WIDTH,HEIGHT";
          },
          ""));
}

}  // namespace kelnn_cli
