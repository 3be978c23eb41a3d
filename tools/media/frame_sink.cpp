// SPDX-License-Identifier: Apache-2.0
#include "frame_sink.h"

#include <algorithm>
#include <filesystem>
#include <optional>

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

class VideoSink : public FrameSink {
 public:
  VideoSink(const std::string& path, double frames_per_second)
      : path_(path), format_(video_format(path)), frames_per_second_(frames_per_second) {
    if (!format_) throw Failure(path + ": videos are written as .avi or .mp4");
  }
  void write(const cv::Mat& bgr) override {
    if (!encoder_) {
      file_.emplace(path_);
      encoder_ = video_module().make(path_, file_->path(), *format_, frames_per_second_);
    }
    encoder_->write(bgr);
  }
  void finish() override {
    if (!encoder_) return;
    encoder_->finish();
    file_->take_over();
  }

 private:
  std::string path_;
  const VideoFormat* format_;
  double frames_per_second_;
  std::optional<Successor> file_;  // none: there was no frame yet
  std::unique_ptr<FrameSink> encoder_;
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
  return std::make_unique<VideoSink>(path, frames_per_second);
}

DrawingTarget::DrawingTarget(const std::string& out, const std::vector<std::string>& inputs)
    : out_(out) {
  std::error_code error;
  const bool is_new_name = !fs::exists(out, error) && extension_of(out).empty();
  is_directory_ = !out.empty() && (out.back() == '/' || fs::is_directory(out, error) ||
                                   (inputs.size() > 1 && is_new_name));
  if (!out.empty() && inputs.size() > 1 && !is_directory_) {
    throw UsageError("--draw " + out + ": of several inputs, drawings go to a directory");
  }
  std::vector<std::string> outputs;
  for (const std::string& input : inputs) {
    for (const auto kind : {FrameSource::Kind::kPicture, FrameSource::Kind::kVideo}) {
      if (!out.empty()) outputs.push_back(path_for(input, kind));
    }
  }
  check_outputs(outputs, inputs);
}

std::string DrawingTarget::path_for(const std::string& input, FrameSource::Kind kind) const {
  return is_directory_ ? (fs::path(out_) / file_name_for(input, kind)).string() : out_;
}

std::string DrawingTarget::claim(const std::string& input, FrameSource::Kind kind) {
  const std::string path = path_for(input, kind);
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
