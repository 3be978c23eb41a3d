// SPDX-License-Identifier: Apache-2.0
// The library's tasks: what to call them, which file each one opens, and which network fits.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kelnn_cli {

struct Output {
  std::string meaning;
  size_t count;          // values
  bool or_more = false;  // more will do: the rest is not read
  // Values that lie side by side because they belong together; a dimension that is not a whole
  // number of them shows that a network's output has another order.
  size_t group = 1;
};

struct Task {
  const char* key;
  const char* purpose;
  const char* file_name;
  size_t height, width, channels;
  std::vector<Output> outputs;  // the network may have more
};

const std::vector<Task>& tasks();
const Task* find_task(const std::string& key);  // or null

// The input as an ONNX file has it: "[1, 3, 240, 320]".
std::string onnx_input(size_t height, size_t width, size_t channels);

}  // namespace kelnn_cli
