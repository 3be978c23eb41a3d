// SPDX-License-Identifier: Apache-2.0
#include "motion.h"

#include <opencv2/imgproc.hpp>

namespace kelnn_cli {
namespace {

constexpr int kLeastChange = 21;

// The odd columns of the even rows.
cv::Mat halved(const cv::Mat& luma) {
  const int columns = luma.cols / 2, rows = luma.rows / 2;
  if (columns == 0 || rows == 0) return cv::Mat();
  const cv::Mat even_size = luma(cv::Rect(0, 0, 2 * columns, 2 * rows)).clone();
  cv::Mat odd_columns;
  cv::extractChannel(even_size.reshape(2), odd_columns, 1);
  return odd_columns.reshape(1, rows).colRange(0, columns).clone();  // pairs of rows side by side
}

// 1 2 1 across and down, over 16 without rounding; the border stays as it is.
cv::Mat smoothed(const cv::Mat& pixels) {
  if (pixels.cols < 3 || pixels.rows < 3) return pixels;
  const cv::Mat kernel = (cv::Mat_<float>(1, 3) << 1, 2, 1);
  cv::Mat sums, result = pixels.clone();
  cv::sepFilter2D(pixels, sums, CV_16S, kernel, kernel);
  cv::bitwise_and(sums, cv::Scalar(0x7ff0), sums);
  sums.convertTo(sums, CV_8U, 1 / 16.0);
  const cv::Rect inside(1, 1, pixels.cols - 2, pixels.rows - 2);
  sums(inside).copyTo(result(inside));
  return result;
}

}  // namespace

cv::Mat ChangedPixels::take(const cv::Mat& luma) {
  const cv::Mat now = smoothed(halved(luma));
  const cv::Mat before = last_;
  last_ = now;
  if (now.empty() || now.size() != before.size()) {
    changed_.release();
    return cv::Mat();
  }
  cv::Mat change;
  cv::absdiff(now, before, change);
  const cv::Mat changed = change >= kLeastChange;
  cv::Mat both = changed_.empty() ? cv::Mat() : cv::Mat(changed & changed_);
  changed_ = changed;
  return both;
}

double percentage(const cv::Mat& mask) {
  return mask.empty() ? 0 : 100.0 * cv::countNonZero(mask) / static_cast<double>(mask.total());
}

}  // namespace kelnn_cli
