// SPDX-License-Identifier: Apache-2.0
// The way through the frames of an input that the commands on frames have in common.
#ifndef KEL_NN_TOOLS_FRAMES_H_
#define KEL_NN_TOOLS_FRAMES_H_

#include <memory>
#include <string>

#include "commands.h"
#include "detection.h"
#include "frame_source.h"
#include "progress_bar.h"
#include "reporter.h"

namespace kelnn_cli {

// A Failure for a picture, which does not move.
std::unique_ptr<FrameSource> open_moving(const std::string& input);

class FrameWalk {
 public:
  FrameWalk(const std::string& input, FrameSource* source, const FrameOptions& options);

  // The next frame to look at, which holds until the one after it; null at the end, and after Ctrl-C.
  const Frame* next();
  // Says something of the frame, not on top of the progress bar.
  void report(Reporter* reporter, const Json& result, const Text& text) {
    progress_.hide();
    reporter->report_one(result, text);
  }

 private:
  FrameSource* source_;
  FrameOptions options_;
  ProgressBar progress_;
  Frame frame_;
  int64_t seen_ = 0;
};

// What every result of a frame begins with, as JSON and as the format of its text: "INPUT frame 3 at
// 0.120 s".
Json place_json(const std::string& input, const Frame& frame);
constexpr char kPlace[] = "{input} frame {frame} at {time:.3f} s";

Json json_of(const cv::Rect& box);
// With its score; in the text as kFound, after its name.
Json json_of(const Detection& found);
constexpr char kFound[] = " {score:.2f}  x {x}, y {y}, {w} x {h}\n";

// Pairs of numbers.
Json points_json(const std::array<float, 10>& points);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_FRAMES_H_
