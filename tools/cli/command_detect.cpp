// SPDX-License-Identifier: Apache-2.0
// kelnn faces, kelnn objects and kelnn persons: what is where in pictures, videos and cameras.
#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

#include "commands.h"
#include "drawing.h"
#include "files.h"
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

void check_classes(const DetectOptions& options) {
  const std::vector<std::string>& names = options.class_names;
  for (const std::string& name : options.only) {
    if (std::find(names.begin(), names.end(), name) != names.end()) continue;
    throw UsageError(fmt::format("--only {}: there is no such class; there are: {}", name,
                                 fmt::join(names, ", ")));
  }
}

std::vector<Detection> wanted(const DetectOptions& options, std::vector<Detection> found) {
  const auto is_left_out = [&](const Detection& one) {
    const std::string name = class_name(options, one.class_id);
    return one.score < options.least_score ||
           (!options.only.empty() &&
            std::find(options.only.begin(), options.only.end(), name) == options.only.end());
  };
  found.erase(std::remove_if(found.begin(), found.end(), is_left_out), found.end());
  return found;
}

// What was found, as pictures beside each other, whose paths the boxes get: PREFIX-NUMBER.png.
void save_crops(const std::string& prefix, const cv::Mat& bgr,
                const std::vector<std::string>& inputs, Json* boxes) {
  for (size_t i = 0; i < boxes->size(); ++i) {
    Json& box = (*boxes)[i];
    const std::string path = fmt::format("{}-{}.png", prefix, i);
    check_outputs({path}, inputs);
    const cv::Rect part(box["x"], box["y"], box["w"], box["h"]);
    write_file(path, encode_picture(".png", bgr(part & cv::Rect({}, bgr.size()))));
    box["crop"] = path;
  }
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
  check_classes(options);
  const std::vector<std::string> inputs =
      listed(options.inputs, InputKind::kPicturesAndVideos, !options.frames.input.raw.empty());
  DrawingTarget drawings(options.out, inputs);
  OutputNames crops("--save-crops", with_slash(options.crops), inputs, {});
  reporter->begin(
      {"input,frame,time,width,height,name,class,score,x,y,w,h", inputs, options.class_names});
  return for_each_input(inputs, reporter, [&](const std::string& input) {
    FrameWalk walk(input, FrameWalk::Takes::kAll, options.frames, reporter, &drawings);
    const std::string crop_prefix = options.crops.empty() ? "" : crops.claim(input, base_name);
    const bool is_picture = walk.kind() == FrameSource::Kind::kPicture;
    while (const Frame* frame = walk.next()) {
      if (!task) task.emplace(library, size_of(frame->pixels));
      const std::vector<Detection> found = wanted(options, found_in(frame->pixels, &*task));
      walk.draw([&] { return drawn(options, frame->pixels, found); });
      Json result = json_of(options, input, *frame, found);
      if (!options.crops.empty()) {
        save_crops(crop_prefix + (is_picture ? "" : fmt::format("-{:06}", frame->index)),
                   frame->pixels, inputs, &result["boxes"]);
      }
      reporter->report_one(result, [&](const Json& json) { return text_of(json, is_picture); });
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
