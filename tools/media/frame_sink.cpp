// SPDX-License-Identifier: Apache-2.0
#include "frame_sink.h"

#include "codec_modules.h"
#include "files.h"
#include "picture.h"
#include "report.h"

namespace kelnn_cli {
namespace {

constexpr VideoFormat kVideoFormats[] = {{".avi", "mjpeg"}, {".mp4", "mpeg4"}};

const VideoFormat* video_format(const std::string& path) {
  for (const VideoFormat& format : kVideoFormats) {
    if (extension_of(path) == format.extension) return &format;
  }
  return nullptr;
}

class Picture : public FrameSink {
 public:
  explicit Picture(const std::string& path) : path_(path) {
    if (!is_picture_name(path)) {
      throw Failure(path + ": pictures are written as .png, .jpg, .bmp and what else OpenCV knows");
    }
  }
  void write(const cv::Mat& bgr) override {
    bytes_ = encode_picture(extension_of(path_), bgr);
    if (bytes_.empty()) throw Failure(path_ + ": the picture does not fit this format");
  }
  void finish() override { write_file(path_, bytes_); }

 private:
  std::string path_;
  Bytes bytes_;
};

}  // namespace

std::unique_ptr<FrameSink> make_picture(const std::string& path) {
  return std::make_unique<Picture>(path);
}

std::unique_ptr<FrameSink> make_video(const std::string& path, double frames_per_second) {
  const VideoFormat* format = video_format(path);
  if (!format) throw Failure(path + ": videos are written as .avi or .mp4");
  return video_module().make(path, *format, frames_per_second);
}

bool is_video_name(const std::string& path) { return video_format(path) != nullptr; }

}  // namespace kelnn_cli
