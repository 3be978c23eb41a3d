// SPDX-License-Identifier: Apache-2.0
#include "scene.h"

#include <nlohmann/json.hpp>

namespace kelnn_cli {
namespace {

constexpr float kCry = 0.5f;  // the probability from which on it is one

Json event_of(const char* kind, int64_t track, const kel_nn::Detection& found) {
  const auto& [box, score, class_id] = found;
  return {{"event", kind}, {"track", track}, {"class", class_id}, {"score", score},
          {"x", box.x},    {"y", box.y},     {"w", box.w},        {"h", box.h}};
}

}  // namespace

std::vector<Json> Scene::see(Sighting* seen, const Frame& frame) {
  if (!seen->found) return leaving(tracker_.rest(frame.seconds));
  std::vector<kel_nn::Detection> places;
  for (const Found& found : *seen->found) places.push_back(found.place);
  const Tracker::Changes changes = tracker_.take(places, frame.seconds, frame.pixels.size());
  std::vector<Json> events;
  for (const Track& track : changes.entered) {
    events.push_back(event_of("entered", track.id, track.last));
  }
  for (size_t i = 0; i < changes.ids.size(); ++i) {
    Found& found = (*seen->found)[i];
    found.track = changes.ids[i];
    if (!found.feature || known_.is_empty()) continue;
    const Match match = known_.nearest(found.feature->values);
    if (!(match.similarity > threshold_)) continue;
    found.who = match.name;
    found.similarity = match.similarity;
    if (found.track == 0 || !recognised_[found.track].insert(match.name).second) continue;
    events.push_back(event_of("recognised", found.track, found.place));
    events.back().update({{"who", match.name}, {"similarity", match.similarity}});
  }
  const std::vector<Json> gone = leaving(changes.left);
  events.insert(events.end(), gone.begin(), gone.end());
  return events;
}

std::vector<Json> Scene::leaving(const std::vector<Track>& left) {
  std::vector<Json> events;
  for (const Track& track : left) {
    recognised_.erase(track.id);
    events.push_back(event_of("left", track.id, track.last));
    events.back()["dwell"] = track.last_seen - track.first_seen;
  }
  return events;
}

std::vector<Json> Scene::hear(float probability) {
  const bool begins = probability >= kCry && !is_crying_;
  is_crying_ = probability >= kCry;
  if (!begins) return {};
  return {Json{{"event", "cry"}, {"probability", probability}}};
}

std::vector<Json> Scene::finish() { return leaving(tracker_.finish()); }

}  // namespace kelnn_cli
