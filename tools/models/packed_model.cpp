// SPDX-License-Identifier: Apache-2.0
#include "packed_model.h"

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "kel_nn.hpp"
#include "kel_nn_model_files.h"
#include "model_container.h"
#include "report.h"

namespace kelnn_cli {
namespace {

using kelnn::kScrambledSize;
using kelnn::kScrambleKey;
constexpr size_t kMinFileSize = 3 * kScrambledSize;

struct Free {
  void operator()(uint8_t* bytes) const { std::free(bytes); }
};

// The runtime's texts name its container, of which a newcomer has not heard.
std::string explain(kelnn_host::RuntimeError error) {
  switch (error) {
    case kelnn_host::kBadMagic:
      return "not a model that was packed for a PC";
    case kelnn_host::kCutOff:
      return "the model is cut off: the end of the file is missing";
    case kelnn_host::kWrongChecksum:
      return "the model is damaged: some of its bytes have changed";
    default:
      return kelnn_host::describe_load_error(error);
  }
}

}  // namespace

Bytes pack_network(const Bytes& onnx) {
  const Bytes container = kelnn_host::wrap_model(onnx.data(), onnx.size());
  if (container.empty()) throw Failure("the network is empty or too large to be packed");
  Bytes file(kScrambledSize + container.size());  // the header means nothing and stays zero
  std::copy(container.begin(), container.end(), file.begin() + kScrambledSize);
  // Descrambling is its own inverse.
  uint8_t* scrambled = nullptr;
  const size_t size =
      kel_nn_model_xor_decode(file.data(), &scrambled, file.size(), kScrambledSize, kScrambleKey);
  if (size == 0) throw Failure("the library could not scramble the model");
  const std::unique_ptr<uint8_t, Free> owner(scrambled);
  std::copy(scrambled, scrambled + size, file.begin() + kScrambledSize);
  return file;
}

Bytes unpack_network(const std::string& path) {
  const size_t file_size = read_file(path).size();
  if (file_size < kMinFileSize) {
    throw Failure(path, "cut off, or not a model: only " + std::to_string(file_size) +
                            " of at least " + std::to_string(kMinFileSize) + " bytes");
  }
  uint8_t* plain = nullptr;
  size_t size = 0;
  {
    const kel_nn::Messages unneeded;  // the Failure says it
    size = kel_nn_model_xor_decode_from_file(path.c_str(), &plain, kScrambledSize, kScrambleKey);
  }
  if (size == 0) throw Failure(path, "cannot be read");
  const std::unique_ptr<uint8_t, Free> owner(plain);
  kelnn_host::OnnxBytes onnx;
  const kelnn_host::RuntimeError error = kelnn_host::open_container(plain, size, &onnx);
  if (error) throw Failure(path, explain(error));
  return Bytes(onnx.data, onnx.data + onnx.size);
}

}  // namespace kelnn_cli
