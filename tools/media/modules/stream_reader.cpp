// SPDX-License-Identifier: Apache-2.0
#include "stream_reader.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "inputs.h"

namespace kelnn_cli {
namespace {

constexpr double kUnsure = 0.5;  // seconds by which a container may be wrong about its length
constexpr std::chrono::seconds kPatience(15);

// FFmpeg takes pictures for videos of one frame.
bool is_picture_format(const AVInputFormat& format) {
  return std::strstr(format.name, "_pipe") || std::strstr(format.name, "image2") ||
         std::strcmp(format.name, "dicom") == 0;
}

}  // namespace

std::unique_ptr<StreamReader> StreamReader::open(const std::string& path, AVMediaType type,
                                                 const InputSettings& settings,
                                                 std::string* why_not) {
  last_ffmpeg_error();
  std::unique_ptr<StreamReader> reader(new StreamReader(settings.is_over));
  const bool is_opened = reader->open_input(path, settings, is_url(path), why_not) &&
                         reader->open_decoder(type, !settings.raw.empty(), why_not);
  return is_opened ? std::move(reader) : nullptr;
}

bool StreamReader::open_input(const std::string& path, const InputSettings& settings,
                              bool is_server, std::string* why_not) {
  // A name with a colon is a file's, too.
  std::string url = is_server ? path : "file:" + path;
  const bool is_raw = !settings.raw.empty();
  AVFormatContext* opened = avformat_alloc_context();
  if (!opened) return false;
  std::error_code error;
  if (is_raw && !std::filesystem::is_regular_file(path, error)) {
    constexpr int kBlock = 1 << 16;
    pipe_ = path == "-" ? dup(STDIN_FILENO) : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    of_pipe_.reset(avio_alloc_context(static_cast<uint8_t*>(av_malloc(kBlock)), kBlock, 0, this,
                                      read_pipe, nullptr, nullptr));
    opened->pb = of_pipe_.get();
  }
  if (is_server) opened->interrupt_callback = {has_waited_enough, this};
  wait_from_now();
  // From cameras whole frames, also through what lets no other packets in; of files on servers what is missing.
  AVDictionary* options = nullptr;
  av_dict_parse_string(&options, is_raw ? settings.raw.c_str() : "rtsp_transport=tcp,reconnect=1",
                       "=", ",", 0);
  const int result = avformat_open_input(
      &opened, url.c_str(), is_raw ? av_find_input_format("rawvideo") : nullptr, &options);
  av_dict_free(&options);
  if (result < 0) {
    *why_not = last_ffmpeg_error();
    if (is_server) *why_not = is_over_ && is_over_() ? "interrupted" : error_text(result);
    return false;
  }
  input_.reset(opened);
  return true;
}

bool StreamReader::open_decoder(AVMediaType type, bool is_raw, std::string* why_not) {
  if (is_picture_format(*input_->iformat)) return false;
  // Raw frames are what was said that they are; looking would wait for some.
  const bool is_known = is_raw || avformat_find_stream_info(input_.get(), nullptr) >= 0;
  const AVCodec* codec = nullptr;
  const int index = is_known ? av_find_best_stream(input_.get(), type, -1, -1, &codec, 0) : -1;
  if (index < 0) {
    *why_not = std::string("no ") + av_get_media_type_string(type) + " in it that can be decoded";
    return false;
  }
  stream_ = input_->streams[index];
  decoder_.reset(avcodec_alloc_context3(codec));
  if (!decoder_ || avcodec_parameters_to_context(decoder_.get(), stream_->codecpar) < 0)
    return false;
  decoder_->thread_count = 0;  // as many as there are processors
  decoder_->pkt_timebase = stream_->time_base;
  if (avcodec_open2(decoder_.get(), codec, nullptr) < 0) {
    *why_not = last_ffmpeg_error();
    return false;
  }
  return true;
}

StreamReader::~StreamReader() {
  if (pipe_ >= 0) close(pipe_);
}

// FFmpeg's own pipes wait for whoever writes, whatever happens meanwhile.
int StreamReader::read_pipe(void* self, uint8_t* bytes, int size) {
  constexpr int kNap = 50;  // ms
  const auto* reader = static_cast<const StreamReader*>(self);
  pollfd waiting = {reader->pipe_, POLLIN, 0};
  while (poll(&waiting, 1, kNap) <= 0) {
    if (reader->is_over_ && reader->is_over_()) return AVERROR_EXIT;
  }
  const ssize_t count = read(reader->pipe_, bytes, static_cast<size_t>(size));
  return count > 0 ? static_cast<int>(count) : count == 0 ? AVERROR_EOF : AVERROR(errno);
}

void StreamReader::wait_from_now() { deadline_ = Clock::now() + kPatience; }

int StreamReader::has_waited_enough(void* self) {
  const auto* reader = static_cast<const StreamReader*>(self);
  return Clock::now() > reader->deadline_ || (reader->is_over_ && reader->is_over_());
}

double StreamReader::frames_per_second() const {
  const double rate = av_q2d(av_guess_frame_rate(input_.get(), stream_, nullptr));
  return rate > 0 && rate <= kMaxFramesPerSecond ? rate : kUsualFramesPerSecond;
}

bool StreamReader::seek(double seconds) {
  if (stream_->start_time == AV_NOPTS_VALUE) return false;
  const auto distance = static_cast<int64_t>(seconds / av_q2d(stream_->time_base));
  if (av_seek_frame(input_.get(), stream_->index, stream_->start_time + distance,
                    AVSEEK_FLAG_BACKWARD) < 0) {
    return false;
  }
  avcodec_flush_buffers(decoder_.get());
  return true;
}

AVFrame* StreamReader::next() {
  for (;;) {
    const int result = avcodec_receive_frame(decoder_.get(), decoded_.get());
    if (result == 0) break;
    if (result == AVERROR_EOF) return nullptr;
    if (result == AVERROR(EAGAIN)) {
      feed();
    } else {
      note_damage(result);
    }
  }
  if (decoded_->decode_error_flags) note_damage(AVERROR_INVALIDDATA);
  has_begun_ = true;
  return decoded_.get();
}

// Gives the decoder a packet, or says that there are no more.
void StreamReader::feed() {
  wait_from_now();
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
void StreamReader::note_damage(int error) {
  if (has_begun_ || error != AVERROR_INVALIDDATA) damage_ = error_text(error);
}

void StreamReader::note_end_of_packet() {
  const int64_t time = packet_->pts != AV_NOPTS_VALUE ? packet_->pts : packet_->dts;
  if (time == AV_NOPTS_VALUE) return;
  const AVRational base = input_->streams[packet_->stream_index]->time_base;
  end_seconds_ =
      std::max(end_seconds_, static_cast<double>(time + packet_->duration) * av_q2d(base));
}

bool StreamReader::is_cut_off() const {
  if (input_->duration <= 0 || input_->duration_estimation_method == AVFMT_DURATION_FROM_BITRATE)
    return false;
  const int64_t start = input_->start_time == AV_NOPTS_VALUE ? 0 : input_->start_time;
  const double stated = static_cast<double>(start + input_->duration) / AV_TIME_BASE;
  return end_seconds_ + std::max(kUnsure, 2 / frames_per_second()) < stated;
}

std::string StreamReader::problem() const {
  return !damage_.empty() ? "damaged or cut off" : is_cut_off() ? "cut off" : "";
}

}  // namespace kelnn_cli
