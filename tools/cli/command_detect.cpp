// SPDX-License-Identifier: Apache-2.0
// kelnn faces, objects, persons and watch: what is where in pictures, videos and cameras.
#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

#include "commands.h"
#include "drawing.h"
#include "files.h"
#include "frames.h"
#include "library_call.h"
#include "picture.h"
#include "watcher.h"

namespace kelnn_cli {
namespace {

// What looks at frames.
struct Finder {
  FrameWalk::Takes takes;
  std::function<Sighting(const cv::Mat& bgr)> look;
  int period = 0;                       // of frames, to a decision; 0: each shows something
  std::function<void()> begin = [] {};  // with another input
};

// ----- Which of what was found is wanted

// The classes are few; a model may still say another one.
std::string class_name(const DetectOptions& options, const Found& found) {
  const int id = found.place.class_id;
  const std::vector<std::string>& names = options.class_names;
  return id >= 0 && static_cast<size_t>(id) < names.size() ? names[static_cast<size_t>(id)]
                                                           : std::to_string(id);
}

bool is_among(const std::string& name, const std::vector<std::string>& names) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

void check_classes(const DetectOptions& options) {
  for (const std::string& name : options.only) {
    if (is_among(name, options.class_names)) continue;
    throw UsageError(fmt::format("--only {}: there is no such class; there are: {}", name,
                                 fmt::join(options.class_names, ", ")));
  }
}

void leave_out_unwanted(const DetectOptions& options, std::vector<Found>* found) {
  const auto is_unwanted = [&](const Found& one) {
    return one.place.score < options.least_score ||
           (!options.only.empty() && !is_among(class_name(options, one), options.only));
  };
  found->erase(std::remove_if(found->begin(), found->end(), is_unwanted), found->end());
}

// ----- What is told of it

Json box_json(const DetectOptions& options, const Found& found) {
  Json box = json_of(found.place.box);
  box.update({{"score", found.place.score},
              {"class", found.place.class_id},
              {"name", class_name(options, found)}});
  if (found.landmarks) {
    box.update({{"points", points_json(found.landmarks->points)}, {"pose", found.landmarks->pose}});
  }
  if (found.feature) {
    box.update({{"feature", found.feature->values}, {"aligned", found.feature->is_aligned}});
  }
  return box;
}

Json sighting_json(const DetectOptions& options, const std::string& input, const Frame& frame,
                   const Sighting& seen) {
  Json json = place_json(input, frame);
  json.update({{"width", frame.pixels.cols}, {"height", frame.pixels.rows}});
  if (seen.is_motion) json["motion"] = *seen.is_motion;
  if (!seen.found) return json;
  json["boxes"] = Json::array();
  for (const Found& found : *seen.found) json["boxes"].push_back(box_json(options, found));
  return json;
}

std::string text_of(const Json& seen, bool is_picture) {
  const Json boxes = seen.value("boxes", Json::array());
  std::string text =
      filled(is_picture ? "{input}" : kPlace, seen) + filled(", {width} x {height}:", seen);
  if (seen.contains("motion")) text += seen["motion"].get<bool>() ? " motion" : " still";
  if (seen.contains("boxes")) {
    text += fmt::format("{} {} found", seen.contains("motion") ? "," : "", boxes.size());
  }
  text += "\n";
  for (const Json& box : boxes)
    text += filled("  {name} {score:.2f}  x {x}, y {y}, {w} x {h}\n", box);
  return text;
}

cv::Mat drawn(const DetectOptions& options, const cv::Mat& bgr, const Sighting& seen) {
  cv::Mat picture = bgr.clone();
  for (const Found& found : seen.found.value_or(std::vector<Found>())) {
    const auto& [box, score, id] = found.place;
    draw_box(&picture, cv_rect(box), fmt::format("{} {:.2f}", class_name(options, found), score),
             id);
    if (found.landmarks) draw_landmarks(&picture, *found.landmarks, box);
  }
  return picture;
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

// ----- The way through the inputs

std::string as_it_is(const std::string& place) { return place; }

bool find(const DetectOptions& options, const Finder& finder, Reporter* reporter) {
  check_classes(options);
  const bool takes_pictures = finder.takes == FrameWalk::Takes::kAll;
  const Inputs inputs =
      listed(options.inputs, takes_pictures ? InputKind::kPicturesAndVideos : InputKind::kVideos,
             !options.frames.input.raw.empty());
  DrawingTarget drawings(options.out, inputs);
  OutputNames crops("--save-crops", with_slash(options.crops), inputs, {as_it_is});
  const std::string of_motion = finder.period > 0 ? "motion," : "";
  reporter->begin({"input,frame,time,width,height," + of_motion + "name,class,score,x,y,w,h",
                   inputs, options.class_names});
  return for_each_input(inputs, reporter, [&](const std::string& input) {
    FrameWalk walk(input, finder.takes, options.frames, reporter, &drawings);
    finder.begin();
    const std::string crop_prefix = options.crops.empty() ? "" : crops.claim(input, as_it_is);
    const bool is_picture = walk.kind() == FrameSource::Kind::kPicture;
    bool is_decided = false;
    while (const Frame* frame = walk.next()) {
      Sighting seen = finder.look(frame->pixels);
      if (seen.found) leave_out_unwanted(options, &*seen.found);
      is_decided = is_decided || seen.is_motion || seen.found;
      walk.draw([&] { return drawn(options, frame->pixels, seen); });
      const bool is_event = seen.is_motion || (seen.found && !seen.found->empty());
      if (finder.period > 0 && !is_event) continue;
      Json result = sighting_json(options, input, *frame, seen);
      if (!options.crops.empty() && seen.found) {
        save_crops(crop_prefix + (is_picture ? "" : fmt::format("-{:06}", frame->index)),
                   frame->pixels, inputs.names, &result["boxes"]);
      }
      reporter->report_one(
          result, [&](const Json& json) { return text_of(json, is_picture); }, is_picture);
    }
    if (!is_decided && finder.period > 0) walk.object_to_no_decision(finder.period);
  });
}

template <typename Task>
bool detect(const DetectOptions& options, Reporter* reporter) {
  const kel_nn::Library library(options.root);
  std::optional<Task> task;  // none: there was no frame yet
  const auto look = [&](const cv::Mat& bgr) {
    if (!task) task.emplace(library, size_of(bgr));
    const std::vector<kel_nn::Detection> places = task->detect(frame_of(bgr));
    Sighting seen;
    seen.found.emplace();
    for (const kel_nn::Detection& place : places) seen.found->push_back({place});
    return seen;
  };
  return find(options, {FrameWalk::Takes::kAll, look}, reporter);
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

bool watch(const WatchOptions& options, Reporter* reporter) {
  Watcher watcher(options.root, options.settings, options.is_always_awake,
                  [reporter](const std::string& note) { reporter->complain(note); });
  return find(options,
              {FrameWalk::Takes::kMoving, [&](const cv::Mat& bgr) { return watcher.look(bgr); },
               options.settings.period, [&] { watcher.restart(); }},
              reporter);
}

}  // namespace kelnn_cli
