// kelnn watch: motion, then people, then faces, as a camera would look at its frames.
#include <memory>

#include "command.h"
#include "drawing.h"
#include "drawing_target.h"
#include "formatted.h"
#include "interruption.h"
#include "landmark_points.h"
#include "motion_options.h"
#include "progress_bar.h"
#include "watcher.h"

namespace kelnn_cli {
namespace {

constexpr int kPersonColour = 0, kFaceColour = 1;  // of draw_box()

struct Options {
  std::string input, root, out;
  MotionSettings settings;
  bool is_always_awake = false;
  int64_t limit = 0;
  bool wants_progress = false;
};

const Detection& place_of(const Detection& place) { return place; }
const Detection& place_of(const WatchedFace& face) { return face.place; }

std::string line_of(const char* name, const Detection& place) {
  return std::string("  ") + name + " " + formatted("%.2f", double{place.score}) + "  x " +
         std::to_string(place.box.x) + ", y " + std::to_string(place.box.y) + ", " +
         std::to_string(place.box.width) + " x " + std::to_string(place.box.height) + "\n";
}

Json json_of(const Detection& place) {
  return {{"x", place.box.x},
          {"y", place.box.y},
          {"w", place.box.width},
          {"h", place.box.height},
          {"score", place.score}};
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
  if (!face.features.empty()) json["feature"] = face.features;
  return json;
}

// A line of text for each, and a list of them in the JSON.
template <typename Found>
void add_places(const std::optional<std::vector<Found>>& found, const char* name, Report* report) {
  if (!found) return;
  report->json[name + std::string("s")] = Json::array();
  for (const Found& one : *found) {
    report->text += line_of(name, place_of(one));
    report->json[name + std::string("s")].push_back(json_of(one));
  }
}

Report report_of(const std::string& input, const Frame& frame, const Sighting& seen) {
  Report report;
  report.text = input + " frame " + std::to_string(frame.index) + " at " +
                formatted("%.3f", frame.seconds) + " s:";
  report.json = {{"input", input}, {"frame", frame.index}, {"time", frame.seconds}};
  if (seen.decision != Decision::kNotYet) {
    const bool is_motion = seen.decision == Decision::kMotion;
    report.text += is_motion ? " motion" : " still";
    report.json["motion"] = is_motion;
  }
  report.text += "\n";
  add_places(seen.persons, "person", &report);
  add_places(seen.faces, "face", &report);
  return report;
}

cv::Mat drawn(const cv::Mat& bgr, const Sighting& seen) {
  cv::Mat picture = bgr.clone();
  for (const Detection& person : seen.persons.value_or(std::vector<Detection>())) {
    draw_box(&picture, person.box, "person " + formatted("%.2f", double{person.score}),
             kPersonColour);
  }
  for (const WatchedFace& face : seen.faces.value_or(std::vector<WatchedFace>())) {
    draw_box(&picture, face.place.box, "face " + formatted("%.2f", double{face.place.score}),
             kFaceColour);
    if (face.landmarks) draw_landmarks(&picture, *face.landmarks, face.place.box);
  }
  return picture;
}

bool watch(const Options& options, const Listener& listener) {
  const std::unique_ptr<FrameSource> source = open_moving(options.input);
  const std::unique_ptr<FrameSink> sink =
      DrawingTarget(options.out, {options.input}).open(options.input, *source, 1);
  Watcher watcher(options.root, options.settings, options.is_always_awake, listener.complain);
  ProgressBar progress(options.input,
                       progress_total(*source, options.limit, options.wants_progress));
  Frame frame;
  for (int64_t seen = 0; options.limit == 0 || seen < options.limit; ++seen) {
    if (is_interrupted() || !source->read(&frame)) break;
    const Sighting sighting = watcher.look(frame.pixels);
    if (sink) sink->write(drawn(frame.pixels, sighting));
    if (sighting.is_event()) {
      progress.hide();
      listener.report(report_of(options.input, frame, sighting));
    }
    progress.show(frame.index + 1);
  }
  if (sink) sink->finish();
  return true;
}

}  // namespace

void add_watch(CLI::App& app, StreamingCommand* chosen) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "watch",
      "Looks as a camera would: motion, then people and faces.\n"
      "From a period with motion until one without it looks for people and for faces, and at\n"
      "each face for its landmarks and features. Prints every frame on which motion was\n"
      "decided or something was found; with --json an object a line, with the landmarks and\n"
      "features. Tasks whose model is missing are left out, with a note.");
  command->add_option("input", options->input, kMovingInputHelp)->required()->type_name("INPUT");
  add_motion_settings(command, &options->settings);
  command->add_flag("--always", options->is_always_awake, "Look for people and faces in any frame");
  command
      ->add_option("--draw", options->out,
                   "Write a video (.avi, .mp4) of all frames with what was found; landmarks are\n"
                   "drawn as parts of their face's box from 0 to 1")
      ->type_name("OUT");
  command->add_option("--limit", options->limit, "Look at this many frames at most")
      ->type_name("N")
      ->check(CLI::Range(int64_t{1}, int64_t{1000000000}));
  command->add_flag("--progress", options->wants_progress,
                    "Show on standard error how far it is, also when that is no terminal");
  add_root(command, &options->root);
  command->callback([=] {
    *chosen = [options](const Listener& listener) {
      catch_interruption();
      return watch(*options, listener);
    };
  });
}

}  // namespace kelnn_cli
