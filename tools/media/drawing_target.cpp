// SPDX-License-Identifier: Apache-2.0
#include "drawing_target.h"

#include <algorithm>
#include <filesystem>

#include "picture.h"
#include "report.h"

namespace kelnn_cli {
namespace {

namespace fs = std::filesystem;

// The input's own name, with an extension that can be written.
std::string file_name_for(const std::string& input, FrameSource::Kind kind) {
  std::string name = fs::path(input).filename().string();
  std::replace(name.begin(), name.end(), ':', '-');  // camera:0
  if (kind == FrameSource::Kind::kPicture) {
    return is_picture_name(name) ? name : name + ".png";
  }
  return is_video_name(name) ? name : name + ".avi";
}

}  // namespace

DrawingTarget::DrawingTarget(const std::string& out, const std::vector<std::string>& inputs)
    : out_(out) {
  std::error_code error;
  is_directory_ = !out.empty() && (out.back() == '/' || fs::is_directory(out, error));
  if (!out.empty() && inputs.size() > 1 && !is_directory_) {
    throw Failure("--draw " + out + ": of several inputs, drawings go to a directory; " + out +
                  "/ makes one");
  }
}

std::string DrawingTarget::path_for(const std::string& input, FrameSource::Kind kind) const {
  return is_directory_ ? (fs::path(out_) / file_name_for(input, kind)).string() : out_;
}

std::string DrawingTarget::claim(const std::string& input, FrameSource::Kind kind) {
  const std::string path = path_for(input, kind);
  std::error_code error;
  if (fs::equivalent(path, input, error)) {
    throw Failure(path + ": the drawing would take the place of the input");
  }
  if (std::find(written_.begin(), written_.end(), path) != written_.end()) {
    throw Failure(input + ": the drawing of another input has the name " + path + " already");
  }
  written_.push_back(path);
  return path;
}

std::unique_ptr<FrameSink> DrawingTarget::open(const std::string& input, const FrameSource& source,
                                               int step) {
  if (source.kind() == FrameSource::Kind::kPicture) return open_picture(input);
  if (out_.empty()) return nullptr;
  return make_video(claim(input, source.kind()), std::max(source.frames_per_second() / step, 1.0));
}

std::unique_ptr<FrameSink> DrawingTarget::open_picture(const std::string& input) {
  if (out_.empty()) return nullptr;
  return make_picture(claim(input, FrameSource::Kind::kPicture));
}

}  // namespace kelnn_cli
