// SPDX-License-Identifier: Apache-2.0
// PNG through libpng, JPEG through libjpeg-turbo, PGM and PPM, and how the camera was held that took a picture.
#pragma once

#include <cstddef>
#include <cstdint>
#include <opencv2/core.hpp>
#include <optional>

#include "files.h"

namespace kelnn_cli {

bool is_png(const Bytes& bytes);
bool is_jpeg(const Bytes& bytes);
bool is_pnm(const Bytes& bytes);  // PGM or PPM, not as text

constexpr int64_t kMaxPixels = 1 << 30;  // of a picture, as everywhere in OpenCV

// Empty: damaged, which is told then, or odd.
cv::Mat decode_png(const Bytes& bytes, bool* is_damaged = nullptr);
cv::Mat decode_jpeg(const Bytes& bytes, bool* is_damaged = nullptr);
cv::Mat decode_pnm(const Bytes& bytes);

// Empty: too large.
Bytes encode_png(const cv::Mat& bgr);
constexpr int kUsualQuality = 95;  // what OpenCV writes
Bytes encode_jpeg(const cv::Mat& bgr, int quality = kUsualQuality);

constexpr int kUpright = 1;  // also of a picture that does not say

// 1 to 8, of Exif data from its byte order mark on. None: the data is not as it should be.
std::optional<int> exif_orientation(const uint8_t* data, size_t size);

// Turned and mirrored, so that what was up is up.
cv::Mat made_upright(const cv::Mat& picture, int orientation);

}  // namespace kelnn_cli
