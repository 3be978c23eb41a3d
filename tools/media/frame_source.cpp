// SPDX-License-Identifier: Apache-2.0
#include "frame_source.h"

#include "codec_modules.h"
#include "inputs.h"
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

std::unique_ptr<FrameSource> open_picture(const std::string& path, const InputSettings& settings) {
  return std::make_unique<PictureSource>(load_picture(path, settings));
}

}  // namespace

std::unique_ptr<FrameSource> open_frames(const std::string& input, const InputSettings& settings) {
  if (input.compare(0, sizeof(kCameraPrefix) - 1, kCameraPrefix) == 0) {
    return opencv_module().open_camera(input);
  }
  const bool is_file = !is_url(input), is_raw = !settings.raw.empty();
  if (is_file && !(is_raw && input == "-")) check_readable(input);
  if (is_file && !is_raw && is_usual_picture(input)) return open_picture(input, settings);
  // Videos before other pictures, which take longer to tell.
  std::string why_not;
  if (auto video = video_module().open(input, settings, &why_not)) return video;
  if (is_file && !is_raw && opencv_module().is_picture(input)) return open_picture(input, settings);
  if (!why_not.empty()) why_not = " (" + why_not + ")";
  throw Failure(input, (is_file ? "neither a picture nor a video that can be read"
                                : "no stream that can be read") +
                           why_not);
}

}  // namespace kelnn_cli
