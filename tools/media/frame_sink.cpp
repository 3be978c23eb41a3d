#include "frame_sink.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>

#include "files.h"
#include "report.h"

namespace kelnn_cli {
namespace {

namespace fs = std::filesystem;

struct VideoFormat {
  const char* extension;
  const char* codec;
};
constexpr VideoFormat kVideoFormats[] = {{".avi", "MJPG"}, {".mp4", "mp4v"}};

std::string extension_of(const std::string& path) {
  std::string extension = fs::path(path).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return extension;
}

const VideoFormat* video_format(const std::string& path) {
  for (const VideoFormat& format : kVideoFormats) {
    if (extension_of(path) == format.extension) return &format;
  }
  return nullptr;
}

class Picture : public FrameSink {
 public:
  explicit Picture(const std::string& path) : path_(path) {
    if (!fs::path(path).has_extension() || !cv::haveImageWriter(path)) {
      throw Failure(path + ": pictures are written as .png, .jpg, .bmp and what else OpenCV knows");
    }
  }
  void write(const cv::Mat& bgr) override {
    bool done = false;
    try {
      done = cv::imencode(extension_of(path_), bgr, bytes_);
    } catch (const cv::Exception&) {
      done = false;  // too large for the format
    }
    if (!done) throw Failure(path_ + ": the picture does not fit this format");
  }
  void finish() override { write_file(path_, bytes_); }

 private:
  std::string path_;
  Bytes bytes_;
};

class Video : public FrameSink {
 public:
  Video(const std::string& path, double frames_per_second)
      : path_(path), frames_per_second_(frames_per_second), format_(video_format(path)) {
    if (!format_) throw Failure(path + ": videos are written as .avi or .mp4");
    // The extension stays: OpenCV takes the format from it.
    const fs::path name = fs::path(path).filename();
    own_path_ = (fs::path(path).parent_path() /
                 (".kelnn-" + std::to_string(getpid()) + "-" + name.string()))
                    .string();
  }
  ~Video() override {
    if (size_.empty()) return;
    writer_.release();
    unlink(own_path_.c_str());
  }

  void write(const cv::Mat& bgr) override {
    if (size_.empty()) open(bgr.size());
    if (bgr.size() != size_) {
      throw Failure(path_ + ": the frames change their size, which a video file cannot");
    }
    writer_.write(bgr);
  }
  void finish() override {
    if (size_.empty()) return;
    writer_.release();
    std::error_code error;
    if (fs::file_size(own_path_, error) == 0 || error) {
      throw Failure(path_ + ": the video could not be written");
    }
    fs::rename(own_path_, path_, error);
    if (error) throw Failure(path_ + ": " + error.message());
    size_ = {};
  }

 private:
  void open(cv::Size size) {
    const char* c = format_->codec;
    std::error_code error;  // shows when the file cannot be opened
    fs::create_directories(fs::path(path_).parent_path(), error);
    size_ = size;
    bool is_open = false;
    try {
      is_open = writer_.open(own_path_, cv::VideoWriter::fourcc(c[0], c[1], c[2], c[3]),
                             frames_per_second_, size);
    } catch (const cv::Exception&) {
      is_open = false;
    }
    if (!is_open) {
      throw Failure(path_ +
                    ": cannot be written: is the directory writable, and does this OpenCV " +
                    "write " + format_->codec + " video of " + std::to_string(size.width) + " x " +
                    std::to_string(size.height) + " pixels? .avi works nearly everywhere");
    }
  }

  std::string path_, own_path_;
  double frames_per_second_;
  const VideoFormat* format_;
  cv::Size size_;  // none: nothing is open
  cv::VideoWriter writer_;
};

}  // namespace

std::unique_ptr<FrameSink> make_picture(const std::string& path) {
  return std::make_unique<Picture>(path);
}

std::unique_ptr<FrameSink> make_video(const std::string& path, double frames_per_second) {
  return std::make_unique<Video>(path, frames_per_second);
}

bool is_video_name(const std::string& path) { return video_format(path) != nullptr; }

}  // namespace kelnn_cli
