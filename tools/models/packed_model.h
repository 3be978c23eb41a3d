// SPDX-License-Identifier: Apache-2.0
// Model files: a label, then a model whose first bytes are scrambled. On a PC that is an ONNX network in a container, on
// the board whatever the vendor's converter wrote.
#pragma once

#include <optional>

#include "files.h"
#include "task_catalogue.h"

namespace kelnn_cli {

// The bytes of a task's model file.
Bytes pack_network(const Task& task, const Bytes& onnx);
Bytes pack_raw(const Task& task, const Bytes& network);

// What a model file shows without a runtime.
struct ModelFile {
  size_t size = 0;  // bytes, of the file
  bool is_labelled = false;
  const Task* task = nullptr;  // by the label
  size_t model_size = 0;       // the next two as well
  uint32_t model_checksum = 0;
  std::optional<bool> is_scrambled;  // none: nothing tells
  bool is_onnx = false;
  Bytes network;        // none when there is a problem
  std::string problem;  // in words for a newcomer; none: whole, as far as anything tells
};
ModelFile read_model_file(const std::string& path);

}  // namespace kelnn_cli
