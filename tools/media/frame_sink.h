// SPDX-License-Identifier: Apache-2.0
// Writes frames to a picture file or a video file; which one, its name's extension says.
#ifndef KEL_NN_TOOLS_FRAME_SINK_H_
#define KEL_NN_TOOLS_FRAME_SINK_H_

#include <memory>
#include <opencv2/core.hpp>
#include <string>

namespace kelnn_cli {

// The file appears under its name, whole, with finish(); without it nothing is left behind. All of
// them throw a Failure that names the file.
class FrameSink {
 public:
  virtual ~FrameSink() = default;
  virtual void write(const cv::Mat& bgr) = 0;
  virtual void finish() = 0;
};

struct VideoFormat {
  const char* extension;
  const char* encoder;  // FFmpeg's name of it
};

// One frame, in any format that can be written.
std::unique_ptr<FrameSink> make_picture(const std::string& path);

// .avi (motion JPEG) or .mp4 (MPEG-4).
std::unique_ptr<FrameSink> make_video(const std::string& path, double frames_per_second);

bool is_video_name(const std::string& path);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_FRAME_SINK_H_
