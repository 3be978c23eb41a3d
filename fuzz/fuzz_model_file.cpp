// SPDX-License-Identifier: Apache-2.0
// Model files of any content, scrambled or not, and any outputs and trailers of the runtime that loads them: the engine
// refuses them or works, and is usable afterwards.
#include <algorithm>

#include "support/input.h"
#include "support/model_directory.h"
#include "support/scripted_runtime.h"

using namespace kelnn_fuzz;
using namespace kelnn_test;

namespace {

const TemporaryDirectory& directory() {
  static const TemporaryDirectory models;
  return models;
}

// The plain words of the rule, a byte at a time.
std::vector<uint8_t> plain_decode(const std::vector<uint8_t>& file, size_t header,
                                  const std::string& key) {
  std::vector<uint8_t> model(file.begin() + static_cast<ptrdiff_t>(header), file.end());
  for (size_t i = 0; i < header && i < model.size(); ++i) {
    const signed char k = static_cast<signed char>(key[i % key.size()]);
    if (model[i] != 0 && int{model[i]} != int{k})
      model[i] = static_cast<uint8_t>(model[i] ^ static_cast<uint8_t>(k));
  }
  return model;
}

void decode(Input& input) {
  const std::vector<uint8_t> file = input.bytes(input.number<size_t>(1, 4096));
  const size_t header =
      input.yes() ? input.number<size_t>(0, 1500) : input.ConsumeIntegral<size_t>();
  const std::string key = input.ConsumeRandomLengthString(32);
  const bool has_key = !key.empty() && key[0] != 0;
  uint8_t* model = nullptr;
  const size_t size =
      kel_nn_model_xor_decode(file.data(), &model, file.size(), header, key.c_str());
  EXPECT((size == 0) == (model == nullptr) || header == file.size());
  if (size != 0) {
    EXPECT(header <= file.size() && size == file.size() - header);
    if (has_key && header != 0) {
      const std::vector<uint8_t> wanted = plain_decode(file, header, key.c_str());
      EXPECT(std::equal(wanted.begin(), wanted.end(), model));
    }
  }
  std::free(model);
}

void load(Input& input) {
  ScriptedRuntime& runtime = scripted_runtime();
  runtime = ScriptedRuntime();
  for (int& side : runtime.input_shape)
    side = input.yes() ? input.number(1, 40) : input.number(-2, 70000);
  // Not more than this process has memory for.
  if (static_cast<double>(runtime.input_shape[0]) * runtime.input_shape[1] *
          runtime.input_shape[2] >
      1e6) {
    runtime.input_shape = {0, 1, 1};
  }
  const int output_count = input.number(0, 20);
  std::vector<Output> outputs;
  for (int i = 0; i < output_count; ++i) {
    Output output = {{1, 1, 0}, input.floats(input.number<size_t>(0, 40))};
    output.shape[2] = static_cast<float>(output.values.size());
    if (input.number(0, 9) == 0) output.shape[input.number(0, 2)] = input.any_float();
    outputs.push_back(output);
  }
  runtime.set_outputs(outputs);
  if (input.yes() && !runtime.output.empty()) runtime.output.back() = input.any_float();
  if (input.number(0, 7) == 0)
    runtime.output.resize(input.number<size_t>(0, runtime.output.size()));
  if (input.number(0, 7) == 0) runtime.fail_next_load = input.number(1, 99);
  if (input.number(0, 7) == 0) runtime.fail_dry_run = true;
  const size_t length = input.yes() ? 3000 : input.number<size_t>(0, 3100);
  kel_nn_set_model_root_dir(directory().with_slash().c_str());
  directory().write("model.bin", std::string(length, 'm'));

  kel_nn_graph graph = {};
  const bool is_scrambled = input.yes();
  if (kel_nne_graph_init(&graph, "model.bin", is_scrambled) == 0) {
    runtime.fail_dry_run = false;
    const std::vector<uint8_t> image(static_cast<size_t>(runtime.input_shape[0]) *
                                     runtime.input_shape[1] * runtime.input_shape[2]);
    for (int run = 0; run < 2; ++run) {
      kel_nn_tensor_t tensor =
          static_cast<kel_nn_tensor_t>(kel_nne_graph_get_input_tensor(&graph, 0));
      EXPECT(kel_nne_tensor_set_buffer(tensor, const_cast<uint8_t*>(image.data())) == 0);
      const bool has_run = kel_nne_run_graph(&graph) == 0;
      for (size_t i = 0; has_run && i < KEL_NN_MAX_TENSOR_CNT; ++i) {
        kel_nn_tensor_t output =
            static_cast<kel_nn_tensor_t>(kel_nne_graph_get_output_tensor(&graph, i));
        const size_t* dim = kel_nne_tensor_get_dim(output);
        float sum = 0;
        if (output->buffer) {
          for (size_t at = 0; at < dim[0] * dim[1] * dim[2]; ++at)
            sum += kel_nne_tensor_get_buffer(output)[at];
        }
        if (std::isnan(sum)) continue;  // all of it has been read
      }
      // The next run says something else about its outputs.
      if (input.yes())
        runtime.output = input.floats(input.number<size_t>(0, 2 * runtime.output.size() + 4));
    }
  }
  kel_nne_show_graph_info(&graph);
  EXPECT(kel_nne_graph_deinit(&graph) == 0);
  EXPECT(runtime.networks_alive == 0 && !graph.net && !graph.model_data && !graph.output_data);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  input.number(0, 3) == 0 ? load(input) : decode(input);
  return 0;
}
