// SPDX-License-Identifier: Apache-2.0
#include "frames.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>

#include "report.h"

namespace kelnn_cli {
namespace {

int64_t frames_to_pass(const FrameSource& source, const FrameOptions& options) {
  int64_t count = source.count();
  if (options.limit > 0) count = std::min(count, options.limit * options.step);
  if (options.input.duration == 0) return count;
  const double end = options.input.start + options.input.duration;
  return std::min(count, static_cast<int64_t>(end * source.frames_per_second()));
}

// Passes over the frames between two that are looked at; false: there is none left.
bool skip(FrameSource* source, int count) {
  while (count > 0 && source->skip()) --count;
  return count == 0;
}

std::unique_ptr<FrameSource> open_input(const std::string& input, FrameWalk::Takes takes,
                                        const InputSettings& settings) {
  std::unique_ptr<FrameSource> source = open_frames(input, settings);
  if (takes != FrameWalk::Takes::kAll && source->kind() == FrameSource::Kind::kPicture) {
    throw Failure(input, "a picture; motion takes a video or a camera");
  }
  if (takes == FrameWalk::Takes::kRecordings && source->kind() == FrameSource::Kind::kCamera) {
    throw Failure(input, "a camera; --sweep takes a recording, which has an end");
  }
  return source;
}

}  // namespace

FrameWalk::FrameWalk(const std::string& input, Takes takes, const FrameOptions& options,
                     Reporter* reporter, DrawingTarget* target)
    : input_(input),
      reporter_(reporter),
      options_(options),
      source_(open_input(input, takes, told_in_order())),
      frames_per_second_(source_->frames_per_second() / options.step),
      progress_(input, frames_to_pass(*source_, options), "frames") {
  catch_interruption();
  if (options.input.start > 0) source_->seek(options.input.start);
  if (target) sink_ = target->open(input, *source_, options.step);
  if (kind() == FrameSource::Kind::kPicture) return;
  ahead_ = std::make_unique<ReadAhead>([this](Frame* frame) { return read_next(frame); });
}

// What is told while frames are read ahead waits for its turn.
InputSettings FrameWalk::told_in_order() {
  InputSettings settings = told(options_.input, reporter_);
  settings.tell = [this](const std::string& message) {
    ahead_ ? ahead_->note(message) : reporter_->complain(message);
  };
  settings.is_over = [this] { return interruption() || (ahead_ && ahead_->is_over()); };
  return settings;
}

const Frame* FrameWalk::next() {
  const bool is_picture = !ahead_;
  if (seen_ > 0 && !is_picture) progress_.show(last_index_ + 1);
  if (const Frame* frame = interruption() ? nullptr : wait_for_next()) {
    ++seen_;
    last_index_ = frame->index;
    return frame;
  }
  if (interruption() && seen_ > 0 && !is_picture) {  // also while it waited
    reporter_->complain(fmt::format("{}: interrupted after frame {}", input_, last_index_));
  }
  if (sink_) {
    const Stopwatch watch(&work_.writing);
    sink_->finish();
  }
  work_.frames = seen_;
  reporter_->add(work_);
  return nullptr;
}

const Frame* FrameWalk::wait_for_next() {
  const Stopwatch watch(&work_.reading);
  if (!ahead_) return read_next(&picture_) ? &picture_ : nullptr;
  return ahead_->next([this](const std::string& message) { reporter_->complain(message); });
}

// By the thread that reads ahead, where there is one.
bool FrameWalk::read_next(Frame* frame) {
  if (options_.limit > 0 && read_ == options_.limit) return false;
  const bool is_first = read_++ == 0;
  if (!is_first && !skip(source_.get(), options_.step - 1)) return false;
  if (kind() == FrameSource::Kind::kPicture) return source_->read(frame);
  const auto& [start, duration] = std::pair(options_.input.start, options_.input.duration);
  constexpr double kUnsure = 0.001;  // times in files are rounded
  do {
    if (!source_->read(frame)) {
      if (!is_first || start == 0 || interruption()) return false;
      throw Failure(input_, fmt::format("ends before {} s", start));
    }
    if (frame->seconds < start) progress_.show(frame->index + 1);
  } while (is_first && frame->seconds + kUnsure < start && !interruption());
  return duration == 0 || frame->seconds + kUnsure < start + duration;
}

void FrameWalk::object_to_no_decision(int period) {
  if (interruption()) return;
  told(options_.input, reporter_)
      .object(input_, fmt::format("{} frames, fewer than a period of {}: nothing is decided", seen_,
                                  period));
}

Json place_json(const std::string& input, const Frame& frame) {
  return {{"input", input}, {"frame", frame.index}, {"time", frame.seconds}};
}

Json json_of(const kel_nn::Rect& box) {
  return {{"x", box.x}, {"y", box.y}, {"w", box.w}, {"h", box.h}};
}

Json points_json(const std::array<float, 10>& points) {
  Json pairs = Json::array();
  for (size_t i = 0; i < points.size(); i += 2) pairs.push_back({points[i], points[i + 1]});
  return pairs;
}

}  // namespace kelnn_cli
