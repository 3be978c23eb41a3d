// SPDX-License-Identifier: Apache-2.0
// What the commands that look for something have in common: which of it is wanted, and what is told of it.
#pragma once

#include <string>

#include "commands.h"
#include "frames.h"
#include "watcher.h"

namespace kelnn_cli {

class Sightings {
 public:
  // `columns`: of a table, besides those that all have.
  // `also_read`: files besides the inputs that must not be written to.
  Sightings(const DetectOptions& options, InputKind kind, const std::string& columns,
            Reporter* reporter, const std::vector<std::string>& also_read = {});

  const Inputs& inputs() const { return inputs_; }
  DrawingTarget* drawings() { return &drawings_; }
  std::string class_name(int id) const;

  void begin(const std::string& input);
  void leave_out_unwanted(std::vector<Found>* found) const;
  Json json(const Frame& frame, const Sighting& seen) const;
  cv::Mat drawn(const cv::Mat& bgr, const Sighting& seen) const;
  // A frame's result, with what was found as pictures if they are wanted.
  void report(Json result, const cv::Mat& bgr, bool is_picture);

 private:
  void save_crops(const std::string& prefix, const cv::Mat& bgr, Json* boxes) const;

  const DetectOptions& options_;
  Reporter* reporter_;
  Inputs inputs_;
  DrawingTarget drawings_;
  OutputNames crops_;
  std::string input_, crop_prefix_;
};

}  // namespace kelnn_cli
