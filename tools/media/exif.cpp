// SPDX-License-Identifier: Apache-2.0
#include "codecs.h"

namespace kelnn_cli {
namespace {

constexpr uint16_t kOrientationTag = 0x0112;
constexpr uint16_t kShort = 3;  // the type of its value
constexpr size_t kEntrySize = 12;

// Numbers of a TIFF structure, in the byte order that it begins with.
class Tiff {
 public:
  Tiff(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  bool is_valid() const {
    return size_ >= 8 && (data_[0] == 'I' || data_[0] == 'M') && data_[1] == data_[0] &&
           number(2, 2) == 42;
  }
  bool has(size_t offset, size_t count) const { return offset <= size_ && count <= size_ - offset; }
  uint32_t number(size_t offset, size_t bytes) const {
    uint32_t value = 0;
    for (size_t i = 0; i < bytes; ++i) {
      value = value << 8 | data_[offset + (data_[0] == 'M' ? i : bytes - 1 - i)];
    }
    return value;
  }

 private:
  const uint8_t* data_;
  size_t size_;
};

}  // namespace

std::optional<int> exif_orientation(const uint8_t* data, size_t size) {
  const Tiff tiff(data, size);
  if (!tiff.is_valid()) return std::nullopt;
  const size_t directory = tiff.number(4, 4);
  if (!tiff.has(directory, 2)) return std::nullopt;
  const size_t count = tiff.number(directory, 2);
  if (!tiff.has(directory + 2, count * kEntrySize)) return std::nullopt;
  for (size_t i = 0; i < count; ++i) {
    const size_t entry = directory + 2 + i * kEntrySize;
    if (tiff.number(entry, 2) != kOrientationTag) continue;
    const uint32_t orientation = tiff.number(entry + 8, 2);
    const bool is_known =
        tiff.number(entry + 2, 2) == kShort && orientation >= 1 && orientation <= 8;
    return is_known ? std::optional<int>(static_cast<int>(orientation)) : std::nullopt;
  }
  return kUpright;
}

cv::Mat made_upright(const cv::Mat& picture, int orientation) {
  // What cv::flip() takes: for 1 to 4, and for 5 to 8 when rows have become columns.
  constexpr int kNone = 2, kUpsideDown = 0, kMirrored = 1, kBoth = -1;
  constexpr int kFlips[] = {kNone, kMirrored, kBoth, kUpsideDown};
  const int flip = kFlips[(orientation - 1) % 4];
  cv::Mat turned = picture, upright;
  if (orientation > 4) cv::transpose(picture, turned);
  if (flip == kNone) return turned;
  cv::flip(turned, upright, flip);
  return upright;
}

}  // namespace kelnn_cli
