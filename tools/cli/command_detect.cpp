// kelnn faces, kelnn objects and kelnn persons: what is where in pictures, videos and cameras.
#include <fmt/format.h>

#include <memory>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "detector.h"
#include "drawing.h"
#include "drawing_target.h"
#include "frames.h"

namespace kelnn_cli {
namespace {

// The detectors' classes are few; a model may still say another one.
std::string class_name(const DetectOptions& options, int class_id) {
  const size_t index = static_cast<size_t>(class_id);
  return class_id >= 0 && index < options.class_names.size() ? options.class_names[index]
                                                             : std::to_string(class_id);
}

struct Found {
  const DetectOptions& options;
  const std::string& input;
  bool is_picture;
  const Frame& frame;
  std::vector<Detection> places;
};

std::string text_of(const Found& found) {
  std::string text =
      fmt::format("{}, {} x {}: {} found\n",
                  found.is_picture ? found.input : place_text(found.input, found.frame),
                  found.frame.pixels.cols, found.frame.pixels.rows, found.places.size());
  for (const Detection& one : found.places) {
    text += line_of(class_name(found.options, one.class_id), one);
  }
  return text;
}

Json json_of(const Found& found) {
  Json json = place_json(found.input, found.frame);
  json["width"] = found.frame.pixels.cols;
  json["height"] = found.frame.pixels.rows;
  json["boxes"] = Json::array();
  for (const Detection& one : found.places) {
    Json box = json_of(one);
    box["class"] = one.class_id;
    box["name"] = class_name(found.options, one.class_id);
    json["boxes"].push_back(box);
  }
  return json;
}

cv::Mat drawn(const Found& found) {
  cv::Mat picture = found.frame.pixels.clone();
  for (const Detection& one : found.places) {
    draw_box(&picture, one.box,
             fmt::format("{} {:.2f}", class_name(found.options, one.class_id), one.score),
             one.class_id);
  }
  return picture;
}

bool detect(const DetectOptions& options, decltype(make_face_detector)* make_detector,
            Reporter* reporter) {
  const kel_nn::Library library(options.root);
  const std::unique_ptr<Detector> detector = make_detector(library);
  DrawingTarget drawings(options.out, options.inputs);
  return for_each_input(options.inputs, *reporter, [&](const std::string& input) {
    const std::unique_ptr<FrameSource> source = open_frames(input);
    const bool is_picture = source->kind() == FrameSource::Kind::kPicture;
    const std::unique_ptr<FrameSink> sink = drawings.open(input, *source, options.frames.step);
    FrameWalk walk(input, source.get(), options.frames);
    while (const Frame* frame = walk.next()) {
      const Found found = {options, input, is_picture, *frame, detector->detect(frame->pixels)};
      if (sink) sink->write(drawn(found));
      walk.report(reporter, found);
    }
    if (sink) sink->finish();
  });
}

}  // namespace

bool detect_faces(const DetectOptions& options, Reporter* reporter) {
  return detect(options, make_face_detector, reporter);
}

bool detect_persons(const DetectOptions& options, Reporter* reporter) {
  return detect(options, make_person_detector, reporter);
}

bool detect_objects(const DetectOptions& options, Reporter* reporter) {
  return detect(options, make_object_detector, reporter);
}

}  // namespace kelnn_cli
