// SPDX-License-Identifier: Apache-2.0
// Frames of a video file or a stream. A file that ends before it should is told at its end; a stream that does is taken
// up again.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

#include "reconnection.h"
#include "report.h"

namespace kelnn_cli {
namespace {

class VideoReader : public FrameSource {
 public:
  VideoReader(const std::string& path, const InputSettings& settings,
              std::unique_ptr<StreamReader> reader)
      : FrameSource(Kind::kVideo), path_(path), settings_(settings), reader_(std::move(reader)) {}

  bool read(Frame* frame) override {
    if (!skip()) return false;
    convert(&frame->pixels);
    frame->seconds = seconds_;
    frame->index = next_ - 1;
    return true;
  }
  bool skip() override {
    decoded_ = reader_->next();
    if (!decoded_) return end();
    seconds_ = seconds();
    ++next_;
    ++count_;
    return true;
  }
  void seek(double seconds) override { is_sought_ = reader_->seek(seconds); }
  int64_t count() const override {
    if (reader_->stream()->nb_frames > 0) return reader_->stream()->nb_frames;
    if (reader_->input()->duration <= 0) return 0;
    const double seconds = static_cast<double>(reader_->input()->duration) / AV_TIME_BASE;
    return std::llround(seconds * frames_per_second());
  }
  double frames_per_second() const override { return reader_->frames_per_second(); }

 private:
  bool end() {
    if (settings_.is_over && settings_.is_over()) return false;
    if (count_ == 0) throw Failure(path_ + ": not one frame can be read");
    const std::string problem = reader_->problem();
    if (problem.empty()) return false;
    const char* const frames = count_ == 1 ? " frame was read" : " frames were read";
    settings_.object(path_, problem + ", " + std::to_string(count_) + frames);
    return false;
  }

  // Of the frame just decoded, since the first one.
  double seconds() {
    const AVStream& stream = *reader_->stream();
    const int64_t stamp = decoded_->best_effort_timestamp;
    if (count_ == 0 && stamp != AV_NOPTS_VALUE) {
      first_stamp_ = is_sought_ ? stream.start_time : stamp;
    }
    const bool is_stamped = stamp != AV_NOPTS_VALUE && stamp > first_stamp_;
    const AVRational tick = stream.time_base;  // multiplied first, 3 tenths are 0.3
    const double since_first =
        is_stamped ? static_cast<double>(stamp - first_stamp_) * tick.num / tick.den : 0;
    if (count_ == 0 && is_sought_) {
      next_ = std::llround(since_first * frames_per_second());
    }
    // A stream may come without them.
    return is_stamped ? since_first : static_cast<double>(next_) / frames_per_second();
  }

  void convert(cv::Mat* pixels) {
    const AVFrame& from = *decoded_;
    scaler_.reset(sws_getCachedContext(
        scaler_.release(), from.width, from.height, static_cast<AVPixelFormat>(from.format),
        from.width, from.height, AV_PIX_FMT_BGR24, SWS_BICUBIC, nullptr, nullptr, nullptr));
    if (converted_->width != from.width || converted_->height != from.height) {
      av_frame_unref(converted_.get());
      converted_->width = from.width;
      converted_->height = from.height;
      converted_->format = AV_PIX_FMT_BGR24;
      if (av_frame_get_buffer(converted_.get(), 0) < 0) throw Failure(path_ + ": no memory");
    }
    if (!scaler_ || sws_scale(scaler_.get(), from.data, from.linesize, 0, from.height,
                              converted_->data, converted_->linesize) < 0) {
      throw Failure(path_ + ": frames of a kind that is not supported");
    }
    const cv::Mat frame(from.height, from.width, CV_8UC3, converted_->data[0],
                        static_cast<size_t>(converted_->linesize[0]));
    turn(frame, pixels);
  }
  // The way up that the file says.
  void turn(const cv::Mat& frame, cv::Mat* pixels) {
    const auto* matrix = reinterpret_cast<const int32_t*>(
        av_stream_get_side_data(reader_->stream(), AV_PKT_DATA_DISPLAYMATRIX, nullptr));
    const int quarters = matrix ? cvRound(-av_display_rotation_get(matrix) / 90) & 3 : 0;
    if (quarters == 0) {
      frame.copyTo(*pixels);
    } else {
      cv::rotate(frame, *pixels, quarters - 1);  // 90 degrees clockwise, 180, 270
    }
  }

  std::string path_;
  InputSettings settings_;
  std::unique_ptr<StreamReader> reader_;
  const AVFrame* decoded_ = nullptr;
  Picture converted_{av_frame_alloc()};
  Scaler scaler_;
  bool is_sought_ = false;
  int64_t next_ = 0, count_ = 0, first_stamp_ = 0;  // the next frame's index; frames so far
  double seconds_ = 0;
};

// A server's stream without an end. Time is the clock's, since nobody knows what went by while it was not there.
class LiveStream : public FrameSource {
 public:
  LiveStream(const std::string& url, const InputSettings& settings,
             std::unique_ptr<VideoReader> reader)
      : FrameSource(Kind::kCamera),
        url_(url),
        settings_(settings),
        rate_(reader->frames_per_second()),
        reader_(std::move(reader)) {}

  bool read(Frame* frame) override {
    if (!take([&] { return reader_->read(frame); })) return false;
    if (next_ == 0) start_ = Clock::now();
    frame->seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    frame->index = next_++;
    return true;
  }
  bool skip() override {
    if (!take([&] { return reader_->skip(); })) return false;
    ++next_;
    return true;
  }
  int64_t count() const override { return 0; }
  double frames_per_second() const override { return rate_; }

 private:
  using Clock = std::chrono::steady_clock;

  template <typename Take>
  bool take(Take taken) {
    for (std::string problem = "it ended";;) {
      try {
        if (reader_ && taken()) {
          again_.note_success();
          return true;
        }
      } catch (const Failure& failure) {
        problem = failure.problem();
      }
      if (again_.is_over()) return false;
      reader_.reset();
      auto reader = again_.wait_and_open(AVMEDIA_TYPE_VIDEO, problem);
      if (reader) reader_ = std::make_unique<VideoReader>(url_, settings_, std::move(reader));
    }
  }

  std::string url_;
  InputSettings settings_;
  Reconnection again_{url_, settings_};
  double rate_;
  std::unique_ptr<VideoReader> reader_;  // none: the server has not come back
  int64_t next_ = 0;
  Clock::time_point start_;
};

}  // namespace

std::unique_ptr<FrameSource> open_video(const std::string& path, const InputSettings& settings,
                                        std::string* why_not) {
  auto reader = StreamReader::open(path, AVMEDIA_TYPE_VIDEO, settings, why_not);
  if (!reader) return nullptr;
  const bool is_live = Reconnection::is_needed_for(*reader);
  auto video = std::make_unique<VideoReader>(path, settings, std::move(reader));
  if (!is_live) return video;
  return std::make_unique<LiveStream>(path, settings, std::move(video));
}

}  // namespace kelnn_cli
