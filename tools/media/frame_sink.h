// SPDX-License-Identifier: Apache-2.0
// Writes frames to picture files and video files; which of them, a name's extension says.
#pragma once

#include <functional>
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
  const char* encoders;  // FFmpeg's names, the preferred first, with spaces between them
};

// One frame, in any format that can be written.
std::unique_ptr<FrameSink> make_picture(const std::string& path);

// .mp4 and .webm, which browsers play, or .avi; a Failure for another extension.
std::unique_ptr<FrameSink> make_video(const std::string& path, double frames_per_second);

// Which file each input's output goes to when a command is given an option like --draw OUT.
class OutputNames {
 public:
  // From what an input is called to what its output is, in a directory.
  using Rename = std::function<std::string(const std::string& place)>;

  // `out` is a file for a single input, and a directory for several; none: nothing is written. A UsageError when an
  // output, by whichever of its names, would take the place of an input.
  OutputNames(const std::string& option, const std::string& out, const Inputs& inputs,
              const std::vector<Rename>& names);

  bool are_wanted() const { return !out_.empty(); }
  // The path that is the input's from now on; a Failure when it is another's already.
  std::string claim(const std::string& input, const Rename& name);

 private:
  std::string path_for(const std::string& input, const Rename& name) const;

  std::string out_;
  Inputs inputs_;
  bool is_directory_ = false;
  std::vector<std::string> claimed_;
};

// Where frames go with --draw OUT.
class DrawingTarget {
 public:
  DrawingTarget(const std::string& out, const Inputs& inputs);

  // Null when nothing is drawn. `step`: every how many of the source's frames one is written.
  std::unique_ptr<FrameSink> open(const std::string& input, const FrameSource& source, int step);
  std::unique_ptr<FrameSink> open_picture(const std::string& input);

 private:
  OutputNames outputs_;
};

}  // namespace kelnn_cli
