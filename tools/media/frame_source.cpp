// SPDX-License-Identifier: Apache-2.0
#include "frame_source.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "codec_modules.h"
#include "files.h"
#include "picture.h"
#include "report.h"

namespace kelnn_cli {
namespace {

class PictureSource : public FrameSource {
 public:
  explicit PictureSource(const cv::Mat& pixels) : FrameSource(Kind::kPicture), pixels_(pixels) {}
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

// The decoders say the same about all that they cannot open.
void check_readable(const std::string& path) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) throw Failure(path + ": a directory");
  if (access(path.c_str(), R_OK) != 0) throw Failure(path + ": " + std::strerror(errno));
}

std::unique_ptr<FrameSource> open_picture(const std::string& path) {
  const cv::Mat pixels = decode_picture(read_file(path));
  if (pixels.empty()) throw Failure(path + ": a picture that is damaged or too large");
  return std::make_unique<PictureSource>(pixels);
}

}  // namespace

std::unique_ptr<FrameSource> open_frames(const std::string& input) {
  if (input.compare(0, sizeof(kCameraPrefix) - 1, kCameraPrefix) == 0) {
    return opencv_module().open_camera(input);
  }
  check_readable(input);
  if (is_usual_picture(input)) return open_picture(input);
  // Videos before other pictures, which take longer to tell.
  std::string why_not;
  if (std::unique_ptr<FrameSource> video = video_module().open(input, &why_not)) return video;
  if (opencv_module().is_picture(input)) return open_picture(input);
  if (!why_not.empty()) why_not = " (" + why_not + ")";
  throw Failure(input + ": neither a picture nor a video that can be read" + why_not);
}

}  // namespace kelnn_cli
