#include "network.h"

#include <cstdlib>

#include "library_output.h"
#include "runtime_errors.h"

namespace kelnn_cli {
namespace {

// The engine's line is the one place where the runtime's code appears.
std::string load_problem(const std::string& library_lines) {
  static const std::string kLine = "load model error[";
  const size_t at = library_lines.find(kLine);
  if (at == std::string::npos) return "the engine refuses the network";
  const long code = std::strtol(library_lines.c_str() + at + kLine.size(), nullptr, 10);
  return kelnn_host::describe_load_error(static_cast<int>(code));
}

std::string shape_text(const size_t* dim) {
  return std::to_string(dim[0]) + " x " + std::to_string(dim[1]) + " x " + std::to_string(dim[2]);
}

std::string output_misfit(size_t index, const size_t* dim, const Output& wanted) {
  const size_t count = dim[0] * dim[1] * dim[2];
  const std::string name = "output " + std::to_string(index) + " (" + wanted.meaning + ")";
  if (wanted.or_more ? count < wanted.count : count != wanted.count) {
    return name + " has " + std::to_string(count) + " values instead of " +
           std::to_string(wanted.count) + (wanted.or_more ? " or more" : "");
  }
  if (wanted.group > 1 && dim[2] % wanted.group != 0) {
    return name + " has the shape " + shape_text(dim) + ", in which the " +
           std::to_string(wanted.group) + " values of an anchor do not lie side by side";
  }
  return {};
}

}  // namespace

Network::Network(const std::string& path, File kind) {
  LibraryLines lines;
  kel_nn_set_model_root_dir("");  // the path is whole
  const bool loaded = kel_nne_graph_init(&graph_, path.c_str(), kind == File::kScrambled) == 0;
  library_lines_ = lines.text();
  if (!loaded) problem_ = load_problem(library_lines_);
}

Network::~Network() { kel_nne_graph_deinit(&graph_); }

std::string Network::misfit(const Task& task) {
  const auto dim_of = [](void* tensor) {
    return kel_nne_tensor_get_dim(static_cast<kel_nn_tensor_t>(tensor));
  };
  const size_t* input = dim_of(kel_nne_graph_get_input_tensor(&graph_, 0));
  if (input[1] != task.height || input[2] != task.width || input[3] != task.channels) {
    return "the input is " + onnx_input(input[1], input[2], input[3]) + " instead of " +
           onnx_input(task.height, task.width, task.channels);
  }
  for (size_t i = 0; i < task.outputs.size(); ++i) {
    void* output = kel_nne_graph_get_output_tensor(&graph_, i);
    if (!kel_nne_tensor_get_buffer(static_cast<kel_nn_tensor_t>(output))) {
      return "the network has " + std::to_string(i) + " outputs instead of " +
             std::to_string(task.outputs.size());
    }
    std::string problem = output_misfit(i, dim_of(output), task.outputs[i]);
    if (!problem.empty()) return problem;
  }
  return {};
}

}  // namespace kelnn_cli
