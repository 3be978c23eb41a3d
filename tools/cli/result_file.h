// SPDX-License-Identifier: Apache-2.0
// Files that a command's results go to besides its text: tables, labels, subtitles. Each is made of what --json prints.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "inputs.h"

namespace kelnn_cli {

// The file appears under its name, whole, with finish(). A Failure names it.
class ResultFile {
 public:
  virtual ~ResultFile() = default;
  virtual void add(const Json& result, bool is_picture) = 0;
  virtual void finish() = 0;
};

// What a command tells about its results before the first one.
struct ResultKind {
  std::string columns;  // of a table, keys with commas between them
  Inputs inputs;
  std::vector<std::string> class_names;     // of boxes
  std::vector<std::string> also_read = {};  // files besides the inputs that must not be written to
};

// Which of them are wanted; "-" is standard output, where nothing else is written then.
struct ResultPaths {
  std::string csv, coco, vtt;
};
std::vector<std::unique_ptr<ResultFile>> make_result_files(const ResultPaths& paths,
                                                           const ResultKind& kind);

}  // namespace kelnn_cli
