// SPDX-License-Identifier: Apache-2.0
// Handle and engine: graphs and tensors of fixed shapes over the chip's runtime.
//
// The runtime delivers all outputs in one float matrix of T elements that ends with a trailer:
//
//     data of output 0, of output 1, ... | three shape values for each output | number of outputs
//
// A dry run at initialisation reads the trailer; later runs copy the data into one buffer that the
// output tensors slice, so an output keeps its address. docs/models.md tells what a malformed
// trailer does.
#define KEL_NN_LOG_FUNCTION __PRETTY_FUNCTION__

#include <cstdlib>
#include <cstring>
#include <new>

#include "kel_nn_handle.h"
#include "kel_nn_log.h"
#include "kel_nn_model_files.h"
#include "kel_nn_runtime.h"

namespace {

namespace runtime = kelnn::runtime;

constexpr unsigned char kZeroPoint = 128;    // the image's byte that is the network's 0
constexpr size_t kMaxImageSize = INT32_MAX;  // bytes: the runtime counts in ints
constexpr size_t kNoSize = static_cast<size_t>(-1);

jzdl::BaseNet* network(kel_nn_graph_t graph) { return static_cast<jzdl::BaseNet*>(graph->net); }

// a * b, or kNoSize when it does not fit.
size_t product(size_t a, size_t b) {
  if (a == kNoSize || b == kNoSize) return kNoSize;
  return b != 0 && a > (kNoSize - 1) / b ? kNoSize : a * b;
}

// ----- What runs need and a graph's record has no member for -------------------------------------
//
// The record is public: its `output_data` is a heap block of floats and nothing else, and may have
// come from anywhere. So the sizes and the private copy of the image lie beside, in a list.
struct RunMemory {
  const float* output_data;  // of the graph that this belongs to
  size_t value_count;        // elements that it has room for
  unsigned char* image;
  size_t image_size;  // bytes
  RunMemory* next;
};
RunMemory* g_run_memories = nullptr;

// The link to what belongs to `output_data`, or the null link at the list's end.
RunMemory** find_run_memory(const float* output_data) {
  RunMemory** link = &g_run_memories;
  while (*link && (*link)->output_data != output_data) link = &(*link)->next;
  return link;
}

void release_run_memory(const float* output_data) {
  RunMemory** const link = find_run_memory(output_data);
  RunMemory* const memory = *link;
  if (memory) *link = memory->next;
  std::free(memory);
}

// Null when memory is short.
RunMemory* allocate_run_memory(const float* output_data, size_t value_count, size_t image_size) {
  constexpr size_t kAlignment = 64;  // the runtime may load whole vectors
  release_run_memory(output_data);   // left by a record that was released by hand
  if (image_size > kNoSize / 2) return nullptr;
  void* block = std::malloc(sizeof(RunMemory) + kAlignment - 1 + image_size);
  if (!block) return nullptr;
  const uintptr_t behind = reinterpret_cast<uintptr_t>(block) + sizeof(RunMemory);
  const uintptr_t image = (behind + kAlignment - 1) / kAlignment * kAlignment;
  g_run_memories =
      new (block) RunMemory{output_data, value_count, reinterpret_cast<unsigned char*>(image),
                            image_size, g_run_memories};
  return g_run_memories;
}

// Where the values of all outputs will be; null when memory is short.
float* allocate_output_data(size_t value_count) {
  const size_t size = product(value_count, sizeof(float));
  if (size > kNoSize / 2) return nullptr;  // kNoSize too
  return static_cast<float*>(std::malloc(size ? size : 1));
}

// ----- The trailer -------------------------------------------------------------------------------

struct Trailer {
  bool valid;
  size_t out_num;       // not limited to the tensors of a graph
  size_t value_count;   // elements in front of the trailer
  const float* shapes;  // three for each output
};

Trailer read_trailer(const jzdl::Mat<float>& output) {
  const size_t total = runtime::element_count(output);
  if (total == 0) return {false, 0, 0, nullptr};
  const float* values = runtime::data(output);
  if (reinterpret_cast<uintptr_t>(values) % alignof(float) != 0) return {false, 0, 0, nullptr};
  const float declared = values[total - 1];
  if (declared < 0.0f) {  // No outputs. Data beyond the last element is not there to be copied.
    return {true, 0, declared > -1.0f ? total - 1 : total, nullptr};
  }
  if (!(declared < static_cast<float>(total))) return {false, 0, 0, nullptr};  // NaN too
  const size_t out_num = static_cast<size_t>(declared);
  if (1 + 3 * out_num > total) return {false, 0, 0, nullptr};
  const size_t value_count = total - 1 - 3 * out_num;
  return {true, out_num, value_count, values + value_count};
}

// A shape value as an unsigned integer, or kNoSize for one that no memory could hold.
size_t shape_value(float value) {
  return value > -1.0f && value < 2147483648.0f ? static_cast<size_t>(value) : kNoSize;
}

// Fills the output tensors; false when one would reach past the end of the data.
bool slice_outputs(kel_nn_graph_t graph, const Trailer& trailer, size_t tensor_count) {
  size_t offset = 0;
  for (size_t i = 0; i < tensor_count; ++i) {
    const float* shape = trailer.shapes + 3 * i;
    kel_nn_tensor& output = graph->outputs[i];
    for (int axis = 0; axis < 3; ++axis) output.dim[axis] = shape_value(shape[axis]);
    const size_t count = product(product(output.dim[0], output.dim[1]), output.dim[2]);
    if (count > trailer.value_count - offset) return false;  // kNoSize too
    output.buffer = graph->output_data + offset;
    offset += count;
  }
  return true;
}

// ----- Steps of initialisation -------------------------------------------------------------------

char* join_model_path(const char* root, const char* model) {
  const size_t root_length = root ? std::strlen(root) : 0;
  const size_t model_length = std::strlen(model);
  char* path = static_cast<char*>(std::calloc(root_length + model_length + 1, 1));
  if (!path) return nullptr;
  if (root) std::memcpy(path, root, root_length);
  std::memcpy(path + root_length, model, model_length);
  return path;
}

// One run on a blank image, to learn the outputs. That its calls may fail does not matter by
// itself: the output tells.
void dry_run(kel_nn_graph_t graph, int width, int height, int channels, jzdl::Mat<float>* output) {
  jzdl::Mat<signed char> image = runtime::allocate<signed char>(width, height, channels);
  const size_t size = runtime::element_count(image);
  if (size > 0) std::memset(runtime::data(image), 0, size);
  runtime::input(network(graph), image);
  runtime::run(network(graph), *output);
}

}  // namespace

