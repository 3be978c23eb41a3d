// SPDX-License-Identifier: Apache-2.0
// video.so: videos, streams and their sound through FFmpeg's libraries.
#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "codec_modules.h"
#include "ffmpeg.h"

namespace kelnn_cli {
namespace {

std::mutex g_error_lock;  // decoders have threads
std::string g_last_error;

void keep(void*, int level, const char* format, va_list arguments) {
  if (level > AV_LOG_ERROR) return;
  char line[200];
  std::vsnprintf(line, sizeof(line), format, arguments);
  const std::lock_guard<std::mutex> lock(g_error_lock);
  g_last_error = line;
}

}  // namespace

std::string error_text(int error) {
  char text[AV_ERROR_MAX_STRING_SIZE];
  return av_make_error_string(text, sizeof(text), error);
}

void silence_ffmpeg() { av_log_set_callback(keep); }

std::string last_ffmpeg_error() {
  const std::lock_guard<std::mutex> lock(g_error_lock);
  std::string line;
  line.swap(g_last_error);
  return line.substr(0, line.find_last_not_of("\r\n. ") + 1);
}

}  // namespace kelnn_cli

extern "C" __attribute__((visibility("default"))) const kelnn_cli::VideoModule* kelnn_module() {
  static constexpr kelnn_cli::VideoModule kModule = {kelnn_cli::open_video, kelnn_cli::open_track,
                                                     kelnn_cli::make_video_file};
  kelnn_cli::silence_ffmpeg();
  return &kModule;
}
