// SPDX-License-Identifier: Apache-2.0
// Writes frames to picture files and video files; which of them, a name's extension says.
#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "frame_source.h"

namespace kelnn_cli {

// The file appears under its name, whole, with finish(); without it nothing is left behind. All of
// them throw a Failure that names the file.
class FrameSink {
 public:
  virtual ~FrameSink() = default;
  virtual void write(const cv::Mat& bgr) = 0;
  virtual void finish() = 0;
};

struct VideoFormat {
  const char* extension;
  const char* encoder;  // FFmpeg's name of it
};

// One frame, in any format that can be written.
std::unique_ptr<FrameSink> make_picture(const std::string& path);

// .avi (motion JPEG) or .mp4 (MPEG-4).
std::unique_ptr<FrameSink> make_video(const std::string& path, double frames_per_second);

// Which file the frames of each input go to when a command is given --draw OUT.
class DrawingTarget {
 public:
  // `out` is a file for a single input, and a directory for several. None: nothing is drawn. A UsageError when a drawing
  // would take the place of an input.
  DrawingTarget(const std::string& out, const std::vector<std::string>& inputs);

  // Null when nothing is drawn. `step`: every how many of the source's frames one is written.
  std::unique_ptr<FrameSink> open(const std::string& input, const FrameSource& source, int step);
  std::unique_ptr<FrameSink> open_picture(const std::string& input);

 private:
  std::string path_for(const std::string& input, FrameSource::Kind kind) const;
  std::string claim(const std::string& input, FrameSource::Kind kind);

  std::string out_;
  bool is_directory_ = false;
  std::vector<std::string> written_;
};

}  // namespace kelnn_cli
