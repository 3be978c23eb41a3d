// SPDX-License-Identifier: Apache-2.0
// PGM and PPM with a byte for each value: a line of text, then the pixels.
#include <algorithm>
#include <cctype>
#include <opencv2/imgproc.hpp>

#include "codecs.h"

namespace kelnn_cli {
namespace {

bool is_space(uint8_t byte) { return std::isspace(byte) != 0; }
bool is_digit(uint8_t byte) { return std::isdigit(byte) != 0; }

// The number behind white space and comments, and the byte behind it; -1: there is none, or it is too large.
int64_t take_number(Bytes::const_iterator* next, Bytes::const_iterator end) {
  while (*next != end && (is_space(**next) || **next == '#')) {
    if (*(*next)++ == '#') *next = std::find(*next, end, '\n');
  }
  int64_t number = -1;
  for (; *next != end && is_digit(**next) && number <= kMaxPixels; ++*next) {
    number = std::max<int64_t>(number, 0) * 10 + (**next - '0');
  }
  return *next != end && is_space(*(*next)++) ? number : -1;
}

}  // namespace

bool is_pnm(const Bytes& bytes) {
  return bytes.size() > 2 && bytes[0] == 'P' && (bytes[1] == '5' || bytes[1] == '6') &&
         is_space(bytes[2]);
}

cv::Mat decode_pnm(const Bytes& bytes) {
  auto next = bytes.begin() + 2;
  const int64_t width = take_number(&next, bytes.end()), height = take_number(&next, bytes.end());
  const int64_t largest = take_number(&next, bytes.end());
  if (largest != 255 || width < 1 || height < 1 || width > kMaxPixels / height) return {};
  const int channels = bytes[1] == '5' ? 1 : 3;
  if (bytes.end() - next < width * height * channels) return {};
  const cv::Mat pixels(static_cast<int>(height), static_cast<int>(width), CV_8UC(channels),
                       const_cast<uint8_t*>(&*next));
  cv::Mat bgr;
  cv::cvtColor(pixels, bgr, channels == 1 ? cv::COLOR_GRAY2BGR : cv::COLOR_RGB2BGR);
  return bgr;
}

}  // namespace kelnn_cli
