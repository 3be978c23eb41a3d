// SPDX-License-Identifier: Apache-2.0
// kelnn faces, objects and persons: what is where in pictures, videos and cameras.
#include <nlohmann/json.hpp>
#include <optional>

#include "commands.h"
#include "library_call.h"
#include "sightings.h"

namespace kelnn_cli {
namespace {

template <typename Task>
bool detect(const DetectOptions& options, Reporter* reporter) {
  Sightings sightings(options, InputKind::kPicturesAndVideos, "", reporter);
  const kel_nn::Library library(options.root);
  std::optional<Task> task;  // none: there was no frame yet
  return for_each_input(sightings.inputs(), reporter, [&](const std::string& input) {
    FrameWalk walk(input, FrameWalk::Takes::kAll, options.frames, reporter, sightings.drawings());
    sightings.begin(input);
    while (const Frame* frame = walk.next()) {
      if (!task) task.emplace(library, size_of(frame->pixels));
      Sighting seen;
      seen.found.emplace();
      for (const kel_nn::Detection& place : task->detect(frame_of(frame->pixels))) {
        seen.found->push_back({place});
      }
      sightings.leave_out_unwanted(&*seen.found);
      walk.draw([&] { return sightings.drawn(frame->pixels, seen); });
      sightings.report(sightings.json(*frame, seen), frame->pixels,
                       walk.kind() == FrameSource::Kind::kPicture);
    }
  });
}

}  // namespace

bool detect_faces(const DetectOptions& options, Reporter* reporter) {
  return detect<kel_nn::FaceDetector>(options, reporter);
}

bool detect_persons(const DetectOptions& options, Reporter* reporter) {
  return detect<kel_nn::PersonDetector>(options, reporter);
}

bool detect_objects(const DetectOptions& options, Reporter* reporter) {
  return detect<kel_nn::ObjectDetector>(options, reporter);
}

}  // namespace kelnn_cli
