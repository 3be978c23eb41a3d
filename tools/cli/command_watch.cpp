// SPDX-License-Identifier: Apache-2.0
// kelnn watch: what a camera would do. Motion first, networks while something moves, the sound beside the picture; tracks,
// and events of what they tell.
#include <fmt/format.h>

#include <ctime>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "clips.h"
#include "codecs.h"
#include "commands.h"
#include "event_command.h"
#include "files.h"
#include "gallery.h"
#include "listener.h"
#include "live_page.h"
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

std::string clock_time(const char* format) {
  const std::time_t now = std::time(nullptr);
  std::tm utc = {};
  gmtime_r(&now, &utc);
  char text[32];
  std::strftime(text, sizeof(text), format, &utc);
  return text;
}

std::string event_text(const Json& event) {
  std::string text = filled(std::string(kPlace) + ": {event}", event);
  if (event.contains("track")) text += filled(": {name}, track {track}", event);
  if (event.contains("who")) text += filled(", {who} {similarity:.2f}", event);
  if (event.contains("dwell")) text += filled(", after {dwell:.1f} s", event);
  if (event.contains("probability")) text += filled(" {probability:.5f}", event);
  if (event.contains("clip")) text += filled(", {clip}", event);
  return text + "\n";
}

// Where clips go their older ones are removed.
void check_clips(const std::string& directory, const std::vector<std::string>& inputs) {
  std::error_code error;
  const std::string root = with_slash(std::filesystem::weakly_canonical(directory, error));
  for (const std::string& input : inputs) {
    if (std::string(std::filesystem::weakly_canonical(input, error)).rfind(root, 0) != 0) continue;
    throw UsageError("--clips " + directory, "the input " + input + " is in it");
  }
}

class Watch {
 public:
  Watch(const WatchOptions& options, Reporter* reporter)
      : options_(options),
        reporter_(reporter),
        sightings_(options, InputKind::kVideos, "motion,event,track,who,dwell,clip,", reporter,
                   {options.gallery}),
        known_(known_faces(options, reporter)),
        watcher_(options.root, options.settings, options.is_always_awake, note()),
        listener_(options.root, note()) {
    if (!options.clips.directory.empty()) {
      check_clips(options.clips.directory, sightings_.inputs().names);
      clips_.emplace(options.clips, [this](const std::string& problem) {
        reporter_->complain(problem);
        is_fine_ = false;
      });
    }
    reporter->outlast_full_disks();
    if (!options.on_event.empty()) command_.emplace(options.on_event);
    if (!options.page) return;
    PageOptions page = *options.page;
    page.token = options.page_token;
    page_ = open_page(page, encode_jpeg);
    reporter->complain("the page is at " + page_->address());
  }

  bool all() {
    const bool ok = for_each_input(sightings_.inputs(), reporter_,
                                   [this](const std::string& input) { watch(input); });
    if (command_) {
      const std::string problem = command_->finish();
      tell_problems();
      if (!problem.empty()) reporter_->complain("--on-event: " + problem);
      is_fine_ = is_fine_ && problem.empty();
    }
    return ok && is_fine_ && reporter_->is_all_written();
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
    scene_.emplace(known_, options_.threshold);
    if (clips_) {
      const std::string start = is_live_ ? "-" + clock_time("%Y%m%dT%H%M%SZ") : "";
      clips_->begin(place_of(input, sightings_.inputs()) + start, walk.frames_per_second());
    }
    place_ = nullptr;
    try {
      look_at_all(input, &walk);
    } catch (...) {
      end();  // what has been seen is told nevertheless
      throw;
    }
    end();
    listener_.finish();
  }

  void look_at_all(const std::string& input, FrameWalk* walk) {
    bool is_decided = false;
    shown_.clear();
    while (const Frame* frame = walk->next()) {
      place_ = place_json(input, *frame);
      Sighting seen = watcher_.look(frame->pixels);
      if (seen.found) sightings_.leave_out_unwanted(&*seen.found);
      is_decided = is_decided || seen.is_motion || seen.found;
      std::vector<Json> events = scene_->see(&seen, *frame);
      Json state = sightings_.json(*frame, seen);
      const auto heard = listener_.hear(frame->seconds + 1 / walk->frames_per_second());
      if (heard) state["sound"]["level"] = heard->level;
      for (const float probability : heard ? heard->crying : std::vector<float>()) {
        state["sound"]["probability"] = probability;
        for (const Json& event : scene_->hear(probability)) events.push_back(event);
      }
      draw(input, walk, [&] { return sightings_.drawn(frame->pixels, seen); });
      if (clips_) tell_clip(clips_->take(*frame));
      for (const Json& event : events) tell(event);
      const bool is_told = seen.is_motion || (seen.found && !seen.found->empty()) ||
                           (heard && !heard->crying.empty());
      if (page_) show(frame->pixels, seen, state);
      if (is_told) sightings_.report(state, frame->pixels, false);
      tell_problems();
    }
    if (!is_decided) walk->object_to_no_decision(options_.settings.period);
  }

  // Watching goes on when a drawing cannot be written, as on a full disk.
  void draw(const std::string& input, FrameWalk* walk, const std::function<cv::Mat()>& drawn) {
    try {
      walk->draw(drawn);
    } catch (const Failure& failure) {
      reporter_->complain(fmt::format("{}; {} is not drawn any more", failure.what(), input));
      walk->stop_drawing();
      is_fine_ = false;
    }
  }

  void end() {
    for (const Json& event : scene_->finish()) tell(event);
    if (clips_) tell_clip(clips_->finish());
  }

  void tell_clip(const std::string& path) {
    if (!path.empty()) tell({{"event", "clip"}, {"clip", path}});
  }

  // On the page what was decided holds until the next decision.
  void show(const cv::Mat& bgr, const Sighting& seen, const Json& state) {
    shown_["boxes"] = Json::array();
    shown_.merge_patch(state);
    if (!page_->wants_frame()) return;
    for (Json& box : shown_["boxes"]) {
      for (const char* of_programs : {"feature", "points", "pose"}) box.erase(of_programs);
    }
    page_->show(sightings_.drawn(bgr, seen), shown_);
  }

  // All that is to be known of an event goes through here.
  void tell(const Json& what) {
    Json event = {{"event", what["event"]}};
    event.update(place_);
    if (is_live_) event["clock"] = clock_time("%Y-%m-%dT%H:%M:%SZ");
    if (what.contains("class")) event["name"] = sightings_.class_name(what["class"]);
    event.update(what);
    if (clips_ && !event.contains("clip")) event["clip"] = clips_->want();
    reporter_->report_one(event, event_text);
    if (command_) command_->give(dumped(event));
    if (page_) page_->tell(event);
  }

  void tell_problems() {
    for (const std::string& problem :
         command_ ? command_->problems() : std::vector<std::string>()) {
      reporter_->complain(problem);
    }
  }

  const WatchOptions& options_;
  Reporter* reporter_;
  Sightings sightings_;
  KnownFaces known_;
  Watcher watcher_;
  Listener listener_;
  std::optional<Scene> scene_;  // of the input
  std::optional<Clips> clips_;
  std::optional<EventCommand> command_;
  std::unique_ptr<LivePage> page_;  // none: it is not wanted
  Json place_;                      // the last frame's
  Json shown_ = Json::object();     // on the page
  bool is_live_ = false, is_fine_ = true;
};

}  // namespace

bool watch(const WatchOptions& options, Reporter* reporter) {
  return Watch(options, reporter).all();
}

}  // namespace kelnn_cli