// ----- Handle ------------------------------------------------------------------------------------

kel_nn_handle_t kel_nn_handle_create() {
  kel_nn_print_version();
  return static_cast<kel_nn_handle_t>(std::calloc(1, sizeof(kel_nn_handle)));
}

int kel_nn_handle_destroy(kel_nn_handle_t handle) {
  KEL_NN_FAIL_IF(!handle, -1, "Unhandled nn handle input.");
  std::free(handle);
  return 0;
}

// ----- Graph -------------------------------------------------------------------------------------

// A failed initialisation that leaves nothing behind: releases the graph, then reports.
#define KEL_NN_FAIL_INIT_IF(condition, ...) \
  do {                                      \
    if (condition) {                        \
      kel_nne_graph_deinit(graph);          \
      KEL_NN_ERROR(__VA_ARGS__);            \
      return -1;                            \
    }                                       \
  } while (0)

int kel_nne_graph_init(kel_nn_graph_t graph, kel_nn_model_t model, int scrambled) {
  KEL_NN_FAIL_IF(!graph, -1, "Unhandled graph input.");
  KEL_NN_FAIL_IF(graph->net, -1, "Graph has already been initialized.");
  KEL_NN_FAIL_IF(!model, -1, "Unhandled model input.");

  jzdl::BaseNet* net = jzdl::net_create();
  graph->net = net;
  KEL_NN_FAIL_IF(!net, -1, "jzdl::net_create fail.");
  graph->model_path = join_model_path(kel_nn_get_model_root_dir(), model);
  KEL_NN_FAIL_INIT_IF(!graph->model_path, "Out of memory.");

  int load_result = 0;
  if (scrambled) {
    KEL_NN_FAIL_INIT_IF(graph->model_data,
                        "graph_handle->model_data not NULL! Is it already been initialized?");
    kel_nn_model_xor_decode_from_file(graph->model_path, &graph->model_data, kelnn::kScrambledSize,
                                      kelnn::kScrambleKey);
    KEL_NN_FAIL_INIT_IF(!graph->model_data, "Decode model fail.");
    load_result = runtime::load_model(net, reinterpret_cast<const char*>(graph->model_data), 1);
  } else {
    load_result = runtime::load_model(net, graph->model_path, 0);
  }
  // Nothing is released: the graph counts as initialised until its deinit.
  KEL_NN_FAIL_IF(load_result != 0, -1, "load model error[%d]: Can not load model \"%s\".",
                 load_result, graph->model_path);

  const std::vector<int> shape = runtime::input_shape(net);  // width, height, channels
  const bool has_shape = shape.size() == 3 && shape[0] > 0 && shape[1] > 0 && shape[2] > 0;
  KEL_NN_FAIL_INIT_IF(!has_shape, "Invalid input shape.");
  const size_t width = shape[0], height = shape[1], channels = shape[2];
  const size_t image_size = product(product(width, height), channels);
  KEL_NN_FAIL_INIT_IF(image_size > kMaxImageSize, "Invalid input shape.");

  jzdl::Mat<float> output;
  dry_run(graph, shape[0], shape[1], shape[2], &output);
  const Trailer trailer = read_trailer(output);
  KEL_NN_FAIL_INIT_IF(!trailer.valid, "Invalid output layout in %zu values.",
                      runtime::element_count(output));
  graph->output_data = allocate_output_data(trailer.value_count);
  KEL_NN_FAIL_INIT_IF(!graph->output_data ||
                          !allocate_run_memory(graph->output_data, trailer.value_count, image_size),
                      "Out of memory.");

  size_t tensor_count = trailer.out_num;
  if (tensor_count > KEL_NN_MAX_TENSOR_CNT) {  // an error that initialisation survives
    KEL_NN_ERROR("out_num larger than KEL_NN_MAX_TENSOR_CNT (%d vs %d).",
                 static_cast<int>(trailer.out_num), KEL_NN_MAX_TENSOR_CNT);
    tensor_count = KEL_NN_MAX_TENSOR_CNT;
  }
  const bool fits = slice_outputs(graph, trailer, tensor_count);
  KEL_NN_FAIL_INIT_IF(!fits, "Output shapes exceed the %zu values of the output.",
                      trailer.value_count);
  graph->inputs[0] = {nullptr, {1, height, width, channels}};
  kel_nne_show_graph_info(graph);
  return 0;
}

