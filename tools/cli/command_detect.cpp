// SPDX-License-Identifier: Apache-2.0
// kelnn faces, kelnn objects and kelnn persons: what is where in pictures, videos and cameras.
#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <optional>

#include "commands.h"
#include "drawing.h"
#include "frames.h"
#include "library_call.h"

namespace kelnn_cli {
namespace {

// The detectors' classes are few; a model may still say another one.
std::string class_name(const DetectOptions& options, int class_id) {
  const size_t index = static_cast<size_t>(class_id);
  return class_id >= 0 && index < options.class_names.size() ? options.class_names[index]
                                                             : std::to_string(class_id);
}

Json json_of(const DetectOptions& options, const std::string& input, const Frame& frame,
             const std::vector<Detection>& found) {
  Json json = place_json(input, frame);
  json["width"] = frame.pixels.cols;
  json["height"] = frame.pixels.rows;
  json["boxes"] = Json::array();
  for (const Detection& one : found) {
    Json box = kelnn_cli::json_of(one);
    box["class"] = one.class_id;
    box["name"] = class_name(options, one.class_id);
    json["boxes"].push_back(box);
  }
  return json;
}

std::string text_of(const Json& found, bool is_picture) {
  std::string text = filled(is_picture ? "{input}" : kPlace, found) +
                     filled(", {width} x {height}: ", found) +
                     fmt::format("{} found\n", found["boxes"].size());
  for (const Json& box : found["boxes"]) text += filled(std::string("  {name}") + kFound, box);
  return text;
}

cv::Mat drawn(const DetectOptions& options, const cv::Mat& bgr,
              const std::vector<Detection>& found) {
  cv::Mat picture = bgr.clone();
  for (const Detection& one : found) {
    draw_box(&picture, one.box,
             fmt::format("{} {:.2f}", class_name(options, one.class_id), one.score), one.class_id);
  }
  return picture;
}

template <typename Task>
bool detect(const DetectOptions& options, Reporter* reporter) {
  const kel_nn::Library library(options.root);
  std::optional<Task> task;  // none: there was no frame yet
  const std::vector<std::string> inputs =
      listed(options.inputs, InputKind::kPicturesAndVideos, !options.frames.input.raw.empty());
  DrawingTarget drawings(options.out, inputs);
  return for_each_input(inputs, reporter, [&](const std::string& input) {
    FrameWalk walk(input, FrameWalk::Takes::kAll, options.frames, reporter, &drawings);
    const bool is_picture = walk.kind() == FrameSource::Kind::kPicture;
    while (const Frame* frame = walk.next()) {
      if (!task) task.emplace(library, size_of(frame->pixels));
      const std::vector<Detection> found = found_in(frame->pixels, &*task);
      walk.draw([&] { return drawn(options, frame->pixels, found); });
      walk.report(json_of(options, input, *frame, found),
                  [&](const Json& json) { return text_of(json, is_picture); });
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
