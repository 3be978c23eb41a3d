// The way through the frames of an input that the commands on frames have in common.
#ifndef KEL_NN_TOOLS_FRAMES_H_
#define KEL_NN_TOOLS_FRAMES_H_

#include <memory>
#include <string>

#include "commands.h"
#include "detector.h"
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
  template <typename Result>
  void report(Reporter* reporter, const Result& result) {
    progress_.hide();
    reporter->report_one(result);
  }

 private:
  FrameSource* source_;
  FrameOptions options_;
  ProgressBar progress_;
  Frame frame_;
  int64_t seen_ = 0;
};

// "INPUT frame 3 at 0.120 s", and what JSON says of it.
std::string place_text(const std::string& input, const Frame& frame);
Json place_json(const std::string& input, const Frame& frame);

// "  name 0.97  x 1, y 2, 3 x 4" on a line.
std::string line_of(const std::string& name, const Detection& found);
Json json_of(const cv::Rect& box);
Json json_of(const Detection& found);  // with its score

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_FRAMES_H_
