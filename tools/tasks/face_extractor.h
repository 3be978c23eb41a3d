// SPDX-License-Identifier: Apache-2.0
// A face's features from a photograph: the face is found, its landmarks in it, and it is turned and scaled until they lie where
// networks for features want them.
#pragma once

#include <functional>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "kel_nn.hpp"

namespace kelnn_cli {

// All from 0 to 1: of the cut-out that the landmarks were found in.
bool are_parts(const kel_nn::Landmarks& landmarks);

struct ExtractedFeature {
  kel_nn::Feature values;
  bool is_aligned;  // else of the cut-out as it is
};

// Without landmarks that are parts of the cut-out and a face's it is left as it is.
ExtractedFeature feature_of(const cv::Mat& bgr, const kel_nn::Rect& face,
                            const std::optional<kel_nn::Landmarks>& landmarks,
                            kel_nn::FaceFeatures* task);

class FaceExtractor {
 public:
  using Note = std::function<void(const std::string&)>;

  // `is_ready`: pictures and boxes are crops as the network wants them, and nothing is looked for.
  FaceExtractor(const std::string& root, bool is_ready, const Note& note);

  // Where the face is: in the box, if one is given; else the surest that is found. Throws Failure.
  kel_nn::Rect place(const std::string& path, const cv::Mat& bgr, const kel_nn::Rect& box);
  std::vector<kel_nn::Detection> faces(const cv::Mat& bgr);  // all, the surest first
  ExtractedFeature of(const cv::Mat& bgr, const kel_nn::Rect& face);
  kel_nn::Feature of_box(const cv::Mat& bgr, const kel_nn::Rect& face);  // as it is, not aligned

 private:
  kel_nn::Library library_;
  bool is_ready_;
  Note note_;
  kel_nn::FaceFeatures features_;
  std::optional<kel_nn::FaceDetector> faces_;  // loaded when one is needed
  std::optional<kel_nn::FaceLandmarks> landmarks_;
};

}  // namespace kelnn_cli
