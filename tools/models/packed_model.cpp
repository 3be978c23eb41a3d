// SPDX-License-Identifier: Apache-2.0
#include "packed_model.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "kel_nn.h"
#include "kel_nn_model_files.h"
#include "model_container.h"
#include "report.h"

namespace kelnn_cli {
namespace {

using kelnn::kScrambledSize;
using kelnn_host::RuntimeError;
constexpr size_t kMinModelSize = 2 * kScrambledSize;

struct Free {
  void operator()(uint8_t* bytes) const { std::free(bytes); }
};

// The runtime's texts name its container, of which a newcomer has not heard.
std::string explain(RuntimeError error) {
  switch (error) {
    case kelnn_host::kCutOff:
      return "the model is cut off: the end of the file is missing";
    case kelnn_host::kWrongChecksum:
      return "the model is damaged: some of its bytes have changed";
    default:
      return kelnn_host::describe_load_error(error);
  }
}

// The model in a file, scrambled if it was plain and the other way round.
Bytes changed_over(const Bytes& file) {
  uint8_t* model = nullptr;
  const size_t size = kel_nn_model_xor_decode(file.data(), &model, file.size(), kScrambledSize,
                                              kelnn::kScrambleKey);
  if (size == 0) throw Failure("the library could not scramble the model");
  const std::unique_ptr<uint8_t, Free> owner(model);
  return Bytes(model, model + size);
}

const Task* task_of(const kelnn_host::ModelLabel& label) {
  for (const Task& task : tasks()) {
    const char* name = task.file_name;
    if (kelnn_host::checksum(name, std::strlen(name)) == label.name_checksum) return &task;
  }
  return nullptr;
}

// Holds the model against its label.
RuntimeError check(const Bytes& model, const ModelFile& file) {
  if (model.size() < file.model_size) return kelnn_host::kCutOff;
  const bool is_same = kelnn_host::checksum(model.data(), file.model_size) == file.model_checksum;
  return is_same ? kelnn_host::kOk : kelnn_host::kWrongChecksum;
}

}  // namespace

Bytes pack_network(const Task& task, const Bytes& onnx) {
  return pack_raw(task, kelnn_host::wrap_model(onnx.data(), onnx.size()));
}

Bytes pack_raw(const Task& task, const Bytes& network) {
  if (network.empty()) throw Failure("the network is empty or too large to be packed");
  Bytes file(kScrambledSize + std::max(network.size(), kMinModelSize));
  const auto model = file.begin() + kScrambledSize;
  std::copy(network.begin(), network.end(), model);
  const Bytes scrambled = changed_over(file);
  std::copy(scrambled.begin(), scrambled.end(), model);
  kelnn_host::write_label({kelnn_host::checksum(task.file_name, std::strlen(task.file_name)),
                           kelnn_host::checksum(network.data(), network.size()), network.size()},
                          file.data());
  return file;
}

ModelFile read_model_file(const std::string& path) {
  const Bytes bytes = read_file(path);
  ModelFile file;
  file.size = bytes.size();
  if (file.size < kScrambledSize + kMinModelSize) {
    file.problem = "cut off, or not a model: only " + std::to_string(file.size) + " of at least " +
                   std::to_string(kScrambledSize + kMinModelSize) + " bytes";
    return file;
  }
  const Bytes stored(bytes.begin() + kScrambledSize, bytes.end());
  Bytes model = changed_over(bytes);

  const auto is_container = [](const Bytes& bytes) {
    return kelnn_host::is_container(bytes.data(), bytes.size());
  };
  kelnn_host::ModelLabel label = {};
  RuntimeError error = kelnn_host::read_label(bytes.data(), &label);
  if (error == kelnn_host::kBadMagic) {  // packed by another program
    error = kelnn_host::kOk;
    if (is_container(stored) || is_container(model)) file.is_scrambled = is_container(model);
  } else if (!error) {
    file.is_labelled = true;
    file.task = task_of(label);
    file.model_size = label.model_size;
    file.model_checksum = label.model_checksum;
    error = check(model, file);
    if (!error || !check(stored, file)) file.is_scrambled = !error;
    if (!error) model.resize(file.model_size);
  }
  kelnn_host::OnnxBytes network = {model.data(), model.size()};
  file.is_onnx = is_container(model);
  if (!error && file.is_onnx) {
    error = kelnn_host::open_container(model.data(), model.size(), &network);
  }
  if (file.is_scrambled == false) {
    file.problem = "the model is not scrambled";
  } else if (error) {
    file.problem = explain(error);
  } else {
    file.network.assign(network.data, network.data + network.size);
  }
  return file;
}

}  // namespace kelnn_cli
