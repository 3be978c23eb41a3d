// kelnn watch: motion, then people, then faces, as a camera would look at its frames.
#include <fmt/format.h>

#include <memory>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "drawing.h"
#include "drawing_target.h"
#include "frames.h"
#include "landmark_points.h"
#include "watcher.h"

namespace kelnn_cli {
namespace {

constexpr int kPersonColour = 0, kFaceColour = 1;  // of draw_box()

struct Event {
  const std::string& input;
  const Frame& frame;
  const Sighting& seen;
};

const Detection& place_of(const Detection& person) { return person; }
const Detection& place_of(const WatchedFace& face) { return face.place; }

std::string text_of(const Event& event) {
  const std::optional<bool> is_motion = event.seen.is_motion;
  std::string text = fmt::format("{}:{}\n", place_text(event.input, event.frame),
                                 !is_motion   ? ""
                                 : *is_motion ? " motion"
                                              : " still");
  const auto add = [&text](const char* name, const auto& places) {
    if (!places) return;
    for (const auto& one : *places) text += line_of(name, place_of(one));
  };
  add("person", event.seen.persons);
  add("face", event.seen.faces);
  return text;
}

Json json_of(const WatchedFace& face) {
  Json json = json_of(face.place);
  if (face.landmarks) {
    json["points"] = Json::array();
    for (size_t i = 0; i < face.landmarks->points.size(); i += 2) {
      json["points"].push_back({face.landmarks->points[i], face.landmarks->points[i + 1]});
    }
    json["pose"] = face.landmarks->pose;
  }
  if (face.features) json["feature"] = *face.features;
  return json;
}

Json json_of(const Event& event) {
  Json json = place_json(event.input, event.frame);
  if (event.seen.is_motion) json["motion"] = *event.seen.is_motion;
  const auto add = [&json](const char* name, const auto& places) {
    if (!places) return;
    json[name] = Json::array();
    for (const auto& one : *places) json[name].push_back(json_of(one));
  };
  add("persons", event.seen.persons);
  add("faces", event.seen.faces);
  return json;
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
  const std::unique_ptr<FrameSource> source = open_moving(options.input);
  const std::unique_ptr<FrameSink> sink =
      DrawingTarget(options.out, {options.input}).open(options.input, *source, 1);
  Watcher watcher(options.root, options.settings, options.is_always_awake,
                  [reporter](const std::string& note) { reporter->complain(note); });
  FrameWalk walk(options.input, source.get(), options.frames);
  while (const Frame* frame = walk.next()) {
    const Sighting sighting = watcher.look(frame->pixels);
    if (sink) sink->write(drawn(frame->pixels, sighting));
    if (sighting.is_event()) walk.report(reporter, Event{options.input, *frame, sighting});
  }
  if (sink) sink->finish();
  return true;
}

}  // namespace kelnn_cli
