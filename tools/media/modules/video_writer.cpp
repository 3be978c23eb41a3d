// SPDX-License-Identifier: Apache-2.0
// Writes a video file.
#include <sstream>

#include "ffmpeg.h"
#include "report.h"

namespace kelnn_cli {
namespace {

// Nearly no loss, and fast. What an encoder does not know it passes over.
constexpr int kQuantizer = 2;
constexpr char kEncoderOptions[] = "crf=18:preset=veryfast:deadline=realtime:cpu-used=6:row-mt=1";
constexpr int kMaxRatePart = 60000;  // of the frame rate as a fraction

// Closes the file as well.
struct FreeOutput {
  void operator()(AVFormatContext* output) const {
    avio_closep(&output->pb);
    avformat_free_context(output);
  }
};

struct Options {
  explicit Options(const char* text) { av_dict_parse_string(&entries, text, "=", ":", 0); }
  ~Options() { av_dict_free(&entries); }
  AVDictionary* entries = nullptr;
};

class VideoWriter : public FrameSink {
 public:
  VideoWriter(const std::string& path, const std::string& own_path, const VideoFormat& format,
              double frames_per_second)
      : path_(path),
        own_path_(own_path),
        format_(format),
        rate_(av_d2q(frames_per_second, kMaxRatePart)) {}

  void write(const cv::Mat& bgr) override {
    if (!output_) open(bgr.size());
    if (bgr.size() != size_) {
      throw Failure(path_ + ": the frames change their size, which a video file cannot");
    }
    check(av_frame_make_writable(frame_.get()));
    const int stride = static_cast<int>(bgr.step);
    check(
        sws_scale(scaler_.get(), &bgr.data, &stride, 0, bgr.rows, frame_->data, frame_->linesize));
    frame_->pts = next_++;
    encode(frame_.get());
  }
  void finish() override {
    if (!output_) return;
    encode(nullptr);
    check(av_write_trailer(output_.get()));
    check(output_->pb->error);
    check(avio_closep(&output_->pb));
  }

 private:
  void check(int result) const {
    if (result < 0) throw Failure(path_ + ": cannot be written: " + error_text(result));
  }

  void open(cv::Size size) {
    size_ = size;
    AVFormatContext* made = nullptr;
    const std::string url = "file:" + own_path_;
    check(avformat_alloc_output_context2(&made, av_guess_format(nullptr, path_.c_str(), nullptr),
                                         nullptr, url.c_str()));
    output_.reset(made);
    open_encoder();
    AVStream* stream = avformat_new_stream(made, nullptr);
    check(stream ? 0 : AVERROR(ENOMEM));
    stream->time_base = encoder_->time_base;
    stream->avg_frame_rate = rate_;
    check(avcodec_parameters_from_context(stream->codecpar, encoder_.get()));
    check(avio_open(&made->pb, url.c_str(), AVIO_FLAG_WRITE));
    Options options("movflags=+faststart");  // so that a browser begins before it has all
    check(avformat_write_header(made, &options.entries));
  }

  // With the first of the format's encoders that is there and takes this size.
  void open_encoder() {
    int problem = AVERROR_ENCODER_NOT_FOUND;
    std::istringstream names(format_.encoders);
    for (std::string name; problem < 0 && names >> name;) {
      if (const AVCodec* codec = avcodec_find_encoder_by_name(name.c_str())) {
        problem = open_encoder(codec);
      }
    }
    check(problem);
    frame_->width = size_.width;
    frame_->height = size_.height;
    frame_->format = encoder_->pix_fmt;
    frame_->quality = encoder_->global_quality;
    check(av_frame_get_buffer(frame_.get(), 0));
    scaler_.reset(sws_getContext(size_.width, size_.height, AV_PIX_FMT_BGR24, size_.width,
                                 size_.height, encoder_->pix_fmt, SWS_BICUBIC, nullptr, nullptr,
                                 nullptr));
    check(scaler_ ? 0 : AVERROR(EINVAL));
  }
  int open_encoder(const AVCodec* codec) {
    encoder_.reset(avcodec_alloc_context3(codec));
    check(encoder_ ? 0 : AVERROR(ENOMEM));
    encoder_->width = size_.width;
    encoder_->height = size_.height;
    encoder_->pix_fmt = codec->pix_fmts[0];
    encoder_->colorspace = AVCOL_SPC_SMPTE170M;  // as the scaler makes it, whatever the size
    encoder_->time_base = av_inv_q(rate_);
    encoder_->framerate = rate_;
    encoder_->flags |= AV_CODEC_FLAG_QSCALE;
    encoder_->global_quality = FF_QP2LAMBDA * kQuantizer;
    if (codec->capabilities & AV_CODEC_CAP_OTHER_THREADS) encoder_->thread_count = 0;  // all
    if (output_->oformat->flags & AVFMT_GLOBALHEADER) {
      encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    Options options(kEncoderOptions);
    return avcodec_open2(encoder_.get(), codec, &options.entries);
  }

  // Null: what the encoder still holds.
  void encode(const AVFrame* frame) {
    check(avcodec_send_frame(encoder_.get(), frame));
    for (;;) {
      const int result = avcodec_receive_packet(encoder_.get(), packet_.get());
      if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return;
      check(result);
      packet_->duration = 1;
      av_packet_rescale_ts(packet_.get(), encoder_->time_base, output_->streams[0]->time_base);
      check(av_interleaved_write_frame(output_.get(), packet_.get()));
    }
  }

  std::string path_, own_path_;
  VideoFormat format_;
  AVRational rate_;
  cv::Size size_;
  std::unique_ptr<AVFormatContext, FreeOutput> output_;
  Codec encoder_;
  Picture frame_{av_frame_alloc()};
  Packet packet_{av_packet_alloc()};
  Scaler scaler_;
  int64_t next_ = 0;
};

}  // namespace

std::unique_ptr<FrameSink> make_video_file(const std::string& path, const std::string& own_path,
                                           const VideoFormat& format, double frames_per_second) {
  return std::make_unique<VideoWriter>(path, own_path, format, frames_per_second);
}

}  // namespace kelnn_cli
