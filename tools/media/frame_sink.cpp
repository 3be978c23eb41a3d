// SPDX-License-Identifier: Apache-2.0
#include "frame_sink.h"

#include <algorithm>
#include <filesystem>

#include "codec_modules.h"
#include "files.h"
#include "picture.h"
#include "report.h"

namespace kelnn_cli {
namespace {

namespace fs = std::filesystem;

constexpr VideoFormat kVideoFormats[] = {{".avi", "mjpeg"}, {".mp4", "mpeg4"}};

const VideoFormat* video_format(const std::string& path) {
  for (const VideoFormat& format : kVideoFormats) {
    if (extension_of(path) == format.extension) return &format;
  }
  return nullptr;
}

class PictureSink : public FrameSink {
 public:
  explicit PictureSink(const std::string& path) : path_(path) {
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

// The input's own name, with an extension that can be written.
std::string file_name_for(const std::string& input, FrameSource::Kind kind) {
  std::string name = fs::path(input).filename();
  std::replace(name.begin(), name.end(), ':', '-');  // camera:0
  if (kind == FrameSource::Kind::kPicture) return is_picture_name(name) ? name : name + ".png";
  return video_format(name) ? name : name + ".avi";
}

}  // namespace

std::unique_ptr<FrameSink> make_picture(const std::string& path) {
  return std::make_unique<PictureSink>(path);
}

std::unique_ptr<FrameSink> make_video(const std::string& path, double frames_per_second) {
  const VideoFormat* format = video_format(path);
  if (!format) throw Failure(path + ": videos are written as .avi or .mp4");
  return video_module().make(path, *format, frames_per_second);
}

DrawingTarget::DrawingTarget(const std::string& out, const std::vector<std::string>& inputs)
    : out_(out) {
  std::error_code error;
  is_directory_ = !out.empty() && (out.back() == '/' || fs::is_directory(out, error));
  if (!out.empty() && inputs.size() > 1 && !is_directory_) {
    throw Failure("--draw " + out + ": of several inputs, drawings go to a directory; " + out +
                  "/ makes one");
  }
}

std::string DrawingTarget::claim(const std::string& input, FrameSource::Kind kind) {
  const std::string path =
      is_directory_ ? (fs::path(out_) / file_name_for(input, kind)).string() : out_;
  std::error_code error;
  if (fs::equivalent(path, input, error)) {
    throw Failure(path + ": the drawing would take the place of the input");
  }
  if (std::find(written_.begin(), written_.end(), path) != written_.end()) {
    throw Failure(input + ": the drawing of another input has the name " + path + " already");
  }
  written_.push_back(path);
  return path;
}

std::unique_ptr<FrameSink> DrawingTarget::open(const std::string& input, const FrameSource& source,
                                               int step) {
  if (source.kind() == FrameSource::Kind::kPicture) return open_picture(input);
  if (out_.empty()) return nullptr;
  return make_video(claim(input, source.kind()), std::max(source.frames_per_second() / step, 1.0));
}

std::unique_ptr<FrameSink> DrawingTarget::open_picture(const std::string& input) {
  if (out_.empty()) return nullptr;
  return make_picture(claim(input, FrameSource::Kind::kPicture));
}

}  // namespace kelnn_cli
