// SPDX-License-Identifier: Apache-2.0
#include "network.h"

#include <jzdl.h>

#include <memory>

#include "model_container.h"
#include "runtime_errors.h"

namespace kelnn_cli {
namespace {

// Why the runtime refuses a network; the engine keeps the code to itself.
std::string load_problem(const Bytes& onnx) {
  const auto container = kelnn_host::wrap_model(onnx.data(), onnx.size());
  const std::unique_ptr<jzdl::BaseNet, decltype(&jzdl::net_destory)> net(jzdl::net_create(),
                                                                         jzdl::net_destory);
  const int code = net ? net->load_model(reinterpret_cast<const char*>(container.data()), 1)
                       : kelnn_host::kOutOfMemory;
  if (code == kelnn_host::kOk) return "the engine refuses the network";
  const std::string reason = kelnn_host::last_refusal();
  const bool is_foreign = code == kelnn_host::kUnsupportedNetwork;
  return kelnn_host::describe_load_error(code) + (reason.empty() ? "" : ": " + reason) +
         (is_foreign ? "\nSome of what OpenCV does not read, python3 -m models.adapt rewrites: "
                       "docs/models.md"
                     : "");
}

std::string shape_text(const std::array<size_t, 3>& dim) {
  return std::to_string(dim[0]) + " x " + std::to_string(dim[1]) + " x " + std::to_string(dim[2]);
}

std::string output_misfit(size_t index, const kel_nn::Graph::Output& output, const Output& wanted) {
  const size_t count = output.count();
  const std::string name = "output " + std::to_string(index) + " (" + wanted.meaning + ")";
  if (wanted.or_more ? count < wanted.count : count != wanted.count) {
    return name + " has " + std::to_string(count) + " values instead of " +
           std::to_string(wanted.count) + (wanted.or_more ? " or more" : "");
  }
  if (wanted.group > 1 && output.dim[2] % wanted.group != 0) {
    return name + " has the shape " + shape_text(output.dim) + ", in which the " +
           std::to_string(wanted.group) + " values of an anchor do not lie side by side";
  }
  return {};
}

}  // namespace

Network::Network(const std::string& path, const Bytes& onnx) {
  kel_nn::Messages messages;
  try {
    graph_.emplace(path, /*scrambled=*/true);
  } catch (const kel_nn::Error&) {
    problem_ = load_problem(onnx);
  }
  library_lines_ = messages.text();
}

std::string Network::misfit(const Task& task) const {
  const auto [width, height] = graph_->input_size();
  const std::string input = onnx_input(static_cast<size_t>(height), static_cast<size_t>(width),
                                       static_cast<size_t>(graph_->input_channels()));
  const std::string wanted = onnx_input(task.height, task.width, task.channels);
  if (input != wanted) return "the input is " + input + " instead of " + wanted;
  for (size_t i = 0; i < task.outputs.size(); ++i) {
    const kel_nn::Graph::Output output = graph_->output(i);
    if (!output.values) {
      return "the network has " + std::to_string(i) + " outputs instead of " +
             std::to_string(task.outputs.size());
    }
    std::string problem = output_misfit(i, output, task.outputs[i]);
    if (!problem.empty()) return problem;
  }
  return {};
}

std::string Network::outputs() const {
  std::string text;
  for (size_t i = 0; graph_->output(i).values; ++i) {
    text += (i == 0 ? "" : ", ") + shape_text(graph_->output(i).dim);
  }
  return text;
}

std::string Network::layout(const Task& task) const {
  if (task.outputs.front().group == 1) return {};
  const auto [first, rows, columns] = graph_->output(0).dim;  // of maps: rows, columns, channels
  const auto second = graph_->output(1).dim, third = graph_->output(2).dim;
  const bool has_second = graph_->output(1).values, has_third = graph_->output(2).values;
  const auto is_map_of_2 = [&, height = first, width = rows](const auto& dim) {
    return dim == std::array<size_t, 3>{height, width, 2};
  };
  if (has_third && is_map_of_2(second) && is_map_of_2(third)) return "heat-maps";
  if (first != 1) return {};
  if (has_second && second == std::array<size_t, 3>{1, rows, 4} && columns >= 2) return "anchors";
  if (rows >= 5 && rows < columns) return "4+classes";
  return columns >= 6 && columns < rows ? "5+classes" : "";
}

}  // namespace kelnn_cli
