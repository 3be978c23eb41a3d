// SPDX-License-Identifier: Apache-2.0
// The runtime on a PC: networks of ONNX models, run by OpenCV DNN.
//
// Image in: signed bytes become floats of the same value (-128 to 127), interleaved channels become
// planes. Values out: every output of the graph, in the graph's order, channels innermost:
//
//     ONNX shape          trailer's shape  order of the values
//     [1, C, H, W]        H, W, C          transposed, a pixel's channels side by side
//     [A, B, C]           A, B, C          as they are
//     [A, B]              1, A, B          as they are
//     [A] and a scalar    1, 1, A (1)      as they are
//
// and behind them the trailer: three shape values for each output, then the number of outputs.
#include <google/protobuf/stubs/logging.h>
#include <jzdl.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <opencv2/core.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <opencv2/dnn.hpp>
#include <regex>
#include <string>
#include <utility>

#include "model_container.h"
#include "onnx_graph.h"
#include "runtime_errors.h"
#include "wrap_networks.h"

namespace kelnn_host {
namespace {

constexpr int kOwnLayer = -999;             // the network's own input, or its own output
constexpr size_t kMaxCount = 1 << 24;       // up to here a float counts exactly
constexpr size_t kMaxOutputSize = 1 << 28;  // floats, all outputs

struct Output {
  size_t shape[3];      // as the trailer gives it
  size_t count;         // the product
  bool channels_first;  // to be transposed
};

// A network that has run once.
struct Network {
  OnnxGraph graph;
  cv::dnn::Net net;
  std::vector<cv::String> output_names;
  std::vector<Output> outputs;
  std::vector<float> trailer;
  size_t output_size = 0;  // the trailer included

  // Kept from run to run.
  std::vector<cv::Mat> planes;  // the image, a matrix for each channel
  cv::Mat blob;                 // the same as floats, what OpenCV is given
  std::vector<cv::Mat> blobs;   // what OpenCV delivered last
};

// ----- Bytes of a model --------------------------------------------------------------------------

RuntimeError read_file(const char* path, std::vector<uint8_t>* bytes) {
  std::error_code error;
  // Opening a pipe would wait for its writer.
  if (!std::filesystem::is_regular_file(path, error)) return kUnreadable;
  const uintmax_t size = std::filesystem::file_size(path, error);
  if (error || size > kMaxContainerSize) return kUnreadable;
  bytes->resize(static_cast<size_t>(size));
  std::ifstream file(path, std::ios::binary);
  file.read(reinterpret_cast<char*>(bytes->data()), static_cast<std::streamsize>(bytes->size()));
  return file ? kOk : kUnreadable;
}

// Fills `storage` with the model and points `onnx` into it. Memory holds a container; a file may be
// bare ONNX too.
RuntimeError read_model(const char* model, int from_memory, std::vector<uint8_t>* storage,
                        OnnxBytes* onnx) {
  if (!model) return kUnreadable;
  const RuntimeError error =
      from_memory ? copy_container(model, storage) : read_file(model, storage);
  if (error) return error;
  if (from_memory || is_container(storage->data(), storage->size())) {
    return open_container(storage->data(), storage->size(), onnx);
  }
  *onnx = {storage->data(), storage->size()};
  return kOk;
}

// ----- Steps of loading --------------------------------------------------------------------------

// Keeps OpenCV and protobuf from writing to standard error about models that are refused: the code
// says it. OpenCV's level belongs to the process, so networks take turns, and the level is put
// back.
class QuietLoading {
 public:
  QuietLoading() : turn_(mutex()), level_(set_level(cv::utils::logging::LOG_LEVEL_SILENT)) {}
  ~QuietLoading() { set_level(level_); }
  QuietLoading(const QuietLoading&) = delete;
  QuietLoading& operator=(const QuietLoading&) = delete;

