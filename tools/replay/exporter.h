// SPDX-License-Identifier: Apache-2.0
// What the tasks of a recording were given and what they found, as labelled data: a directory for each task, with
// pictures or sounds and a labels.csv as kelnn eval reads it.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "kel_nn.h"
#include "recording_reader.h"

namespace kelnn_cli {

class Exporter {
 public:
  explicit Exporter(const std::string& directory) : directory_(directory) {}
  void add(const kelnn_record::Entry& entry);
  void finish();                            // writes the labels
  int64_t files() const { return files_; }  // pictures and sounds

 private:
  void add_label(const std::string& task, const std::string& columns, const std::string& line);
  std::string file_name(const kelnn_record::Entry& entry, const char* ending) const;
  std::string save_picture(const std::string& task, const kelnn_record::Entry& entry, int width,
                           int height, int channels);
  void save_sound(const std::string& name);
  void add_boxes(const std::string& task, const kelnn_record::Entry& entry, const std::string& file,
                 kel_nn_size_t frame, kel_nn_size_t input, bool is_letterbox);

  std::string directory_;
  std::map<std::string, std::string> labels_;  // of each task: the lines of its file
  int processes_ = 0;                          // that were recorded, up to this call
  uint64_t process_start_ = 0;
  kel_nn_size_t face_frame_ = {0, 0};
  std::vector<int16_t> window_;  // of the cry detector
  int64_t files_ = 0;
};

}  // namespace kelnn_cli
