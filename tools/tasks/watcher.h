// SPDX-License-Identifier: Apache-2.0
// What a camera does with its frames: look for motion, then for people, then for faces and who they
// are. Tasks without a model are left out.
#pragma once

#include <functional>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "face_extractor.h"
#include "motion.h"

namespace kelnn_cli {

struct Found {
  kel_nn::Detection place;
  std::optional<kel_nn::Landmarks> landmarks = {};  // of faces, where there are models for it
  std::optional<ExtractedFeature> feature = {};
};

// What any command that looks for something makes of a frame.
struct Sighting {
  std::optional<bool> is_motion;            // of a period that ended with this frame
  std::optional<std::vector<Found>> found;  // none: nothing was looked for
};

class Watcher {
 public:
  using Note = std::function<void(const std::string&)>;
  enum Class { kPerson, kFace };

  // `is_always_awake`: detection does not wait for motion. `note` is told once of each task that is
  // left out; of a model that is there but does not load, an Error tells.
  Watcher(const std::string& root, const MotionSettings& settings, bool is_always_awake,
          const Note& note);

  Sighting look(const cv::Mat& bgr);
  void restart();  // with another recording

 private:
  bool has_model(const std::string& key, const char* what);
  void load(cv::Size frame_size);

  kel_nn::Library library_;
  bool is_awake_, is_always_awake_, is_loaded_ = false;
  Note note_;
  MotionSettings settings_;
  std::optional<kel_nn::MotionFilter> filter_;
  std::optional<kel_nn::PersonDetector> persons_;
  std::optional<kel_nn::FaceDetector> faces_;
  std::optional<kel_nn::FaceLandmarks> landmarks_;
  std::optional<kel_nn::FaceFeatures> features_;
};

}  // namespace kelnn_cli
