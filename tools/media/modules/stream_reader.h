// SPDX-License-Identifier: Apache-2.0
// One stream of a file, a pipe or a server, decoded.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "ffmpeg.h"
#include "inputs.h"

namespace kelnn_cli {

class StreamReader {
 public:
  // Null: it is none of that type; what FFmpeg says is put into `why_not`.
  static std::unique_ptr<StreamReader> open(const std::string& path, AVMediaType type,
                                            const InputSettings& settings, std::string* why_not);

  ~StreamReader();
  AVFrame* next();  // holds until the one after it; null at the end
  // After the end: "" where it is the one that the stream should have.
  std::string problem() const;
  // To somewhere before that time; false: that cannot be.
  bool seek(double seconds);

  bool is_of_server() const { return input_->interrupt_callback.callback != nullptr; }
  AVFormatContext* input() const { return input_.get(); }
  AVStream* stream() const { return stream_; }
  double frames_per_second() const;

 private:
  using Clock = std::chrono::steady_clock;

  // `is_over`: of a server or a pipe, which may say nothing any more. Else there is nothing to ask while FFmpeg waits.
  explicit StreamReader(const std::function<bool()>& is_over) : is_over_(is_over) {}
  void wait_from_now();
  static int has_waited_enough(void* self);
  static int read_pipe(void* self, uint8_t* bytes, int size);
  bool open_input(const std::string& path, const InputSettings& settings, bool is_server,
                  std::string* why_not);
  bool open_decoder(AVMediaType type, bool is_raw, std::string* why_not);
  void feed();
  void note_damage(int error);
  void note_end_of_packet();
  bool is_cut_off() const;

  std::function<bool()> is_over_;
  Clock::time_point deadline_;  // of a server's next packet
  int pipe_ = -1;               // descriptor, of raw frames that may be long in coming
  InputOutput of_pipe_;
  Input input_;
  AVStream* stream_ = nullptr;
  Codec decoder_;
  Packet packet_{av_packet_alloc()};
  Picture decoded_{av_frame_alloc()};
  bool has_begun_ = false;
  double end_seconds_ = 0;
  std::string damage_;  // none: there is none so far
};

}  // namespace kelnn_cli
