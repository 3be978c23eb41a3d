// SPDX-License-Identifier: Apache-2.0
// Something that was found in a frame.
#pragma once

#include <opencv2/core.hpp>

namespace kelnn_cli {

struct Detection {
  cv::Rect box;  // pixels of the frame; never empty
  float score;
  int class_id;
};

}  // namespace kelnn_cli
