// SPDX-License-Identifier: Apache-2.0
#include "motion.h"

#include <algorithm>
#include <cstdint>

namespace kelnn_cli {
namespace {

constexpr int kLeastChange = 21;

// Below, compilers make vectors of the loops along rows. A byte that is written could be anything, as a picture's width:
// so loops have their own copy of that.

// The odd columns of the even rows.
cv::Mat halved(const cv::Mat& luma) {
  cv::Mat half(luma.rows / 2, luma.cols / 2, CV_8U);
  for (int y = 0, columns = half.cols; y < half.rows; ++y) {
    const uint8_t* const from = luma.ptr(2 * y);
    uint8_t* const to = half.ptr(y);
    for (int x = 0; x < columns; ++x) to[x] = from[2 * x + 1];
  }
  return half;
}

// A row smoothed by 1 2 1 across and down, over 16 without rounding; the border stays as it is.
void smooth(const cv::Mat& pixels, int y, uint16_t* __restrict sums, uint8_t* __restrict row) {
  const int columns = pixels.cols;
  const uint8_t* const at = pixels.ptr(y);
  std::copy_n(at, columns, row);
  if (y == 0 || y == pixels.rows - 1) return;
  const uint8_t *const above = pixels.ptr(y - 1), *const below = pixels.ptr(y + 1);
  for (int x = 0; x < columns; ++x) {
    sums[x] = static_cast<uint16_t>(above[x] + 2 * at[x] + below[x]);
  }
  for (int x = 1; x < columns - 1; ++x) {
    const auto sum = static_cast<uint16_t>(sums[x - 1] + 2 * sums[x] + sums[x + 1]);
    row[x] = static_cast<uint8_t>(sum >> 4);
  }
}

// `both`: 255 where `now` differs from `last` and `changed` says that `last` had changed too. Then `last` and `changed` are
// those of `now`.
void compare(const uint8_t* __restrict now, int columns, uint8_t* __restrict last,
             uint8_t* __restrict changed, uint8_t* __restrict both) {
  for (int x = 0; x < columns; ++x) {
    const auto difference =
        static_cast<uint8_t>(std::max(now[x], last[x]) - std::min(now[x], last[x]));
    const uint8_t is_changed = difference >= kLeastChange ? 255 : 0;
    both[x] = changed[x] & is_changed;
    changed[x] = is_changed;
    last[x] = now[x];
  }
}

}  // namespace

cv::Mat ChangedPixels::take(const cv::Mat& luma) {
  const cv::Mat half = halved(luma);
  if (half.size() != last_.size()) {
    last_ = cv::Mat::zeros(half.size(), CV_8U);
    changed_ = cv::Mat::zeros(half.size(), CV_8U);
    seen_ = 0;
  }
  cv::Mat both(half.size(), CV_8U), sums(1, half.cols, CV_16U), now(1, half.cols, CV_8U);
  for (int y = 0; y < half.rows; ++y) {
    smooth(half, y, sums.ptr<uint16_t>(), now.ptr());
    compare(now.ptr(), half.cols, last_.ptr(y), changed_.ptr(y), both.ptr(y));
  }
  return ++seen_ < 3 ? cv::Mat() : both;  // so what the first one differs from does not matter
}

double percentage(const cv::Mat& mask) {
  return mask.empty() ? 0 : 100.0 * cv::countNonZero(mask) / static_cast<double>(mask.total());
}

}  // namespace kelnn_cli
