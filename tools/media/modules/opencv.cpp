// SPDX-License-Identifier: Apache-2.0
// opencv.so: every picture that OpenCV reads and writes, and cameras.
#include <chrono>
#include <climits>
#include <cstdlib>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include "codec_modules.h"
#include "report.h"

namespace kelnn_cli {
namespace {

bool is_picture(const std::string& path) { return cv::haveImageReader(path); }

// What OpenCV throws about pictures says no more than that they are too large, or damaged in a way
// that the decoder does not survive.
cv::Mat decode(const Bytes& bytes) {
  try {
    if (bytes.empty()) return {};
    if (bytes[0] != 0xFF) return cv::imdecode(bytes, cv::IMREAD_COLOR);
    // A JPEG that was cut off gets an end, so that what is missing is grey. Without one OpenCV leaves
    // there what happens to be in memory.
    Bytes ended = bytes;
    ended.insert(ended.end(), {0xFF, 0xD9});
    return cv::imdecode(ended, cv::IMREAD_COLOR);
  } catch (const cv::Exception&) {
    return {};
  }
}

bool is_written(const std::string& extension) { return cv::haveImageWriter("x" + extension); }

Bytes encode(const std::string& extension, const cv::Mat& bgr) {
  Bytes bytes;
  try {
    if (!cv::imencode(extension, bgr, bytes)) bytes.clear();
  } catch (const cv::Exception&) {
    bytes.clear();
  }
  return bytes;
}

cv::Mat as_bgr(const cv::Mat& pixels, const std::string& name) {
  if (pixels.type() == CV_8UC3) return pixels;
  cv::Mat bgr;
  if (pixels.type() == CV_8UC1) {
    cv::cvtColor(pixels, bgr, cv::COLOR_GRAY2BGR);
  } else if (pixels.type() == CV_8UC4) {
    cv::cvtColor(pixels, bgr, cv::COLOR_BGRA2BGR);
  } else {
    throw Failure(name + ": frames of a kind that is not supported");
  }
  return bgr;
}

class Camera : public FrameSource {
 public:
  Camera(const std::string& name, const cv::VideoCapture& capture)
      : FrameSource(Kind::kCamera), name_(name), capture_(capture) {}

  bool read(Frame* frame) override {
    if (!capture_.read(frame->pixels) || frame->pixels.empty()) return end();
    frame->pixels = as_bgr(frame->pixels, name_);
    frame->seconds = seconds();
    frame->index = next_++;
    return true;
  }
  bool skip() override {
    if (!capture_.grab()) return end();
    seconds();
    ++next_;
    return true;
  }
  int64_t count() const override { return 0; }
  double frames_per_second() const override {
    const double rate = capture_.get(cv::CAP_PROP_FPS);
    return rate > 0 && rate <= kMaxFramesPerSecond ? rate : kUsualFramesPerSecond;
  }

 private:
  using Clock = std::chrono::steady_clock;

  bool end() const {
    if (next_ == 0) throw Failure(name_ + ": not one frame can be read");
    return false;
  }
  // Of the frame just read.
  double seconds() {
    if (next_ == 0) start_ = Clock::now();
    return std::chrono::duration<double>(Clock::now() - start_).count();
  }

  std::string name_;
  cv::VideoCapture capture_;
  int64_t next_ = 0;
  Clock::time_point start_;
};

std::unique_ptr<FrameSource> open_camera(const std::string& input) {
  const std::string digits = input.substr(sizeof(kCameraPrefix) - 1);
  char* end = nullptr;
  const long number = std::strtol(digits.c_str(), &end, 10);
  if (digits.empty() || *end || number < 0 || number > INT_MAX) {
    throw Failure(input + ": a camera is camera: and its number, such as camera:0");
  }
  cv::VideoCapture capture(static_cast<int>(number));
  if (!capture.isOpened()) {
    throw Failure(input + ": cannot be opened: no such camera, no permission, or in use elsewhere");
  }
  return std::make_unique<Camera>(input, capture);
}

}  // namespace
}  // namespace kelnn_cli

extern "C" __attribute__((visibility("default"))) const kelnn_cli::OpenCvModule* kelnn_module() {
  using namespace kelnn_cli;
  static constexpr OpenCvModule kModule = {is_picture, decode, is_written, encode, open_camera};
  return &kModule;
}
