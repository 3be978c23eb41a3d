// SPDX-License-Identifier: Apache-2.0
// kelnn watch: motion, then people, then faces, as a camera would look at its frames.
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "drawing.h"
#include "frames.h"
#include "watcher.h"

namespace kelnn_cli {
namespace {

constexpr int kPersonColour = 0, kFaceColour = 1;  // of draw_box()

Json named(const char* name, const Detection& place) {
  Json json = json_of(place);
  json["name"] = name;
  return json;
}

Json face_json(const WatchedFace& face) {
  Json json = named("face", face.place);
  if (face.landmarks) {
    json["points"] = points_json(face.landmarks->points);
    json["pose"] = face.landmarks->pose;
  }
  if (face.features) {
    json["feature"] = face.features->values;
    json["aligned"] = face.features->is_aligned;
  }
  return json;
}

Json event_json(const std::string& input, const Frame& frame, const Sighting& seen) {
  Json json = place_json(input, frame);
  if (seen.is_motion) json["motion"] = *seen.is_motion;
  if (seen.persons) json["persons"] = Json::array();
  for (const Detection& person : seen.persons.value_or(std::vector<Detection>())) {
    json["persons"].push_back(named("person", person));
  }
  if (seen.faces) json["faces"] = Json::array();
  for (const WatchedFace& face : seen.faces.value_or(std::vector<WatchedFace>())) {
    json["faces"].push_back(face_json(face));
  }
  return json;
}

std::string event_text(const Json& event) {
  std::string text = filled(kPlace, event) + ":";
  if (event.contains("motion")) text += event["motion"].get<bool>() ? " motion" : " still";
  text += "\n";
  const Json none = Json::array();
  for (const Json& person : event.value("persons", none))
    text += filled(std::string("  {name}") + kFound, person);
  for (const Json& face : event.value("faces", none))
    text += filled(std::string("  {name}") + kFound, face);
  return text;
}

cv::Mat drawn(const cv::Mat& bgr, const Sighting& seen) {
  cv::Mat picture = bgr.clone();
  const auto draw = [&picture](const char* name, const Detection& place, int colour) {
    draw_box(&picture, place.box, fmt::format("{} {:.2f}", name, place.score), colour);
  };
  for (const Detection& person : seen.persons.value_or(std::vector<Detection>())) {
    draw("person", person, kPersonColour);
  }
  for (const WatchedFace& face : seen.faces.value_or(std::vector<WatchedFace>())) {
    draw("face", face.place, kFaceColour);
    if (face.landmarks) draw_landmarks(&picture, *face.landmarks, face.place.box);
  }
  return picture;
}

}  // namespace

bool watch(const WatchOptions& options, Reporter* reporter) {
  const std::vector<std::string> inputs =
      listed(options.inputs, InputKind::kVideos, !options.frames.input.raw.empty());
  DrawingTarget drawings(options.out, inputs);
  reporter->begin({"input,frame,time,motion,name,score,x,y,w,h", inputs, {}});
  Watcher watcher(options.root, options.settings, options.is_always_awake,
                  [reporter](const std::string& note) { reporter->complain(note); });
  return for_each_input(inputs, reporter, [&](const std::string& input) {
    FrameWalk walk(input, FrameWalk::Takes::kMoving, options.frames, reporter, &drawings);
    watcher.restart();
    bool is_decided = options.is_always_awake;
    while (const Frame* frame = walk.next()) {
      const Sighting sighting = watcher.look(frame->pixels);
      is_decided = is_decided || sighting.is_motion;
      walk.draw([&] { return drawn(frame->pixels, sighting); });
      if (sighting.is_event())
        reporter->report_one(event_json(input, *frame, sighting), event_text);
    }
    if (!is_decided) walk.object_to_no_decision(options.settings.period);
  });
}

}  // namespace kelnn_cli
