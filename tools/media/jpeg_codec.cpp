// SPDX-License-Identifier: Apache-2.0
#include <turbojpeg.h>

#include <cstring>
#include <memory>
#include <optional>
#include <type_traits>

#include "codecs.h"

namespace kelnn_cli {
namespace {

struct Destroy {
  void operator()(tjhandle handle) const { tjDestroy(handle); }
};
using Handle = std::unique_ptr<std::remove_pointer_t<tjhandle>, Destroy>;

// What the first segment of its kind says, as in OpenCV. None: it is not as it should be.
std::optional<int> orientation(const Bytes& bytes) {
  constexpr uint8_t kStartOfScan = 0xda, kApp1 = 0xe1;
  constexpr char kExif[] = "Exif\0";  // and one more zero
  for (size_t at = 2; at + 4 <= bytes.size() && bytes[at] == 0xff;) {
    const uint8_t marker = bytes[at + 1];
    if (marker == kStartOfScan) return kUpright;
    const size_t size = static_cast<size_t>(bytes[at + 2]) << 8 | bytes[at + 3];
    if (size < 2 || size > bytes.size() - at - 2) break;
    const uint8_t* data = bytes.data() + at + 4;
    const size_t count = size - 2;
    if (marker == kApp1) {
      const bool is_exif = count > sizeof(kExif) && std::memcmp(data, kExif, sizeof(kExif)) == 0;
      if (!is_exif) return kUpright;
      return exif_orientation(data + sizeof(kExif), count - sizeof(kExif));
    }
    at += 2 + size;
  }
  return std::nullopt;
}

}  // namespace

bool is_jpeg(const Bytes& bytes) {
  return bytes.size() >= 3 && bytes[0] == 0xff && bytes[1] == 0xd8 && bytes[2] == 0xff;
}

cv::Mat decode_jpeg(const Bytes& bytes, bool* is_damaged) {
  const Handle jpeg(tjInitDecompress());
  int width = 0, height = 0, subsampling = 0, colour_space = 0;
  if (!jpeg || tjDecompressHeader3(jpeg.get(), bytes.data(), bytes.size(), &width, &height,
                                   &subsampling, &colour_space) != 0) {
    return {};
  }
  if (colour_space == TJCS_CMYK || colour_space == TJCS_YCCK) return {};
  if (static_cast<int64_t>(width) * height > kMaxPixels) return {};
  const std::optional<int> turn = orientation(bytes);
  if (!turn) return {};
  cv::Mat picture(height, width, CV_8UC3);
  // A warning is a failure here: the picture may be cut off.
  if (tjDecompress2(jpeg.get(), bytes.data(), bytes.size(), picture.data, width,
                    static_cast<int>(picture.step), height, TJPF_BGR, TJFLAG_ACCURATEDCT) != 0) {
    // Some cameras put bytes between segments, which harms nothing.
    if (is_damaged) *is_damaged = !std::strstr(tjGetErrorStr2(jpeg.get()), "extraneous");
    return {};
  }
  return made_upright(picture, *turn);
}

Bytes encode_jpeg(const cv::Mat& bgr, int quality) {
  const Handle jpeg(tjInitCompress());
  const unsigned long room = tjBufSize(bgr.cols, bgr.rows, TJSAMP_420);
  if (!jpeg || room == static_cast<unsigned long>(-1)) return {};
  Bytes bytes(room);
  unsigned char* out = bytes.data();
  unsigned long size = room;
  const bool done =
      tjCompress2(jpeg.get(), bgr.data, bgr.cols, static_cast<int>(bgr.step), bgr.rows, TJPF_BGR,
                  &out, &size, TJSAMP_420, quality, TJFLAG_ACCURATEDCT | TJFLAG_NOREALLOC) == 0;
  bytes.resize(done ? size : 0);
  return bytes;
}

}  // namespace kelnn_cli
