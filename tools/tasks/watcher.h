// SPDX-License-Identifier: Apache-2.0
// What a camera does with its frames: look for motion, then for people, then for faces and who they
// are. Tasks without a model are left out.
#pragma once

#include <cstdint>
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
  int64_t track = 0;     // which one it is, from frame to frame; 0: nobody follows it
  std::string who = {};  // of a face that is known by name, and how alike they are
  float similarity = 0;
};

// What any command that looks for something makes of a frame.
struct Sighting {
  std::optional<bool> is_motion;            // of a period that ended with this frame
  std::optional<std::vector<Found>> found;  // none: nothing was looked for
};

// False: the task has no model, and the note says that `what` it finds is left out. A file that does not load is for the
// library to tell of.
bool has_model(const kel_nn::Library& library, const std::string& key, const char* what,
               const std::function<void(const std::string&)>& note);

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