 private:
  using Level = cv::utils::logging::LogLevel;
  static Level set_level(Level level) { return cv::utils::logging::setLogLevel(level); }
  static std::mutex& mutex() {
    static std::mutex one;
    return one;
  }
  std::lock_guard<std::mutex> turn_;
  Level level_;
  google::protobuf::LogSilencer silencer_;
};

// How a blob is delivered; `rank` is what the graph declares, or -1.
RuntimeError read_output(const cv::Mat& blob, int rank, Output* output) {
  if (blob.empty() || blob.type() != CV_32F) return kUnsupportedOutput;
  // OpenCV's matrices have two dimensions at least; vectors and scalars grow ones.
  if (rank < 0) rank = blob.dims;
  if (rank > 4 || (rank >= 2 && rank != blob.dims)) return kUnsupportedOutput;
  output->channels_first = rank == 4;
  size_t* shape = output->shape;
  const auto size = [&blob](int axis) { return static_cast<size_t>(blob.size[axis]); };
  if (rank == 4) {
    if (size(0) != 1) return kUnsupportedOutput;
    shape[0] = size(2), shape[1] = size(3), shape[2] = size(1);
  } else if (rank == 3) {
    shape[0] = size(0), shape[1] = size(1), shape[2] = size(2);
  } else if (rank == 2) {
    shape[0] = 1, shape[1] = size(0), shape[2] = size(1);
  } else {
    shape[0] = 1, shape[1] = 1, shape[2] = blob.total();
  }
  output->count = blob.total();
  const bool exact = std::all_of(shape, shape + 3, [](size_t n) { return n <= kMaxCount; });
  return exact ? kOk : kUnsupportedOutput;
}

RuntimeError learn_outputs(Network* network) {
  size_t total = 0;
  for (size_t i = 0; i < network->blobs.size(); ++i) {
    Output output;
    const int rank = network->graph.outputs[i].rank;
    if (const RuntimeError error = read_output(network->blobs[i], rank, &output)) return error;
    network->trailer.insert(network->trailer.end(), output.shape, output.shape + 3);
    network->outputs.push_back(output);
    total += output.count;
    if (total > kMaxOutputSize) return kUnsupportedOutput;
  }
  network->trailer.push_back(static_cast<float>(network->outputs.size()));
  network->output_size = total + network->trailer.size();
  return kOk;
}

thread_local std::string t_refusal;

// Of what OpenCV says, what tells something: not its version, its files and its functions.
std::string plain_text(const std::string& said) {
  constexpr size_t kMostSaid =
      4000;  // names in a network may be long, and each character takes stack
  static const std::regex noise(
      R"(OpenCV\([^)]*\) \S+ error: \([^)]*\) | in function '[^']*'|\n> $|^> |onnx_node!)");
  return std::regex_replace(said.substr(0, kMostSaid), noise, "");
}

// Imports the model and runs it once on a blank image: what OpenCV cannot run is refused here, and
// the shapes of the outputs become known.
RuntimeError load_network(const OnnxBytes& onnx, Network* network) {
  const QuietLoading quiet;
  if (const RuntimeError error = read_onnx_graph(onnx, &network->graph, &t_refusal)) return error;
  const OnnxGraph& graph = network->graph;
  for (const OnnxGraph::Output& output : graph.outputs)
    network->output_names.push_back(output.name);
  network->net = cv::dnn::readNetFromONNX(reinterpret_cast<const char*>(onnx.data), onnx.size);
  // Not what the environment or OpenCV's build would choose: results should depend on neither.
  network->net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
  network->net.setPreferableTarget(cv::dnn::DNN_TARGET_CPU);

  const int blob_shape[] = {1, graph.channels, graph.height, graph.width};
  network->blob = cv::Mat::zeros(4, blob_shape, CV_32F);
  network->net.setInput(network->blob, graph.input_name);
  network->net.forward(network->blobs, network->output_names);
  return learn_outputs(network);
}

// ----- Image in, values out ----------------------------------------------------------------------

void set_image(Network* network, const jzdl::Mat<signed char>& image) {
  const cv::Mat pixels(image.h, image.w, CV_8SC(image.c), image.data);
  cv::split(pixels, network->planes);
  float* plane = network->blob.ptr<float>();
  for (const cv::Mat& bytes : network->planes) {
    cv::Mat floats(image.h, image.w, CV_32F, plane);
    bytes.convertTo(floats, CV_32F);
    plane += floats.total();
  }
  network->net.setInput(network->blob, network->graph.input_name);
}

// Writes one output to `values`; false when it has not the size that it had when loaded.
bool deliver(const cv::Mat& blob, const Output& output, float* values) {
  if (blob.total() != output.count || blob.type() != CV_32F || !blob.isContinuous()) return false;
  const int channels = static_cast<int>(output.shape[2]);
  const int pixel_count = static_cast<int>(output.shape[0] * output.shape[1]);
  if (output.channels_first && channels > 1 && pixel_count > 1) {
    cv::Mat pixels(pixel_count, channels, CV_32F, values);
    cv::transpose(blob.reshape(1, channels), pixels);
  } else {
    std::memcpy(values, blob.ptr<float>(), output.count * sizeof(float));
  }
  return true;
}

// ----- The interface -----------------------------------------------------------------------------

// Runs `step` and turns whatever it throws into a code: memory that is short, else `otherwise`.
template <typename Step>
int without_exceptions(RuntimeError otherwise, Step step) noexcept {
  try {
    return step();
  } catch (const std::bad_alloc&) {
    return kOutOfMemory;
  } catch (const cv::Exception& exception) {
    t_refusal = plain_text(exception.err);
    return exception.code == cv::Error::StsNoMem ? kOutOfMemory : otherwise;
  } catch (...) {
    return otherwise;
  }
}

class OpenCvNet : public jzdl::BaseNet {
 public:
  // Replaces the network; after a failure none is loaded.
  int load_model(const char* model, int from_memory) override {
    return without_exceptions(kUnsupportedNetwork, [&]() -> RuntimeError {
      network_.reset();
      has_input_ = false;
      t_refusal.clear();
      std::vector<uint8_t> storage;
      OnnxBytes onnx;
      if (const RuntimeError error = read_model(model, from_memory, &storage, &onnx)) return error;
      auto network = std::make_unique<Network>();
      if (const RuntimeError error = load_network(onnx, network.get())) return error;
      network_ = std::move(network);
      return kOk;
    });
  }

