// SPDX-License-Identifier: Apache-2.0
#include "frames.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdio>
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

std::unique_ptr<FrameSource> open_input(const std::string& input, FrameWalk::Takes takes) {
  std::unique_ptr<FrameSource> source = open_frames(input);
  if (takes != FrameWalk::Takes::kAll && source->kind() == FrameSource::Kind::kPicture) {
    throw Failure(input, "a picture; motion takes a video or a camera");
  }
  if (takes == FrameWalk::Takes::kRecordings && source->kind() == FrameSource::Kind::kCamera) {
    throw Failure(input, "a camera; --sweep takes a recording, to look at it several times");
  }
  return source;
}

}  // namespace

FrameWalk::FrameWalk(const std::string& input, Takes takes, const FrameOptions& options,
                     const std::string& label)
    : input_(input),
      source_(open_input(input, takes)),
      options_(options),
      progress_(label, frames_to_pass(*source_, options), "frames", options.wants_progress) {
  catch_interruption();
}

FrameWalk::FrameWalk(const std::string& input, Takes takes, const FrameOptions& options,
                     DrawingTarget* target)
    : FrameWalk(input, takes, options, input) {
  sink_ = target->open(input, *source_, options.step);
}

const Frame* FrameWalk::next() {
  if (seen_ > 0) progress_.show(frame_.index + 1);
  if (interruption() && seen_ > 0 && kind() != FrameSource::Kind::kPicture) {
    progress_.hide();
    fmt::print(stderr, "kelnn: {}: interrupted after frame {}\n", input_, frame_.index);
  }
  const bool is_over = interruption() || (options_.limit > 0 && seen_ == options_.limit) ||
                       (seen_ > 0 && !skip(source_.get(), options_.step - 1)) ||
                       !source_->read(&frame_);
  ++seen_;
  if (is_over && sink_) sink_->finish();
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
