// SPDX-License-Identifier: Apache-2.0
#include "frame_sink.h"

#include <algorithm>
#include <filesystem>
#include <optional>

#include "codec_modules.h"
#include "files.h"
#include "picture.h"

namespace kelnn_cli {
namespace {

namespace fs = std::filesystem;

// Browsers play the first two. H.264 takes no odd sizes, VP9 does.
constexpr VideoFormat kVideoFormats[] = {{".mp4", "libx264 libopenh264 libvpx-vp9 mpeg4"},
                                         {".webm", "libvpx-vp9 libvpx"},
                                         {".avi", "mjpeg"}};

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
    if (!format_) throw Failure(path + ": videos are written as .mp4, .webm or .avi");
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

// Its own name, with an extension that can be written.
std::string picture_name(const std::string& place) {
  return is_picture_name(place) ? place : place + ".png";
}
std::string video_name(const std::string& place) {
  return video_format(place) ? place : place + kVideoFormats[0].extension;
}

}  // namespace

std::unique_ptr<FrameSink> make_picture(const std::string& path) {
  return std::make_unique<PictureSink>(path);
}

std::unique_ptr<FrameSink> make_video(const std::string& path, double frames_per_second) {
  return std::make_unique<VideoSink>(path, frames_per_second);
}

OutputNames::OutputNames(const std::string& option, const std::string& out, const Inputs& inputs,
                         const std::vector<Rename>& names)
    : out_(out), inputs_(inputs) {
  if (out.empty()) return;
  std::error_code error;
  const bool is_new_name = !fs::exists(out, error) && extension_of(out).empty();
  const bool are_several = inputs.names.size() > 1;
  is_directory_ = out.back() == '/' || fs::is_directory(out, error) ||
                  (are_several && is_new_name && out != "-");
  if (are_several && !is_directory_) {
    throw UsageError(option + " " + out, "of several inputs, outputs go to a directory");
  }
  std::vector<std::string> outputs;
  for (const std::string& input : inputs.names) {
    for (const Rename& name : names) outputs.push_back(path_for(input, name));
  }
  check_outputs(outputs, inputs.names);
}

std::string OutputNames::path_for(const std::string& input, const Rename& name) const {
  return is_directory_ ? (fs::path(out_) / name(place_of(input, inputs_))).string() : out_;
}

std::string OutputNames::claim(const std::string& input, const Rename& name) {
  const std::string path = path_for(input, name);
  if (std::find(claimed_.begin(), claimed_.end(), path) != claimed_.end()) {
    throw Failure(input, "the output of another input has the name " + path + " already");
  }
  claimed_.push_back(path);
  return path;
}

DrawingTarget::DrawingTarget(const std::string& out, const Inputs& inputs)
    : outputs_("--draw", out, inputs, {picture_name, video_name}) {}

std::unique_ptr<FrameSink> DrawingTarget::open(const std::string& input, const FrameSource& source,
                                               int step) {
  if (source.kind() == FrameSource::Kind::kPicture) return open_picture(input);
  if (!outputs_.are_wanted()) return nullptr;
  return make_video(outputs_.claim(input, video_name),
                    std::max(source.frames_per_second() / step, 1.0));
}

std::unique_ptr<FrameSink> DrawingTarget::open_picture(const std::string& input) {
  return outputs_.are_wanted() ? make_picture(outputs_.claim(input, picture_name)) : nullptr;
}

}  // namespace kelnn_cli
