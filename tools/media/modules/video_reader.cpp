// SPDX-License-Identifier: Apache-2.0
// Frames of a video file. A file that ends before it should is told at its end.
#include <algorithm>
#include <cstring>
#include <utility>

#include "ffmpeg.h"
#include "report.h"

namespace kelnn_cli {
namespace {

constexpr double kUnsure = 0.5;  // seconds by which a container may be wrong about its length

class VideoReader : public FrameSource {
 public:
  VideoReader(const std::string& path, Input input, AVStream* stream, Codec decoder)
      : FrameSource(Kind::kVideo),
        path_(path),
        input_(std::move(input)),
        stream_(stream),
        decoder_(std::move(decoder)) {}

  bool read(Frame* frame) override {
    if (!decode()) return false;
    convert();
    frame->pixels = pixels_;
    frame->seconds = seconds_;
    frame->index = next_ - 1;
    return true;
  }
  bool skip() override { return decode(); }
  int64_t count() const override {
    if (stream_->nb_frames > 0) return stream_->nb_frames;
    if (input_->duration <= 0) return 0;
    const double seconds = static_cast<double>(input_->duration) / AV_TIME_BASE;
    return static_cast<int64_t>(seconds * frames_per_second() + 0.5);
  }
  double frames_per_second() const override {
    const double rate = av_q2d(av_guess_frame_rate(input_.get(), stream_, nullptr));
    return rate > 0 && rate <= kMaxFramesPerSecond ? rate : kUsualFramesPerSecond;
  }

 private:
  // The next frame into decoded_; false at the end.
  bool decode() {
    for (;;) {
      const int result = avcodec_receive_frame(decoder_.get(), decoded_.get());
      if (result == 0) break;
      if (result == AVERROR_EOF) return end();
      if (result == AVERROR(EAGAIN)) {
        feed();
      } else {
        note_damage(result);
      }
    }
    if (decoded_->decode_error_flags) note_damage(AVERROR_INVALIDDATA);
    seconds_ = seconds();
    ++next_;
    return true;
  }

  // Gives the decoder a packet, or says that there are no more.
  void feed() {
    for (;; av_packet_unref(packet_.get())) {
      const int result = av_read_frame(input_.get(), packet_.get());
      if (result < 0) {
        if (result != AVERROR_EOF) note_damage(result);
        avcodec_send_packet(decoder_.get(), nullptr);
        return;
      }
      note_end_of_packet();
      if (packet_->stream_index != stream_->index) continue;
      if (packet_->flags & AV_PKT_FLAG_CORRUPT) {
        note_damage(AVERROR_INVALIDDATA);
        continue;
      }
      const int sent = avcodec_send_packet(decoder_.get(), packet_.get());
      if (sent < 0) note_damage(sent);
      break;
    }
    av_packet_unref(packet_.get());
  }

  // Before the first frame it is none: a recording may begin between two that stand alone.
  void note_damage(int error) {
    if (next_ > 0 || error != AVERROR_INVALIDDATA) damage_ = error_text(error);
  }
  void note_end_of_packet() {
    const int64_t time = packet_->pts != AV_NOPTS_VALUE ? packet_->pts : packet_->dts;
    if (time == AV_NOPTS_VALUE) return;
    const AVRational base = input_->streams[packet_->stream_index]->time_base;
    end_seconds_ =
        std::max(end_seconds_, static_cast<double>(time + packet_->duration) * av_q2d(base));
  }
  bool is_cut_off() const {
    if (input_->duration <= 0 || input_->duration_estimation_method == AVFMT_DURATION_FROM_BITRATE)
      return false;
    const int64_t start = input_->start_time == AV_NOPTS_VALUE ? 0 : input_->start_time;
    const double stated = static_cast<double>(start + input_->duration) / AV_TIME_BASE;
    return end_seconds_ + std::max(kUnsure, 2 / frames_per_second()) < stated;
  }
  bool end() {
    if (next_ == 0) throw Failure(path_ + ": not one frame can be read");
    const std::string frames = std::to_string(next_) + (next_ == 1 ? " frame" : " frames");
    if (!damage_.empty()) throw Failure(path_ + ": damaged or cut off, " + frames + " were read");
    if (is_cut_off()) throw Failure(path_ + ": cut off, " + frames + " were read");
    return false;
  }

  // Of the frame just decoded, since the first one.
  double seconds() {
    const double even = static_cast<double>(next_) / frames_per_second();
    const int64_t stamp = decoded_->best_effort_timestamp;
    if (stamp == AV_NOPTS_VALUE) return even;
    if (next_ == 0) first_stamp_ = stamp;
    if (stamp <= first_stamp_) return even;  // a stream may come without them
    return static_cast<double>(stamp - first_stamp_) * av_q2d(stream_->time_base);
  }

  void convert() {
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
    turn(frame);
  }
  // Into pixels_, the way up that the file says.
  void turn(const cv::Mat& frame) {
    const auto* matrix = reinterpret_cast<const int32_t*>(
        av_stream_get_side_data(stream_, AV_PKT_DATA_DISPLAYMATRIX, nullptr));
    const int quarters = matrix ? cvRound(-av_display_rotation_get(matrix) / 90) & 3 : 0;
    if (quarters == 0) {
      frame.copyTo(pixels_);
    } else {
      cv::rotate(frame, pixels_, quarters - 1);  // 90 degrees clockwise, 180, 270
    }
  }

  std::string path_;
  Input input_;
  AVStream* stream_;
  Codec decoder_;
  Packet packet_{av_packet_alloc()};
  Picture decoded_{av_frame_alloc()}, converted_{av_frame_alloc()};
  Scaler scaler_;
  cv::Mat pixels_;
  int64_t next_ = 0, first_stamp_ = 0;
  double seconds_ = 0, end_seconds_ = 0;
  std::string damage_;  // none: there is none so far
};

// FFmpeg takes pictures for videos of one frame.
bool is_picture_format(const AVInputFormat& format) {
  return std::strstr(format.name, "_pipe") || std::strstr(format.name, "image2") ||
         std::strcmp(format.name, "dicom") == 0;
}

}  // namespace

std::unique_ptr<FrameSource> open_video_file(const std::string& path, std::string* why_not) {
  last_ffmpeg_error();
  AVFormatContext* opened = nullptr;
  // A name with a colon is a file's, too.
  if (avformat_open_input(&opened, ("file:" + path).c_str(), nullptr, nullptr) < 0) {
    *why_not = last_ffmpeg_error();
    return nullptr;
  }
  Input input(opened);
  if (is_picture_format(*input->iformat)) return nullptr;
  const AVCodec* codec = nullptr;
  const int index = avformat_find_stream_info(input.get(), nullptr) < 0
                        ? -1
                        : av_find_best_stream(input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
  if (index < 0) {
    *why_not = "no video in it that can be decoded";
    return nullptr;
  }
  AVStream* stream = input->streams[index];
  Codec decoder(avcodec_alloc_context3(codec));
  if (!decoder || avcodec_parameters_to_context(decoder.get(), stream->codecpar) < 0)
    return nullptr;
  decoder->thread_count = 0;  // as many as there are processors
  decoder->pkt_timebase = stream->time_base;
  if (avcodec_open2(decoder.get(), codec, nullptr) < 0) {
    *why_not = last_ffmpeg_error();
    return nullptr;
  }
  return std::make_unique<VideoReader>(path, std::move(input), stream, std::move(decoder));
}

}  // namespace kelnn_cli
