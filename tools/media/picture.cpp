// SPDX-License-Identifier: Apache-2.0
#include "picture.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>

#include "codec_modules.h"
#include "codecs.h"
#include "inputs.h"
#include "report.h"

namespace kelnn_cli {
namespace {

bool is_png_name(const std::string& extension) { return extension == ".png"; }
bool is_jpeg_name(const std::string& extension) {
  return extension == ".jpg" || extension == ".jpeg" || extension == ".jpe";
}

}  // namespace

std::string extension_of(const std::string& path) {
  std::string extension = std::filesystem::path(path).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return extension;
}

bool is_usual_picture(const std::string& path) {
  Bytes start(8);
  std::ifstream(path, std::ios::binary).read(reinterpret_cast<char*>(start.data()), 8);
  return is_png(start) || is_jpeg(start) || is_pnm(start);
}

cv::Mat decode_picture(const Bytes& bytes, bool* is_damaged) {
  cv::Mat picture;
  if (is_png(bytes)) picture = decode_png(bytes, is_damaged);
  if (is_jpeg(bytes)) picture = decode_jpeg(bytes, is_damaged);
  if (is_pnm(bytes)) picture = decode_pnm(bytes);
  return picture.empty() ? opencv_module().decode(bytes) : picture;
}

bool is_picture_name(const std::string& path) {
  const std::string extension = extension_of(path);
  if (extension.empty()) return false;
  return is_png_name(extension) || is_jpeg_name(extension) || opencv_module().is_written(extension);
}

Bytes encode_picture(const std::string& extension, const cv::Mat& bgr) {
  if (is_png_name(extension)) return encode_png(bgr);
  if (is_jpeg_name(extension)) return encode_jpeg(bgr);
  return opencv_module().encode(extension, bgr);
}

cv::Mat load_picture(const std::string& path, const InputSettings& settings) {
  check_readable(path);
  bool is_damaged = false;
  const cv::Mat picture = decode_picture(read_file(path), &is_damaged);
  if (picture.empty()) {
    throw Failure(path, is_usual_picture(path) ? "a picture that is damaged or too large"
                                               : "not a picture that can be read");
  }
  if (is_damaged) settings.object(path, "damaged or cut off");
  return picture;
}

}  // namespace kelnn_cli
