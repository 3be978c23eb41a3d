// SPDX-License-Identifier: Apache-2.0
// Some seconds before and after each event, as videos in a directory of which they take no more than a limit.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "files.h"
#include "frame_sink.h"
#include "frame_source.h"

namespace kelnn_cli {

struct ClipSettings {
  std::string directory;            // none: no clips are wanted
  double before = 5, after = 5;     // seconds
  int64_t most_bytes = 1000000000;  // of all clips; the oldest go
};

constexpr char kClipExtension[] = ".clip.mp4";  // what has it may be removed

// A clip is encoded while it is taken, two pictures for each frame that comes, so that no frame waits for long: until then frames
// are kept as JPEGs.
class Clips {
 public:
  // `tell` is told of clips that cannot be written, once until one can.
  Clips(const ClipSettings& settings, const std::function<void(const std::string&)>& tell)
      : settings_(settings), tell_(tell) {}

  // Another input. `place`: what its clips' names begin with.
  void begin(const std::string& place, double frames_per_second);
  // All of them, also where nothing happens. Gives the clip that is complete now, if there is one.
  std::string take(const Frame& frame);
  // Of an event in the last frame: the clip that it is going to be in.
  std::string want();
  std::string finish();  // the one that is being taken ends here

 private:
  struct Shot {
    Bytes jpeg;
    double seconds;
    int64_t index;
  };

  std::string write(size_t count, bool is_last);
  void make_room() const;

  ClipSettings settings_;
  std::function<void(const std::string&)> tell_;
  std::string place_;
  double frames_per_second_ = 0;
  cv::Size size_;
  std::deque<Shot> shots_;           // that are in no clip yet, the oldest first
  size_t bytes_ = 0;                 // of them
  Shot last_ = {};                   // without its JPEG
  std::unique_ptr<FrameSink> sink_;  // none: no clip is being taken
  std::string path_;
  double start_ = 0, end_ = 0;  // of the clip
  bool is_told_ = false;
};

}  // namespace kelnn_cli