  std::vector<int> input_shape() override {
    std::vector<int> shape;
    without_exceptions(kOutOfMemory, [&] {
      if (network_) {
        shape = {network_->graph.width, network_->graph.height, network_->graph.channels};
      }
      return kOk;
    });
    return shape;
  }

  int input(jzdl::Mat<signed char>& image, int layer) override {
    has_input_ = false;  // an image that is refused does not leave the one before it in place
    if (!network_) return kNoNetwork;
    if (layer != kOwnLayer) return kUnknownLayer;
    const OnnxGraph& graph = network_->graph;
    if (image.w != graph.width || image.h != graph.height || image.c != graph.channels) {
      return kWrongImageShape;
    }
    if (!image.data) return kNoImageData;
    return without_exceptions(kInferenceFailed, [&] {
      set_image(network_.get(), image);
      has_input_ = true;
      return kOk;
    });
  }

  // `output` shares the network's own matrix. The next run uses its memory again unless somebody
  // still holds it, in which case it gets new memory and the old values stay.
  int run(jzdl::Mat<float>& output, int layer) override {
    output.release();
    if (!network_) return kNoNetwork;
    if (layer != kOwnLayer) return kUnknownLayer;
    if (!has_input_) return kNoInput;
    return without_exceptions(kInferenceFailed, [&] {
      Network& network = *network_;
      network.net.forward(network.blobs, network.output_names);
      output_.create(static_cast<int>(network.output_size), 1, 1);
      if (output_.empty()) return kOutOfMemory;
      float* values = output_.data;
      for (size_t i = 0; i < network.outputs.size(); ++i) {
        if (!deliver(network.blobs[i], network.outputs[i], values)) return kInferenceFailed;
        values += network.outputs[i].count;
      }
      std::copy(network.trailer.begin(), network.trailer.end(), values);
      output = output_;
      return kOk;
    });
  }

 private:
  std::unique_ptr<Network> network_;  // null: nothing is loaded
  bool has_input_ = false;
  jzdl::Mat<float> output_;
};

}  // namespace

static jzdl::BaseNet* (*g_wrap)(jzdl::BaseNet*) = nullptr;

__attribute__((visibility("default"))) void wrap_networks(jzdl::BaseNet* (*wrap)(jzdl::BaseNet*)) {
  g_wrap = wrap;
}

__attribute__((visibility("default"))) const char* last_refusal() { return t_refusal.c_str(); }

}  // namespace kelnn_host

namespace jzdl {

BaseNet* net_create() {
  BaseNet* const net = new (std::nothrow) kelnn_host::OpenCvNet;
  return net && kelnn_host::g_wrap ? kelnn_host::g_wrap(net) : net;
}

void net_destory(BaseNet* net) { delete net; }

void image_sub(Mat<unsigned char>& image, unsigned char value) {
  if (image.empty()) return;
  unsigned char* bytes = image.data;  // not the member, which bytes could be part of
  const size_t count = image.total();
  for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<unsigned char>(bytes[i] - value);
}

}  // namespace jzdl
