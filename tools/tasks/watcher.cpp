// SPDX-License-Identifier: Apache-2.0
#include "watcher.h"

#include <filesystem>

#include "library_call.h"
#include "model_inspection.h"
#include "task_catalogue.h"

namespace kelnn_cli {
namespace {

// The key of the person detection task for frames of that size.
std::string person_task(cv::Size frame) {
  return std::string("person-detection-") + (frame.width > frame.height   ? "landscape"
                                             : frame.width < frame.height ? "portrait"
                                                                          : "square");
}

}  // namespace

Watcher::Watcher(const std::string& root, const MotionSettings& settings, bool is_always_awake,
                 const Note& note)
    : library_(root),
      is_awake_(is_always_awake),
      is_always_awake_(is_always_awake),
      note_(note),
      settings_(settings) {
  restart();
}

void Watcher::restart() {
  is_awake_ = is_always_awake_;
  filter_.reset();  // before there is another one
  filter_.emplace(settings_.filter(library_));
}

bool Watcher::has_model(const std::string& key, const char* what) {
  const std::string path = library_.directory() + find_task(key)->file_name;
  std::error_code error;
  // What cannot be looked at is for the library to try and for explanation() to tell.
  if (std::filesystem::exists(path, error) || error) return true;
  note_(std::string(what) + " are left out: there is no model " + path +
        "\nTo do: " + inspect_model(*find_task(key), library_.directory()).command);
  return false;
}

// The models that frames of that size need, before the first one is looked at.
void Watcher::load(cv::Size frame_size) {
  is_loaded_ = true;
  const kel_nn::Size size = {frame_size.width, frame_size.height};
  if (has_model(person_task(frame_size), "persons")) persons_.emplace(library_, size);
  if (!has_model("face-detection", "faces")) return;
  faces_.emplace(library_, size);
  if (has_model("face-landmarks", "landmarks")) landmarks_.emplace(library_);
  if (has_model("face-features", "face features")) features_.emplace(library_);
}

WatchedFace Watcher::recognise(const cv::Mat& bgr, const Detection& place) {
  WatchedFace face = {place, std::nullopt, std::nullopt};
  if (landmarks_) face.landmarks = landmarks_->of(frame_of(bgr), rect_of(place.box));
  if (features_) face.features = feature_of(bgr, place.box, face.landmarks, &*features_);
  return face;
}

Sighting Watcher::look(const cv::Mat& bgr) {
  if (!is_loaded_) load(bgr.size());
  Sighting seen;
  seen.is_motion = filter_->take(luma_of(bgr).data, size_of(bgr));
  if (seen.is_motion) is_awake_ = is_always_awake_ || *seen.is_motion;
  if (!is_awake_) return seen;
  if (persons_) seen.persons = found_in(bgr, &*persons_);
  if (!faces_) return seen;
  seen.faces.emplace();
  for (const Detection& place : found_in(bgr, &*faces_)) {
    seen.faces->push_back(recognise(bgr, place));
  }
  return seen;
}

}  // namespace kelnn_cli
