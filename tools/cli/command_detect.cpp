// kelnn faces, kelnn objects and kelnn persons: what is where in pictures, videos and cameras.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <sstream>

#include "command.h"
#include "detector.h"
#include "drawing.h"
#include "drawing_target.h"
#include "frame_source.h"
#include "interruption.h"
#include "progress_bar.h"

namespace kelnn_cli {
namespace {

constexpr size_t kObjectClassCount = 4;
constexpr char kDefaultObjectClasses[] = "class 0,class 1,class 2,class 3";
constexpr int64_t kLongVideo = 100;  // frames; fewer are done before a progress bar is read

struct Options {
  std::vector<std::string> inputs, class_names;
  std::string root, out;
  int step = 1;
  int64_t limit = 0;  // frames to look at in each input; 0: all
  bool wants_progress = false;
};

std::string formatted(const char* format, double value) {
  char text[32];
  std::snprintf(text, sizeof(text), format, value);
  return text;
}

std::vector<std::string> split(const std::string& list) {
  std::vector<std::string> parts;
  std::istringstream stream(list);
  for (std::string part; std::getline(stream, part, ',');) parts.push_back(part);
  return parts;
}

// The detectors' classes are few; a model may still say another one.
std::string class_name(const Options& options, int class_id) {
  const size_t index = static_cast<size_t>(class_id);
  return class_id >= 0 && index < options.class_names.size() ? options.class_names[index]
                                                             : std::to_string(class_id);
}

Report report_of(const std::string& input, const Frame& frame, bool is_picture,
                 const std::vector<Detection>& found, const Options& options) {
  Report report;
  report.text = input;
  if (!is_picture) {
    report.text +=
        " frame " + std::to_string(frame.index) + " at " + formatted("%.3f", frame.seconds) + " s";
  }
  report.text += ", " + std::to_string(frame.pixels.cols) + " x " +
                 std::to_string(frame.pixels.rows) + ": " + std::to_string(found.size()) +
                 " found\n";
  report.json = {{"input", input},
                 {"frame", frame.index},
                 {"time", frame.seconds},
                 {"width", frame.pixels.cols},
                 {"height", frame.pixels.rows},
                 {"boxes", Json::array()}};
  for (const Detection& one : found) {
    const std::string name = class_name(options, one.class_id);
    report.text += "  " + name + " " + formatted("%.2f", double{one.score}) + "  x " +
                   std::to_string(one.box.x) + ", y " + std::to_string(one.box.y) + ", " +
                   std::to_string(one.box.width) + " x " + std::to_string(one.box.height) + "\n";
    report.json["boxes"].push_back({{"x", one.box.x},
                                    {"y", one.box.y},
                                    {"w", one.box.width},
                                    {"h", one.box.height},
                                    {"score", one.score},
                                    {"class", one.class_id},
                                    {"name", name}});
  }
  return report;
}

void draw(const cv::Mat& bgr, const std::vector<Detection>& found, const Options& options,
          FrameSink* sink) {
  cv::Mat drawn = bgr.clone();
  for (const Detection& one : found) {
    draw_box(&drawn, one.box,
             class_name(options, one.class_id) + " " + formatted("%.2f", double{one.score}),
             one.class_id);
  }
  sink->write(drawn);
}

// Passes over the frames between two that are looked at; false: there is none left.
bool skip(FrameSource* source, int count) {
  while (count > 0 && source->skip()) --count;
  return count == 0;
}

void detect(const std::string& input, const Options& options, Detector* detector,
            DrawingTarget* drawings, const Listener& listener) {
  const std::unique_ptr<FrameSource> source = open_frames(input);
  const bool is_picture = source->kind() == FrameSource::Kind::kPicture;
  const std::unique_ptr<FrameSink> sink = drawings->open(input, *source, options.step);
  int64_t total = source->count();
  if (options.limit > 0) total = std::min(total, options.limit * options.step);
  const bool is_long = options.wants_progress || (is_terminal_error_output() && total > kLongVideo);
  ProgressBar progress(input, is_long ? total : 0);

  Frame frame;
  for (int64_t seen = 0; options.limit == 0 || seen < options.limit; ++seen) {
    if (is_interrupted() || (seen > 0 && !skip(source.get(), options.step - 1)) ||
        !source->read(&frame)) {
      break;
    }
    const std::vector<Detection> found = detector->detect(frame.pixels);
    if (sink) draw(frame.pixels, found, options, sink.get());
    progress.hide();
    listener.report(report_of(input, frame, is_picture, found, options));
    progress.show(frame.index + 1);
  }
  if (sink) sink->finish();
}

bool detect_all(const Options& options, Detector* detector, const Listener& listener) {
  DrawingTarget drawings(options.out, options.inputs);
  catch_interruption();
  bool ok = true;
  for (const std::string& input : options.inputs) {
    if (is_interrupted()) break;
    try {
      detect(input, options, detector, &drawings, listener);
    } catch (const OutputFailure&) {
      throw;
    } catch (const std::exception& error) {
      listener.complain(error.what());
      ok = false;
    }
  }
  return ok;
}

using MakeDetector = decltype(make_face_detector);

std::shared_ptr<Options> add_detector(CLI::App& app, StreamingCommand* chosen, const char* name,
                                      const char* purpose, MakeDetector* make_detector) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      name,
      std::string(purpose) +
          "\n"
          "Of each frame: its size, how many there are, and of each box its class, score (0 to "
          "1),\nleft and top edge and size in pixels. With --json an object a line for each "
          "frame, as it\ncomes. Frames may have any size up to 16384 pixels a side.\n"
          "An input that cannot be read is complained about, the others are still done, and "
          "the exit\ncode is 1.");
  command->add_option("input", options->inputs, kInputHelp)->required()->type_name("INPUT");
  command
      ->add_option("--draw", options->out,
                   "Write the frames with their boxes: a picture, or a video (.avi, .mp4); for\n"
                   "several inputs a directory")
      ->type_name("OUT");
  command->add_option("--every", options->step, "Look at every Nth frame only")
      ->type_name("N")
      ->check(CLI::Range(1, 1000000));
  command->add_option("--limit", options->limit, "Look at this many frames of each input at most")
      ->type_name("N")
      ->check(CLI::Range(int64_t{1}, int64_t{1000000000}));
  command->add_flag("--progress", options->wants_progress,
                    "Show on standard error how far a video is, also when that is no terminal");
  add_root(command, &options->root);
  command->callback([=] {
    *chosen = [=](const Listener& listener) {
      return detect_all(*options, make_detector(options->root).get(), listener);
    };
  });
  return options;
}

void add_class_names(CLI::App* command, std::vector<std::string>* names) {
  *names = split(kDefaultObjectClasses);
  command
      ->add_option_function<std::string>(
          "--classes", [names](const std::string& list) { *names = split(list); },
          "What the model's four classes are called")
      ->type_name("A,B,C,D")
      ->check(CLI::Validator(
          [](std::string& list) {
            return split(list).size() == kObjectClassCount ? ""
                                                           : "\"" + list + "\" is not four names";
          },
          ""));
}

}  // namespace

void add_detectors(CLI::App& app, StreamingCommand* chosen) {
  add_detector(app, chosen, "faces", "Finds the faces in pictures, videos and camera frames.",
               make_face_detector)
      ->class_names = {"face"};
  add_detector(app, chosen, "persons", "Finds the people in pictures, videos and camera frames.",
               make_person_detector)
      ->class_names = {"person"};
  const auto objects = add_detector(
      app, chosen, "objects",
      "Finds objects of four classes in pictures, videos and camera frames.", make_object_detector);
  add_class_names(app.get_subcommand("objects"), &objects->class_names);
}

}  // namespace kelnn_cli
