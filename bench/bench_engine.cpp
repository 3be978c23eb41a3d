// SPDX-License-Identifier: Apache-2.0
// What the engine adds to a run: the same network and the same image through kel_nne_run_graph(),
// and straight through the runtime. The networks only average their channels, so that there is
// little else to measure.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <jzdl.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "kel_nn.h"

namespace {

constexpr int kOwnLayer = -999;

struct Input {
  int width, height, channels;
  size_t size() const { return size_t(width) * height * channels; }
  std::string name() const {
    return std::to_string(width) + "x" + std::to_string(height) + "x" + std::to_string(channels);
  }
};
const Input kInputs[] = {{112, 112, 1}, {416, 256, 3}};

// Standard output carries the benchmark's result, which a graph's description would break.
int init_quietly(kel_nn_graph_t graph, const std::string& path) {
  std::fflush(stdout);
  const int saved = dup(STDOUT_FILENO), null = open("/dev/null", O_WRONLY);
  dup2(null, STDOUT_FILENO);
  const int result = kel_nne_graph_init(graph, path.c_str(), 0);
  std::fflush(stdout);
  dup2(saved, STDOUT_FILENO);
  close(saved);
  close(null);
  return result;
}

std::string network(const Input& input) {
  return std::string(KEL_NN_BENCH_NETWORKS) + "/mean_" + input.name() + ".onnx";
}

void run_engine(benchmark::State& state, const Input& input) {
  kel_nn_graph graph = {};
  std::vector<unsigned char> image(input.size(), 77);
  if (init_quietly(&graph, network(input)) != 0) state.SkipWithError("the network does not load");
  kel_nne_tensor_set_buffer(&graph.inputs[0], image.data());
  for (auto _ : state) {
    if (kel_nne_run_graph(&graph) != 0) state.SkipWithError("the run fails");
  }
  kel_nne_graph_deinit(&graph);
}

void run_runtime(benchmark::State& state, const Input& input) {
  jzdl::BaseNet* net = jzdl::net_create();
  if (net->load_model(network(input).c_str(), 0)) state.SkipWithError("the network does not load");
  jzdl::Mat<signed char> image(input.width, input.height, input.channels);
  for (size_t i = 0; i < input.size(); ++i) image.data[i] = 77 - 128;
  jzdl::Mat<float> output;
  for (auto _ : state) {
    if (net->input(image, kOwnLayer) || net->run(output, kOwnLayer)) {
      state.SkipWithError("the run fails");
    }
  }
  jzdl::net_destory(net);
}

const int kRegistered = [] {
  for (const Input& input : kInputs) {
    const std::string name = "engine/run " + input.name();
    benchmark::RegisterBenchmark((name + "/kelnn").c_str(),
                                 [&](benchmark::State& s) { run_engine(s, input); });
    benchmark::RegisterBenchmark((name + "/bare runtime").c_str(),
                                 [&](benchmark::State& s) { run_runtime(s, input); });
  }
  return 0;
}();

}  // namespace
