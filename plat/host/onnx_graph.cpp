#include "onnx_graph.h"

#include <onnx/checker.h>
#include <onnx/onnx_pb.h>

#include <algorithm>
#include <set>

namespace kelnn_host {
namespace {

constexpr int64_t kMaxInputSize = int64_t{1} << 26;  // floats; 8192 x 8192 grey

// The inputs that a caller must give. Old models list their weights among the inputs too.
std::vector<const onnx::ValueInfoProto*> free_inputs(const onnx::GraphProto& graph) {
  std::set<std::string> weights;
  for (const auto& tensor : graph.initializer()) weights.insert(tensor.name());
  for (const auto& tensor : graph.sparse_initializer()) weights.insert(tensor.values().name());
  std::vector<const onnx::ValueInfoProto*> inputs;
  for (const auto& input : graph.input()) {
    if (weights.count(input.name()) == 0) inputs.push_back(&input);
  }
  return inputs;
}

// 1 x channels x height x width floats, all of them fixed.
RuntimeError read_input(const onnx::ValueInfoProto& input, OnnxGraph* graph) {
  const onnx::TypeProto_Tensor& tensor = input.type().tensor_type();
  if (tensor.elem_type() != onnx::TensorProto_DataType_FLOAT) return kUnsupportedInput;
  if (!tensor.has_shape()) return kDynamicShape;
  const auto& dims = tensor.shape().dim();
  if (dims.size() != 4) return kUnsupportedInput;
  int64_t size = 1;
  for (const auto& dim : dims) {
    if (!dim.has_dim_value() || dim.dim_value() <= 0) return kDynamicShape;
    if (dim.dim_value() > kMaxInputSize / size) return kUnsupportedInput;
    size *= dim.dim_value();
  }
  if (dims[0].dim_value() != 1) return kUnsupportedInput;
  graph->input_name = input.name();
  graph->channels = static_cast<int>(dims[1].dim_value());
  graph->height = static_cast<int>(dims[2].dim_value());
  graph->width = static_cast<int>(dims[3].dim_value());
  return kOk;
}

// OpenCV's importer takes a model's consistency for granted and can end the process over a node that
// uses a value nobody makes, so ONNX's own checker goes first. It refuses files newer than itself for
// that alone; what is new in them is for OpenCV to judge.
bool is_consistent(onnx::ModelProto* model) {
  model->set_ir_version(std::min<int64_t>(model->ir_version(), onnx::Version::IR_VERSION));
  try {
    onnx::checker::check_model(*model);
    return true;
  } catch (const onnx::checker::ValidationError&) {
    return false;
  }
}

}  // namespace

RuntimeError read_onnx_graph(const OnnxBytes& onnx, OnnxGraph* graph) {
  onnx::ModelProto model;
  // Containers and files are limited to 1 GiB, so the size is an int.
  if (!model.ParseFromArray(onnx.data, static_cast<int>(onnx.size))) return kBadOnnx;
  if (model.graph().output_size() == 0) return kBadOnnx;  // other bytes may parse, as nothing
  const std::vector<const onnx::ValueInfoProto*> inputs = free_inputs(model.graph());
  if (inputs.size() != 1) return kUnsupportedInput;
  if (const RuntimeError error = read_input(*inputs[0], graph)) return error;
  if (!is_consistent(&model)) return kBadOnnx;
  graph->outputs.clear();
  for (const auto& output : model.graph().output()) {
    const onnx::TypeProto_Tensor& tensor = output.type().tensor_type();
    graph->outputs.push_back({output.name(), tensor.has_shape() ? tensor.shape().dim_size() : -1});
  }
  return kOk;
}

}  // namespace kelnn_host
