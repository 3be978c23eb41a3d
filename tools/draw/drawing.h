// SPDX-License-Identifier: Apache-2.0
// What was found, drawn into a picture.
#pragma once

#include <array>
#include <opencv2/core.hpp>
#include <optional>
#include <string>

#include "kel_nn.hpp"

namespace kelnn_cli {

// `colour` tells kinds of boxes apart: any number, 0 and up. Lines and letters grow with the picture.
void draw_box(cv::Mat* bgr, const cv::Rect& box, const std::string& label, int colour);

// A copy of the frame with what the motion filter saw: `changed` is the mask of the halved frame, or
// empty; `is_motion` is the last decision.
cv::Mat frame_with_changes(const cv::Mat& bgr, const cv::Mat& changed,
                           std::optional<bool> is_motion);

// ----- Landmarks: x and y of each, in pixels. Those that lie in the picture, as discs.

void draw_points(cv::Mat* bgr, const std::array<float, 10>& points, const cv::Scalar& colour,
                 int radius);

// What a model's values mean is the model's affair; here they are parts of the cut-out.
void draw_landmarks(cv::Mat* bgr, const kel_nn::Landmarks& landmarks, const kel_nn::Rect& part);

// ----- The cry detector's features: time to the right, frequency upwards, both with axes. `start` is the second at
// which the window begins.

cv::Mat draw_features(const kel_nn::SoundFeatures& matrix, const std::string& title, double start);

}  // namespace kelnn_cli
