// SPDX-License-Identifier: Apache-2.0
// FFmpeg's records, each with the function that frees it, and what FFmpeg says about failures.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/imgutils.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <memory>
#include <string>

#include "frame_sink.h"
#include "frame_source.h"
#include "sound_file.h"

namespace kelnn_cli {

template <auto kFree>  // takes a pointer to the pointer
struct FreeWith {
  template <typename Record>
  void operator()(Record* record) const {
    kFree(&record);
  }
};
struct FreeScaler {
  void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};
struct FreeInputOutput {
  void operator()(AVIOContext* io) const {
    av_freep(&io->buffer);
    avio_context_free(&io);
  }
};
using InputOutput = std::unique_ptr<AVIOContext, FreeInputOutput>;
using Input = std::unique_ptr<AVFormatContext, FreeWith<avformat_close_input>>;
using Codec = std::unique_ptr<AVCodecContext, FreeWith<avcodec_free_context>>;
using Picture = std::unique_ptr<AVFrame, FreeWith<av_frame_free>>;
using Packet = std::unique_ptr<AVPacket, FreeWith<av_packet_free>>;
using Scaler = std::unique_ptr<SwsContext, FreeScaler>;

std::string error_text(int error);

// Keeps FFmpeg from writing to standard error, for good.
void silence_ffmpeg();
// The last error that it would have written, which is forgotten then.
std::string last_ffmpeg_error();

std::unique_ptr<FrameSource> open_video(const std::string& path, const InputSettings& settings,
                                        std::string* why_not);
std::unique_ptr<SoundTrack> open_track(const std::string& path, const InputSettings& settings,
                                       std::string* why_not);
std::unique_ptr<FrameSink> make_video_file(const std::string& path, const std::string& own_path,
                                           const VideoFormat& format, double frames_per_second);

}  // namespace kelnn_cli
