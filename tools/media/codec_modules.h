// SPDX-License-Identifier: Apache-2.0
// Codecs that take long to load, in modules.
#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <string>

#include "frame_sink.h"
#include "frame_source.h"
#include "picture.h"
#include "sound_file.h"

namespace kelnn_cli {

// opencv.so: pictures as OpenCV knows them, and cameras.
struct OpenCvModule {
  bool (*is_picture)(const std::string& path);
  cv::Mat (*decode)(const Bytes& bytes);
  bool (*is_written)(const std::string& extension);
  Bytes (*encode)(const std::string& extension, const cv::Mat& bgr);
  std::unique_ptr<FrameSource> (*open_camera)(const std::string& input);
};

// video.so: video files, streams of servers, raw frames, and the sound in all that.
struct VideoModule {
  // Null: nothing of that kind; what FFmpeg says is put into `why_not`.
  std::unique_ptr<FrameSource> (*open)(const std::string& path, const InputSettings& settings,
                                       std::string* why_not);
  std::unique_ptr<SoundTrack> (*open_track)(const std::string& path, const InputSettings& settings,
                                            std::string* why_not);
  // Written to `own_path`; `path` names it in Failures and tells the format.
  std::unique_ptr<FrameSink> (*make)(const std::string& path, const std::string& own_path,
                                     const VideoFormat& format, double frames_per_second);
};

// Both throw a Failure when the module cannot be loaded.
const OpenCvModule& opencv_module();
const VideoModule& video_module();

}  // namespace kelnn_cli
