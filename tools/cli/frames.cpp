// SPDX-License-Identifier: Apache-2.0
#include "frames.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "report.h"

namespace kelnn_cli {
namespace {

int64_t frames_to_pass(const FrameSource& source, const FrameOptions& options) {
  return options.limit == 0 ? source.count()
                            : std::min(source.count(), options.limit * options.step);
}

// Passes over the frames between two that are looked at; false: there is none left.
bool skip(FrameSource* source, int count) {
  while (count > 0 && source->skip()) --count;
  return count == 0;
}

}  // namespace

std::unique_ptr<FrameSource> open_moving(const std::string& input) {
  std::unique_ptr<FrameSource> source = open_frames(input);
  if (source->kind() == FrameSource::Kind::kPicture) {
    throw Failure(input, "a picture; motion takes a video or a camera");
  }
  return source;
}

FrameWalk::FrameWalk(const std::string& input, FrameSource* source, const FrameOptions& options)
    : source_(source),
      options_(options),
      progress_(input, frames_to_pass(*source, options), "frames", options.wants_progress) {
  catch_interruption();
}

const Frame* FrameWalk::next() {
  if (seen_ > 0) progress_.show(frame_.index + 1);
  const bool is_over = is_interrupted() || (options_.limit > 0 && seen_ == options_.limit) ||
                       (seen_ > 0 && !skip(source_, options_.step - 1)) || !source_->read(&frame_);
  ++seen_;
  return is_over ? nullptr : &frame_;
}

Json place_json(const std::string& input, const Frame& frame) {
  return {{"input", input}, {"frame", frame.index}, {"time", frame.seconds}};
}

Json json_of(const cv::Rect& box) {
  return {{"x", box.x}, {"y", box.y}, {"w", box.width}, {"h", box.height}};
}

Json json_of(const Detection& found) {
  Json json = json_of(found.box);
  json["score"] = found.score;
  return json;
}

Json points_json(const std::array<float, 10>& points) {
  Json pairs = Json::array();
  for (size_t i = 0; i < points.size(); i += 2) pairs.push_back({points[i], points[i + 1]});
  return pairs;
}

}  // namespace kelnn_cli
