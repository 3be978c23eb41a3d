// SPDX-License-Identifier: Apache-2.0
// The way through the frames of an input that the commands on frames have in common.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "commands.h"
#include "frame_sink.h"
#include "progress_bar.h"
#include "read_ahead.h"
#include "reporter.h"

namespace kelnn_cli {

// Adds the seconds that it lives.
class Stopwatch {
 public:
  explicit Stopwatch(double* seconds) : seconds_(seconds) {}
  ~Stopwatch() { *seconds_ += std::chrono::duration<double>(Clock::now() - start_).count(); }
  Stopwatch(const Stopwatch&) = delete;
  Stopwatch& operator=(const Stopwatch&) = delete;

 private:
  using Clock = std::chrono::steady_clock;
  double* seconds_;
  Clock::time_point start_ = Clock::now();
};

class FrameWalk {
 public:
  enum class Takes { kAll, kMoving, kRecordings };

  // A Failure for an input of another kind. Frames that are drawn go to the target; none: nothing is drawn.
  FrameWalk(const std::string& input, Takes takes, const FrameOptions& options, Reporter* reporter,
            DrawingTarget* target = nullptr);
  ~FrameWalk() {  // what it reads asks it whether it is over
    if (ahead_) ahead_->stop();
  }
  FrameWalk(const FrameWalk&) = delete;
  FrameWalk& operator=(const FrameWalk&) = delete;

  FrameSource::Kind kind() const { return source_->kind(); }
  double frames_per_second() const { return frames_per_second_; }
  // The next frame to look at, which holds until the one after it; null at the end, and after Ctrl-C: then the drawings
  // are finished.
  const Frame* next();
  // The frame with what was found in it, where drawings are wanted.
  void draw(const std::function<cv::Mat()>& drawn) {
    const Stopwatch watch(&work_.writing);
    if (sink_) sink_->write(drawn());
  }
  void stop_drawing() { sink_.reset(); }  // what was drawn so far is gone
  // At the end, of frames that came to no decision: too few for a period.
  void object_to_no_decision(int period);

 private:
  InputSettings told_in_order();
  const Frame* wait_for_next();
  bool read_next(Frame* frame);

  std::string input_;
  Reporter* reporter_;
  std::unique_ptr<FrameSink> sink_;  // none: no drawings are wanted
  FrameOptions options_;
  Work work_;
  std::unique_ptr<ReadAhead> ahead_;  // none: the source is being opened, or is a picture
  std::unique_ptr<FrameSource> source_;
  double frames_per_second_;
  ProgressBar progress_;
  Frame picture_;
  int64_t read_ = 0;                   // frames that were asked for
  int64_t seen_ = 0, last_index_ = 0;  // frames that were given, and the number of the last one
};

// What every result of a frame begins with, as JSON and as the format of its text: "INPUT frame 3 at
// 0.120 s".
Json place_json(const std::string& input, const Frame& frame);
constexpr char kPlace[] = "{input} frame {frame} at {time:.3f} s";

Json json_of(const kel_nn::Rect& box);

// Pairs of numbers.
Json points_json(const std::array<float, 10>& points);

}  // namespace kelnn_cli
