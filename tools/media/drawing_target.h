// SPDX-License-Identifier: Apache-2.0
// Where drawn frames go: which file each input has when a command is given --draw OUT.
#ifndef KEL_NN_TOOLS_DRAWING_TARGET_H_
#define KEL_NN_TOOLS_DRAWING_TARGET_H_

#include <memory>
#include <string>
#include <vector>

#include "frame_sink.h"
#include "frame_source.h"

namespace kelnn_cli {

class DrawingTarget {
 public:
  // `out` is a file for a single input, and a directory for several. None: nothing is drawn.
  DrawingTarget(const std::string& out, const std::vector<std::string>& inputs);

  // Null when nothing is drawn. `step`: every how many of the source's frames one is written.
  std::unique_ptr<FrameSink> open(const std::string& input, const FrameSource& source, int step);
  std::unique_ptr<FrameSink> open_picture(const std::string& input);

 private:
  std::string claim(const std::string& input, FrameSource::Kind kind);
  std::string path_for(const std::string& input, FrameSource::Kind kind) const;

  std::string out_;
  bool is_directory_ = false;
  std::vector<std::string> written_;
};

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_DRAWING_TARGET_H_
