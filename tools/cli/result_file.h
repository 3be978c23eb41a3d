// SPDX-License-Identifier: Apache-2.0
// Files that a command's results go to besides its text: tables, labels, subtitles. Each is made of what --json prints.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "report.h"

namespace kelnn_cli {

// The file appears under its name, whole, with finish(). A Failure names it.
class ResultFile {
 public:
  virtual ~ResultFile() = default;
  virtual void add(const Json& result) = 0;
  virtual void finish() = 0;
};

// What a command tells about its results before the first one.
struct ResultKind {
  std::string columns;  // of a table, keys with commas between them
  std::vector<std::string> inputs, class_names;
};

// Which of them are wanted; "-" is standard output, where nothing else is written then.
struct ResultPaths {
  std::string csv, coco, vtt;
};
std::vector<std::unique_ptr<ResultFile>> make_result_files(const ResultPaths& paths,
                                                           const ResultKind& kind);

}  // namespace kelnn_cli
