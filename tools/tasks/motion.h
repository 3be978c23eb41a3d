// SPDX-License-Identifier: Apache-2.0
// The library's motion filter, and what it sees.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>

#include "kel_nn.hpp"

namespace kelnn_cli {

struct MotionSettings {
  float ratio = kel_nn::MotionFilter::kUsualRatio;  // per cent
  int period = kel_nn::MotionFilter::kUsualPeriod;  // frames
};

// Which pixels the filter sees change. The library keeps that to itself and only says what it
// decides; so its steps are taken once more, to have something to show. Nothing is decided here.
class ChangedPixels {
 public:
  // A mask of the halved frame, 255 where it changed between the last three frames both times. Empty
  // for the first two frames, and for those after a change of size.
  cv::Mat take(const cv::Mat& luma);

 private:
  cv::Mat last_, changed_;  // the last frame, smoothed; where it differed from the one before
  int64_t seen_ = 0;        // frames of that size
};

double percentage(const cv::Mat& mask);  // of pixels that are not 0

}  // namespace kelnn_cli