int kel_nne_graph_deinit(kel_nn_graph_t graph) {
  KEL_NN_FAIL_IF(!graph, -1, "Uninitialized graph.");
  if (graph->net) jzdl::net_destory(network(graph));
  graph->net = nullptr;
  release_run_memory(graph->output_data);
  std::free(graph->output_data);
  graph->output_data = nullptr;
  std::free(graph->model_data);
  graph->model_data = nullptr;
  std::free(graph->model_path);
  graph->model_path = nullptr;
  graph->inputs[0] = {};  // the other inputs are never used
  std::memset(graph->outputs, 0, sizeof(graph->outputs));
  return 0;
}

void kel_nne_show_graph_info(kel_nn_graph_t graph) {
  if (!graph) return;
  // The interface's formats are those of a 32-bit machine.
  const auto address = [](const void* pointer) {
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(pointer));
  };
  const auto dim = [](const kel_nn_tensor& tensor, int axis) {
    return static_cast<unsigned>(tensor.dim[axis]);
  };
  const kel_nn_tensor& input = graph->inputs[0];
  KEL_NN_INFO(" model: %s", graph->model_path ? graph->model_path : "(null)");
  KEL_NN_INFO("     input[0]: addr=0x%x dim=[%u,%u,%u,%u]", address(input.buffer), dim(input, 0),
              dim(input, 1), dim(input, 2), dim(input, 3));
  for (unsigned i = 0; i < KEL_NN_MAX_TENSOR_CNT && graph->outputs[i].buffer; ++i) {
    const kel_nn_tensor& output = graph->outputs[i];
    KEL_NN_INFO("     output[%u]: addr=0x%x dim=[%u,%u,%u]", i, address(output.buffer),
                dim(output, 0), dim(output, 1), dim(output, 2));
  }
}

