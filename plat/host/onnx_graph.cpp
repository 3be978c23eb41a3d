// SPDX-License-Identifier: Apache-2.0
#include "onnx_graph.h"

#include <onnx/checker.h>
#include <onnx/onnx_pb.h>

#include <algorithm>
#include <set>

namespace kelnn_host {
namespace {

constexpr int64_t kMaxInputSize = int64_t{1} << 26;     // floats; 8192 x 8192 grey
constexpr int64_t kMaxChannels = 512;                   // of an image in OpenCV
constexpr uint64_t kMaxTensorSize = uint64_t{1} << 30;  // elements; a model has at most 1 GiB

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
  if (dims[0].dim_value() != 1 || dims[1].dim_value() > kMaxChannels) return kUnsupportedInput;
  graph->input_name = input.name();
  graph->channels = static_cast<int>(dims[1].dim_value());
  graph->height = static_cast<int>(dims[2].dim_value());
  graph->width = static_cast<int>(dims[3].dim_value());
  return kOk;
}

// Bytes of one element in raw_data, 0 for types that networks do not compute with.
size_t element_size(int data_type) {
  switch (data_type) {
    case onnx::TensorProto_DataType_BOOL:
    case onnx::TensorProto_DataType_INT8:
    case onnx::TensorProto_DataType_UINT8:
      return 1;
    case onnx::TensorProto_DataType_FLOAT16:
    case onnx::TensorProto_DataType_BFLOAT16:
    case onnx::TensorProto_DataType_INT16:
    case onnx::TensorProto_DataType_UINT16:
      return 2;
    case onnx::TensorProto_DataType_FLOAT:
    case onnx::TensorProto_DataType_INT32:
    case onnx::TensorProto_DataType_UINT32:
      return 4;
    case onnx::TensorProto_DataType_DOUBLE:
    case onnx::TensorProto_DataType_INT64:
    case onnx::TensorProto_DataType_UINT64:
      return 8;
    default:
      return 0;
  }
}

// True when the tensor has exactly the values that its shape asks for. Only a list may be empty:
// that is how an operator's optional input is left out.
bool is_complete(const onnx::TensorProto& tensor) {
  uint64_t count = 1;
  for (int64_t dim : tensor.dims()) {
    const int64_t least = tensor.dims_size() == 1 ? 0 : 1;
    if (dim < least || static_cast<uint64_t>(dim) > kMaxTensorSize / std::max<uint64_t>(count, 1)) {
      return false;
    }
    count *= static_cast<uint64_t>(dim);
  }
  if (tensor.has_raw_data()) {
    const size_t size = element_size(tensor.data_type());
    return size != 0 && tensor.raw_data().size() == count * size;
  }
  const int values = tensor.float_data_size() + tensor.int32_data_size() +
                     tensor.int64_data_size() + tensor.double_data_size() +
                     tensor.uint64_data_size();  // the checker allows only one of them
  return static_cast<uint64_t>(values) == count;
}

// OpenCV's importer takes for granted that a model makes sense: a node that uses a value nobody
// makes, or a tensor that is empty or shorter than its shape, can end the process. ONNX's own
// checker finds the former but not the latter. The checker refuses formats newer than itself for
// that alone; what is new in them is for OpenCV to judge.
bool is_consistent(onnx::ModelProto* model, std::string* reason) {
  model->set_ir_version(std::min<int64_t>(model->ir_version(), onnx::Version::IR_VERSION));
  try {
    onnx::checker::check_model(*model);
  } catch (const onnx::checker::ValidationError& error) {
    *reason = error.what();
    return false;
  }
  const auto& weights = model->graph().initializer();
  if (!std::all_of(weights.begin(), weights.end(), is_complete)) return false;
  for (const auto& node : model->graph().node()) {
    for (const auto& attribute : node.attribute()) {
      if (attribute.has_t() && !is_complete(attribute.t())) return false;
    }
  }
  return true;
}

}  // namespace

RuntimeError read_onnx_graph(const OnnxBytes& onnx, OnnxGraph* graph, std::string* reason) {
  onnx::ModelProto model;
  // Containers and files are limited to 1 GiB, so the size is an int.
  if (!model.ParseFromArray(onnx.data, static_cast<int>(onnx.size))) return kBadOnnx;
  if (model.graph().output_size() == 0) return kBadOnnx;  // other bytes may parse, as nothing
  const std::vector<const onnx::ValueInfoProto*> inputs = free_inputs(model.graph());
  if (inputs.size() != 1) return kUnsupportedInput;
  if (const RuntimeError error = read_input(*inputs[0], graph)) return error;
  if (!is_consistent(&model, reason)) return kBadOnnx;
  graph->outputs.clear();
  for (const auto& output : model.graph().output()) {
    const onnx::TypeProto_Tensor& tensor = output.type().tensor_type();
    graph->outputs.push_back({output.name(), tensor.has_shape() ? tensor.shape().dim_size() : -1});
  }
  return kOk;
}

}  // namespace kelnn_host
