// SPDX-License-Identifier: Apache-2.0
#include "codec_modules.h"

#include "module.h"

namespace kelnn_cli {

const OpenCvModule& opencv_module() {
  static const OpenCvModule& module = load_module<OpenCvModule>("opencv.so");
  return module;
}

const VideoModule& video_module() {
  static const VideoModule& module = load_module<VideoModule>("video.so");
  return module;
}

}  // namespace kelnn_cli
