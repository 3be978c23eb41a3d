// SPDX-License-Identifier: Apache-2.0
// The cry detector's features as a picture: time to the right, frequency upwards, both with axes.
#ifndef KEL_NN_TOOLS_FEATURE_PICTURE_H_
#define KEL_NN_TOOLS_FEATURE_PICTURE_H_

#include <opencv2/core.hpp>
#include <string>

#include "kel_nn.hpp"

namespace kelnn_cli {

// `start` is the second at which the window begins.
cv::Mat draw_features(const kel_nn::SoundFeatures& matrix, const std::string& title, double start);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_FEATURE_PICTURE_H_
