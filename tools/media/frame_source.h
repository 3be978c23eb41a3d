// SPDX-License-Identifier: Apache-2.0
// Frames of a picture, a video or a camera, one after the other.
#pragma once

#include <cstdint>
#include <memory>
#include <opencv2/core.hpp>
#include <string>

#include "inputs.h"

namespace kelnn_cli {

struct Frame {
  cv::Mat pixels;      // 8-bit BGR
  int64_t index = 0;   // from 0, skipped frames included; after a seek by time and rate
  double seconds = 0;  // since the first frame
};

class FrameSource {
 public:
  enum class Kind { kPicture, kVideo, kCamera };  // a stream without an end is a camera's

  explicit FrameSource(Kind kind) : kind_(kind) {}
  virtual ~FrameSource() = default;
  FrameSource(const FrameSource&) = delete;
  FrameSource& operator=(const FrameSource&) = delete;

  Kind kind() const { return kind_; }
  // False: there is none left. Pixels go where those of the frame are that is given, if they have the size.
  virtual bool read(Frame* frame) = 0;
  virtual bool skip() = 0;  // the same without decoding
  // Before the first frame: those that lie far before `seconds` may be left out.
  virtual void seek(double seconds) { static_cast<void>(seconds); }
  virtual int64_t count() const = 0;  // as the file says; 0: not known
  virtual double frames_per_second() const = 0;

 private:
  Kind kind_;
};

constexpr char kCameraPrefix[] = "camera:";
constexpr double kUsualFramesPerSecond = 25;
constexpr double kMaxFramesPerSecond = 1000;  // a file that says more is not to be believed

// `input` is a file, the URL of a stream, "camera:NUMBER", or of raw frames also "-", standard input. A Failure names it
// and says why it cannot be read.
std::unique_ptr<FrameSource> open_frames(const std::string& input, const InputSettings& settings);

}  // namespace kelnn_cli
