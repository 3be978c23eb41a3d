#include "frame_source.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include "files.h"
#include "report.h"

namespace kelnn_cli {
namespace {

constexpr char kCameraPrefix[] = "camera:";
constexpr double kUsualFramesPerSecond = 25;
constexpr double kMaxFramesPerSecond = 1000;  // a file that says more is not to be believed

class Picture : public FrameSource {
 public:
  explicit Picture(const cv::Mat& pixels) : FrameSource(Kind::kPicture), pixels_(pixels) {}
  bool read(Frame* frame) override {
    *frame = {pixels_, 0, 0};
    return skip();
  }
  bool skip() override {
    const bool was_there = !done_;
    done_ = true;
    return was_there;
  }
  int64_t count() const override { return 1; }
  double frames_per_second() const override { return kUsualFramesPerSecond; }

 private:
  cv::Mat pixels_;
  bool done_ = false;
};

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

// A video file or a camera.
class Capture : public FrameSource {
 public:
  Capture(Kind kind, const std::string& name, const cv::VideoCapture& capture)
      : FrameSource(kind),
        name_(name),
        capture_(capture),
        has_time_stamps_(capture_.getBackendName() == "FFMPEG") {}

  bool read(Frame* frame) override {
    if (!capture_.read(pixels_) || pixels_.empty()) return end();
    frame->pixels = as_bgr(pixels_, name_);
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
  int64_t count() const override {
    const double count = kind() == Kind::kVideo ? capture_.get(cv::CAP_PROP_FRAME_COUNT) : 0;
    return count > 0 && count < 1e12 ? static_cast<int64_t>(count) : 0;
  }
  double frames_per_second() const override {
    const double rate = capture_.get(cv::CAP_PROP_FPS);
    return rate > 0 && rate <= kMaxFramesPerSecond ? rate : kUsualFramesPerSecond;
  }

 private:
  using Clock = std::chrono::steady_clock;

  // OpenCV does not tell the end from damage; but what has no frame at all is damaged.
  bool end() const {
    if (next_ == 0) throw Failure(name_ + ": not one frame can be read");
    return false;
  }
  // Of the frame just read.
  double seconds() {
    if (kind() == Kind::kCamera) {
      if (next_ == 0) start_ = Clock::now();
      return std::chrono::duration<double>(Clock::now() - start_).count();
    }
    const double even = static_cast<double>(next_) / frames_per_second();
    if (!has_time_stamps_) return even;
    const double stamp = capture_.get(cv::CAP_PROP_POS_MSEC) / 1000;
    if (next_ == 0) first_stamp_ = stamp;
    return stamp > first_stamp_ ? stamp - first_stamp_ : even;  // a stream may come without them
  }

  std::string name_;
  cv::VideoCapture capture_;
  bool has_time_stamps_;  // of the frame that was read, not of the one to come
  cv::Mat pixels_;
  int64_t next_ = 0;
  double first_stamp_ = 0;
  Clock::time_point start_;
};

// OpenCV says the same about all that it cannot open.
void check_readable(const std::string& path) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) throw Failure(path + ": a directory");
  if (access(path.c_str(), R_OK) != 0) throw Failure(path + ": " + std::strerror(errno));
}

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
  return std::make_unique<Capture>(FrameSource::Kind::kCamera, input, capture);
}

// Null when OpenCV does not take it for a picture.
std::unique_ptr<FrameSource> open_picture(const std::string& path) {
  if (!cv::haveImageReader(path)) return nullptr;
  cv::Mat pixels;
  try {
    pixels = cv::imdecode(read_file(path), cv::IMREAD_COLOR);
  } catch (const cv::Exception&) {
    pixels.release();  // too large, or damaged in a way that the decoder does not survive
  }
  if (pixels.empty()) throw Failure(path + ": a picture that is damaged or too large");
  return std::make_unique<Picture>(pixels);
}

std::unique_ptr<FrameSource> open_video(const std::string& path) {
  cv::VideoCapture capture(path);
  if (!capture.isOpened()) throw Failure(path + ": neither a picture nor a video that can be read");
  return std::make_unique<Capture>(FrameSource::Kind::kVideo, path, capture);
}

}  // namespace

std::unique_ptr<FrameSource> open_frames(const std::string& input) {
  if (input.compare(0, sizeof(kCameraPrefix) - 1, kCameraPrefix) == 0) return open_camera(input);
  check_readable(input);
  std::unique_ptr<FrameSource> picture = open_picture(input);
  return picture ? std::move(picture) : open_video(input);
}

}  // namespace kelnn_cli