int kel_nne_run_graph(kel_nn_graph_t graph) {
  KEL_NN_FAIL_IF(!graph, -1, "Unhandled graph.");
  KEL_NN_FAIL_IF(!graph->net, -1, "Uninitialized graph.");
  const kel_nn_tensor& input = graph->inputs[0];
  const size_t height = input.dim[1], width = input.dim[2], channels = input.dim[3];
  const size_t image_size = product(product(width, height), channels);
  // A model that did not load leaves a graph without outputs: room for nothing. The network says no.
  const RunMemory none = {};
  const RunMemory* memory = graph->output_data ? *find_run_memory(graph->output_data) : &none;
  // A record that was filled by hand has room for what its network gives, and any dimensions. So has
  // another one of the kind that was released by hand, and whose address it has.
  if (!memory || (memory->value_count == kNoSize && image_size > memory->image_size)) {
    memory = allocate_run_memory(graph->output_data, kNoSize, image_size);
  }
  KEL_NN_FAIL_IF(!memory, -1, "Out of memory.");
  KEL_NN_FAIL_IF(image_size > memory->image_size, -1, "The input's dimensions have been changed.");

  // The network gets a private copy, so that the caller's image stays as it is. Without a buffer it
  // gets a matrix of the shape that has no data.
  const bool has_image = input.buffer && image_size > 0;
  unsigned char* pixels = has_image ? memory->image : nullptr;
  jzdl::Mat<unsigned char> image;
  if (has_image) {
    std::memcpy(pixels, input.buffer, image_size);
    image = runtime::borrow(width, height, channels, pixels);
  }
  jzdl::image_sub(image, kZeroPoint);
  jzdl::Mat<signed char> signed_image =
      runtime::borrow(width, height, channels, reinterpret_cast<signed char*>(pixels));

  const int input_result = runtime::input(network(graph), signed_image);
  KEL_NN_FAIL_IF(input_result != 0, -1, "Input image fail: %d", input_result);
  jzdl::Mat<float> output;
  const int run_result = runtime::run(network(graph), output);
  KEL_NN_FAIL_IF(run_result != 0, -1, "Inference fail: %d", run_result);

  const Trailer trailer = read_trailer(output);  // this run's own
  KEL_NN_FAIL_IF(!trailer.valid || trailer.value_count > memory->value_count, -1,
                 "Invalid output layout in %zu values.", runtime::element_count(output));
  if (trailer.value_count > 0) {
    std::memcpy(graph->output_data, runtime::data(output), trailer.value_count * sizeof(float));
  }
  return 0;
}

// ----- Tensors -----------------------------------------------------------------------------------

void* kel_nne_graph_get_input_tensor(kel_nn_graph_t graph, size_t index) {
  KEL_NN_FAIL_IF(!graph, nullptr, "Unhandled graph input.");
  KEL_NN_FAIL_IF(index >= KEL_NN_MAX_TENSOR_CNT, nullptr, "Index out of range.");
  return &graph->inputs[index];
}

void* kel_nne_graph_get_output_tensor(kel_nn_graph_t graph, size_t index) {
  KEL_NN_FAIL_IF(!graph, nullptr, "Unhandled graph input.");
  KEL_NN_FAIL_IF(index >= KEL_NN_MAX_TENSOR_CNT, nullptr, "Index out of range.");
  return &graph->outputs[index];
}

void* kel_nne_graph_get_input_tensor_with_name(kel_nn_graph_t, const char*) {
  KEL_NN_ERROR("get_tensor_with_name is not support in T31.");
  return nullptr;
}

void* kel_nne_graph_get_output_tensor_with_name(kel_nn_graph_t, const char*) {
  KEL_NN_ERROR("get_tensor_with_name is not support in T31.");
  return nullptr;
}

int kel_nne_tensor_set_dim(kel_nn_tensor_t tensor, size_t* dim) {
  KEL_NN_FAIL_IF(!tensor, -1, "Unhandled tensor input.");
  const size_t* own = tensor->dim;
  const bool equal = dim && std::memcmp(own, dim, sizeof(tensor->dim)) == 0;
  KEL_NN_FAIL_IF(!equal, -1, "JZ T31 not allowed input dynamic shape, expect: [%zu, %zu, %zu, %zu]",
                 own[0], own[1], own[2], own[3]);
  return 0;
}

int kel_nne_tensor_set_buffer(kel_nn_tensor_t tensor, void* buffer) {
  KEL_NN_FAIL_IF(!tensor, -1, "Unhandled tensor input.");
  tensor->buffer = buffer;
  return 0;
}

size_t* kel_nne_tensor_get_dim(kel_nn_tensor_t tensor) {
  KEL_NN_FAIL_IF(!tensor, nullptr, "Unhandled tensor input.");
  return tensor->dim;
}

float* kel_nne_tensor_get_buffer(kel_nn_tensor_t tensor) {
  KEL_NN_FAIL_IF(!tensor, nullptr, "Unhandled tensor input.");
  return static_cast<float*>(tensor->buffer);
}
