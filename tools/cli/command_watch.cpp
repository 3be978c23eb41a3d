// SPDX-License-Identifier: Apache-2.0
// kelnn watch: what a camera would do. Motion first, networks while something moves, the sound beside the picture; tracks,
// and events of what they tell.
#include <fmt/format.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "gallery.h"
#include "listener.h"
#include "scene.h"
#include "sightings.h"

namespace kelnn_cli {
namespace {

// Those who can be recognised. The user's own gallery is taken if it can be; one that was named has to be fine.
KnownFaces known_faces(const WatchOptions& options, Reporter* reporter) {
  std::error_code error;
  const bool is_users = options.gallery == gallery_of_user();
  if (is_users && !std::filesystem::exists(options.gallery, error)) return {};
  try {
    return Gallery(options.gallery, Gallery::Use::kRead, feature_network(options.root)).faces();
  } catch (const Failure& failure) {
    if (!is_users) throw;
    reporter->complain(fmt::format("names are left out: {}", failure.what()));
    return {};
  }
}

std::string clock_time() {
  const std::time_t now = std::time(nullptr);
  std::tm utc = {};
  gmtime_r(&now, &utc);
  char text[32];
  std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

std::string event_text(const Json& event) {
  std::string text = filled(std::string(kPlace) + ": {event}", event);
  if (event.contains("track")) text += filled(": {name}, track {track}", event);
  if (event.contains("who")) text += filled(", {who} {similarity:.2f}", event);
  if (event.contains("dwell")) text += filled(", after {dwell:.1f} s", event);
  if (event.contains("probability")) text += filled(" {probability:.5f}", event);
  return text + "\n";
}

class Watch {
 public:
  Watch(const WatchOptions& options, Reporter* reporter)
      : options_(options),
        reporter_(reporter),
        sightings_(options, InputKind::kVideos, "motion,event,track,who,dwell,", reporter),
        known_(known_faces(options, reporter)),
        watcher_(options.root, options.settings, options.is_always_awake, note()),
        listener_(options.root, note()) {}

  bool all() {
    return for_each_input(sightings_.inputs(), reporter_,
                          [this](const std::string& input) { watch(input); });
  }

 private:
  std::function<void(const std::string&)> note() const {
    return [reporter = reporter_](const std::string& note) { reporter->complain(note); };
  }

  void watch(const std::string& input) {
    FrameWalk walk(input, FrameWalk::Takes::kMoving, options_.frames, reporter_,
                   sightings_.drawings());
    sightings_.begin(input);
    watcher_.restart();
    is_live_ = walk.kind() == FrameSource::Kind::kCamera;
    listener_.begin(input, is_live_, told(options_.frames.input, reporter_));
    Scene scene(known_, options_.threshold);
    bool is_decided = false;
    Json place;  // of the last frame
    while (const Frame* frame = walk.next()) {
      place = place_json(input, *frame);
      Sighting seen = watcher_.look(frame->pixels);
      if (seen.found) sightings_.leave_out_unwanted(&*seen.found);
      is_decided = is_decided || seen.is_motion || seen.found;
      const std::vector<Json> of_sight = scene.see(&seen, frame->seconds);
      const auto heard = listener_.hear(frame->seconds + 1 / walk.frames_per_second());
      Json state = sightings_.json(*frame, seen);
      if (heard) state["sound"]["level"] = heard->level;
      walk.draw([&] { return sightings_.drawn(frame->pixels, seen); });
      for (const Json& event : of_sight) tell(place, event);
      for (const float probability : heard ? heard->crying : std::vector<float>()) {
        state["sound"]["probability"] = probability;
        for (const Json& event : scene.hear(probability)) tell(place, event);
      }
      const bool is_told = seen.is_motion || (seen.found && !seen.found->empty()) ||
                           (heard && !heard->crying.empty());
      if (is_told) sightings_.report(state, frame->pixels, false);
    }
    for (const Json& event : scene.finish()) tell(place, event);
    listener_.finish();
    if (!is_decided) walk.object_to_no_decision(options_.settings.period);
  }

  // All that is to be known of an event goes through here.
  void tell(const Json& place, const Json& what) {
    Json event = {{"event", what["event"]}};
    event.update(place);
    if (is_live_) event["clock"] = clock_time();
    if (what.contains("class")) event["name"] = sightings_.class_name(what["class"]);
    event.update(what);
    reporter_->report_one(event, event_text);
  }

  const WatchOptions& options_;
  Reporter* reporter_;
  Sightings sightings_;
  KnownFaces known_;
  Watcher watcher_;
  Listener listener_;
  bool is_live_ = false;
};

}  // namespace

bool watch(const WatchOptions& options, Reporter* reporter) {
  return Watch(options, reporter).all();
}

}  // namespace kelnn_cli
