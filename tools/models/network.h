// SPDX-License-Identifier: Apache-2.0
// A network, loaded through the library's engine for its shapes.
#pragma once

#include <optional>
#include <string>

#include "files.h"
#include "kel_nn.hpp"
#include "task_catalogue.h"

namespace kelnn_cli {

class Network {
 public:
  // Of a packed model. `onnx`: what is in it, to ask the runtime about.
  Network(const std::string& path, const Bytes& onnx);

  // Why it did not load, or nothing.
  const std::string& problem() const { return problem_; }
  // What keeps a network that did load from doing a task's work, or nothing.
  std::string misfit(const Task& task) const;
  // The shapes of its outputs, and, for a task that finds boxes, which layout of models.adapt they look like, or nothing.
  std::string outputs() const;
  std::string layout(const Task& task) const;
  // What the library printed while it loaded.
  const std::string& library_lines() const { return library_lines_; }

 private:
  std::optional<kel_nn::Graph> graph_;  // none: it did not load
  std::string problem_, library_lines_;
};

}  // namespace kelnn_cli
