// SPDX-License-Identifier: Apache-2.0
#include "support/scripted_runtime.h"

#include <jzdl.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace kelnn_test {

ScriptedRuntime& scripted_runtime() {
  static ScriptedRuntime runtime;
  return runtime;
}

void ScriptedRuntime::set_outputs(const std::vector<Output>& outputs) {
  output.clear();
  for (const Output& o : outputs) output.insert(output.end(), o.values.begin(), o.values.end());
  for (const Output& o : outputs) output.insert(output.end(), o.shape.begin(), o.shape.end());
  output.push_back(static_cast<float>(outputs.size()));
}

void ScriptedRuntime::play(const std::vector<int>& shape,
                           const std::vector<std::vector<float>>& rows) {
  input_shape = shape;
  std::vector<Output> outputs;
  for (const auto& row : rows) outputs.push_back({{1, 1, static_cast<float>(row.size())}, row});
  set_outputs(outputs);
}

namespace {

// `call` is made; the library has no exceptions, and nothing is thrown through it where it has no tables for them.
ScriptedRuntime& script_of(Call call) {
#ifdef __cpp_exceptions
  if (scripted_runtime().throws == call) throw std::bad_alloc();
#endif
  return scripted_runtime();
}

class ScriptedNet : public jzdl::BaseNet {
 public:
  ScriptedNet() { ++scripted_runtime().networks_alive; }
  ~ScriptedNet() override { --scripted_runtime().networks_alive; }

  int load_model(const char* model, int from_memory) override {
    ScriptedRuntime& script = script_of(Call::kLoad);
    script.loaded_from_memory = from_memory;
    script.loaded_model = from_memory ? model : nullptr;
    script.loaded_path = from_memory ? "" : model;
    return std::exchange(script.fail_next_load, 0);
  }
  std::vector<int> input_shape() override { return script_of(Call::kInputShape).input_shape; }
  int input(jzdl::Mat<signed char>& image, int layer) override {
    ScriptedRuntime& script = script_of(Call::kInput);
    script.last_layer = layer;
    script.last_input_shape = {image.w, image.h, image.c};
    script.last_input_data = image.data;
    script.last_input.assign(image.data, image.data + (image.data ? image.total() : 0));
    return script.fail_dry_run ? 1 : std::exchange(script.fail_next_input, 0);
  }
  int run(jzdl::Mat<float>& output, int layer) override {
    ScriptedRuntime& script = script_of(Call::kRun);
    script.last_layer = layer;
    ++script.runs;
    const int count = static_cast<int>(script.output.size());
    output.create(count, 1, 1);
    std::copy(script.output.begin(), script.output.end(), output.data);
    if (script.gives != Matrix::kWhole) output = spoilt(script.gives, count);
    return script.fail_dry_run ? 1 : std::exchange(script.fail_next_run, 0);
  }

 private:
  // What a run gives instead; the elements are this object's.
  jzdl::Mat<float> spoilt(Matrix how, int count) {
    const size_t size = static_cast<size_t>(count) * sizeof(float);
    bytes_.resize(size + 1);
    std::memcpy(&bytes_[1], scripted_runtime().output.data(), size);
    void* const misaligned = &bytes_[1];
    if (how == Matrix::kMisaligned) return {count, 1, 1, static_cast<float*>(misaligned)};
    if (how == Matrix::kWithoutData) return {count, 1, 1, nullptr};
    return {-count, 1, 1, scripted_runtime().output.data()};
  }
  std::vector<char> bytes_;
};

}  // namespace
}  // namespace kelnn_test

namespace jzdl {

BaseNet* net_create() {
  return kelnn_test::script_of(kelnn_test::Call::kCreate).fail_create ? nullptr
                                                                      : new kelnn_test::ScriptedNet;
}
void net_destory(BaseNet* net) { delete net; }
void image_sub(Mat<unsigned char>& image, unsigned char value) {
  for (size_t i = 0; image.data && i < image.total(); ++i) {
    image.data[i] = static_cast<unsigned char>(image.data[i] - value);
  }
}

}  // namespace jzdl
