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

template <typename Task>
std::vector<kel_nn::Detection> detected(const kel_nn::Frame& frame, std::optional<Task>* task) {
  return *task ? (*task)->detect(frame) : std::vector<kel_nn::Detection>();
}

}  // namespace

bool has_model(const kel_nn::Library& library, const std::string& key, const char* what,
               const std::function<void(const std::string&)>& note) {
  const std::string path = library.directory() + find_task(key)->file_name;
  std::error_code error;
  // What cannot be looked at is for the library to try and for explanation() to tell.
  if (std::filesystem::exists(path, error) || error) return true;
  note(std::string(what) + " are left out: there is no model " + path +
       "\nTo do: " + inspect_model(*find_task(key), library.directory()).command);
  return false;
}

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
  filter_.emplace(library_, settings_.ratio, settings_.period);
}

// The models that frames of that size need, before the first one is looked at.
void Watcher::load(cv::Size frame_size) {
  is_loaded_ = true;
  const kel_nn::Size size = {frame_size.width, frame_size.height};
  const auto has = [this](const std::string& key, const char* what) {
    return has_model(library_, key, what, note_);
  };
  if (has(person_task(frame_size), "persons")) persons_.emplace(library_, size);
  if (!has("face-detection", "faces")) return;
  faces_.emplace(library_, size);
  if (has("face-landmarks", "landmarks")) landmarks_.emplace(library_);
  if (has("face-features", "face features")) features_.emplace(library_);
}

Sighting Watcher::look(const cv::Mat& bgr) {
  if (!is_loaded_) load(bgr.size());
  const kel_nn::Frame frame = frame_of(bgr);
  Sighting seen;
  seen.is_motion = filter_->take(luma_of(bgr).data, size_of(bgr));
  if (seen.is_motion) is_awake_ = is_always_awake_ || *seen.is_motion;
  if (!is_awake_) return seen;
  seen.found.emplace();
  for (const auto& [box, score, _] : detected(frame, &persons_)) {
    seen.found->push_back({{box, score, kPerson}});
  }
  for (const auto& [box, score, _] : detected(frame, &faces_)) {
    Found face = {{box, score, kFace}};
    if (landmarks_) face.landmarks = landmarks_->of(frame, box);
    if (features_) face.feature = feature_of(bgr, box, face.landmarks, &*features_);
    seen.found->push_back(face);
  }
  return seen;
}

}  // namespace kelnn_cli
