// SPDX-License-Identifier: Apache-2.0
// Graphs and tensors over the scripted runtime.
#include <jzdl.h>

#include <cstdlib>
#include <functional>
#include <numeric>

#include "support/library_test.h"

namespace {

using kelnn_test::Output;
using kelnn_test::TaskTest;
using ::testing::Each;
using ::testing::ElementsAre;

constexpr char kInit[] = "int kel_nne_graph_init(kel_nn_graph_t, kel_nn_model_t, int)";
constexpr char kRun[] = "int kel_nne_run_graph(kel_nn_graph_t)";

std::vector<float> count_up(int n, float first = 1.0f) {
  std::vector<float> values(n);
  std::iota(values.begin(), values.end(), first);
  return values;
}

// The path of a model as long as no root directory was ever set. Asked before the first test.
const std::string g_path_without_root = [] {
  const kelnn_test::StdoutCapture capture;
  kel_nn_graph graph = {};
  kelnn_test::scripted_runtime().fail_next_load = 42;
  kel_nne_graph_init(&graph, "own.bin", 0);
  const std::string path = graph.model_path;
  kel_nne_graph_deinit(&graph);
  return path;
}();

class Engine : public TaskTest {
 protected:
  Engine() {
    models.write("a.bin", "scrambled" + std::string(3000, 'm'));
    runtime.input_shape = {/*width=*/4, /*height=*/3, /*channels=*/2};
    runtime.set_outputs({{{1, 2, 3}, count_up(6)}, {{1, 1, 2}, count_up(2, 50.0f)}});
  }
  ~Engine() override { kel_nne_graph_deinit(&graph_); }

  int init(int scrambled = 1) { return kel_nne_graph_init(&graph_, "a.bin", scrambled); }
  kel_nn_tensor_t input() {
    return static_cast<kel_nn_tensor_t>(kel_nne_graph_get_input_tensor(&graph_, 0));
  }
  kel_nn_tensor_t output(size_t i) {
    return static_cast<kel_nn_tensor_t>(kel_nne_graph_get_output_tensor(&graph_, i));
  }
  int run() {
    kel_nne_tensor_set_buffer(input(), image_.data());
    return kel_nne_run_graph(&graph_);
  }
  std::vector<float> values(size_t i, size_t n) {
    const float* data = kel_nne_tensor_get_buffer(output(i));
    return std::vector<float>(data, data + n);
  }
  void expect_error(const std::string& signature, const std::string& message) {
    TaskTest::expect_error("plat/jzt31/kel_nn_engine.cpp", signature, message);
  }
  void expect_zero_graph() {
    static const kel_nn_graph zero = {};
    EXPECT_EQ(std::memcmp(&graph_, &zero, sizeof(zero)), 0);
    EXPECT_EQ(runtime.networks_alive, 0);
  }

  kel_nn_graph graph_ = {};
  std::vector<unsigned char> image_ = std::vector<unsigned char>(4 * 3 * 2);
};

// ----- Initialisation

TEST_F(Engine, LearnsShapesFromADryRun) {
  ASSERT_EQ(init(), 0);
  EXPECT_THAT(input()->dim, ElementsAre(1, 3, 4, 2));
  EXPECT_EQ(input()->buffer, nullptr);
  EXPECT_THAT(output(0)->dim, ElementsAre(1, 2, 3, 0));
  EXPECT_THAT(output(1)->dim, ElementsAre(1, 1, 2, 0));
  EXPECT_EQ(output(0)->buffer, graph_.output_data);
  EXPECT_EQ(output(1)->buffer, graph_.output_data + 6);
  EXPECT_EQ(output(15)->buffer, nullptr);
  EXPECT_EQ(runtime.runs, 1);
  EXPECT_THAT(runtime.last_input_shape, ElementsAre(4, 3, 2));
  EXPECT_THAT(runtime.last_input, Each(0));
  EXPECT_EQ(runtime.last_layer, -999);
  kel_nne_graph_deinit(&graph_);
  runtime.input_shape = {1, 1, 1};
  runtime.fail_dry_run = true;  // whatever its calls return
  ASSERT_EQ(init(), 0);
  EXPECT_THAT(output(0)->dim, ElementsAre(1, 2, 3, 0));
  EXPECT_THAT(runtime.last_input, ElementsAre(0));
  runtime.fail_dry_run = false;
  ASSERT_EQ(run(), 0);
  EXPECT_THAT(runtime.last_input, ElementsAre(-128));
}

TEST_F(Engine, JoinsRootAndNameWithoutASeparator) {
  EXPECT_EQ(g_path_without_root, "own.bin");
  const std::string path = models.file("a.bin");
  for (const std::string name : {"a.bin", "bin", ""}) {
    kel_nn_set_model_root_dir(path.substr(0, path.size() - name.size()).c_str());
    ASSERT_EQ(kel_nne_graph_init(&graph_, name.c_str(), 1), 0);
    EXPECT_EQ(graph_.model_path, path);
    kel_nne_graph_deinit(&graph_);
  }
}

TEST_F(Engine, ReadsAScrambledModelItselfAndLeavesAPlainOneToTheRuntime) {
  ASSERT_EQ(init(1), 0);
  EXPECT_EQ(runtime.loaded_from_memory, 1);
  EXPECT_EQ(runtime.loaded_model, reinterpret_cast<const char*>(graph_.model_data));
  // Behind the header of 1000: 'm' with the key's first byte, 'T'.
  EXPECT_EQ(graph_.model_data[0], 'm' ^ 'T');
  EXPECT_EQ(graph_.model_data[999], 'm' ^ "TXlTYW1wbGUtS2V5LUEwMS0wMA=="[999 % 28]);
  EXPECT_EQ(graph_.model_data[1000], 'm');
  kel_nne_graph_deinit(&graph_);

  ASSERT_EQ(init(0), 0);
  EXPECT_EQ(runtime.loaded_from_memory, 0);
  EXPECT_EQ(runtime.loaded_path, models.file("a.bin"));
  EXPECT_EQ(graph_.model_data, nullptr);
}

TEST_F(Engine, PrintsWhatItLoaded) {
  ASSERT_EQ(init(), 0);
  char expected[512];
  std::snprintf(expected, sizeof(expected),
                "\033[0;32m[Info] model: %s\n\033[0m"
                "\033[0;32m[Info]     input[0]: addr=0x0 dim=[1,3,4,2]\n\033[0m"
                "\033[0;32m[Info]     output[0]: addr=0x%x dim=[1,2,3]\n\033[0m"
                "\033[0;32m[Info]     output[1]: addr=0x%x dim=[1,1,2]\n\033[0m",
                models.file("a.bin").c_str(),
                static_cast<unsigned>(reinterpret_cast<uintptr_t>(output(0)->buffer)),
                static_cast<unsigned>(reinterpret_cast<uintptr_t>(output(1)->buffer)));
  EXPECT_EQ(printed(), expected);
  kel_nne_show_graph_info(&graph_);
  EXPECT_EQ(printed(), expected);
  kel_nne_show_graph_info(nullptr);
  EXPECT_EQ(printed(), "");
}

TEST_F(Engine, FailsCleanlyBeforeTheModelIsLoaded) {
  EXPECT_EQ(kel_nne_graph_init(nullptr, "a.bin", 1), -1);
  expect_error(kInit, "Unhandled graph input.");
  EXPECT_EQ(kel_nne_graph_init(&graph_, nullptr, 1), -1);
  expect_error(kInit, "Unhandled model input.");

  runtime.fail_create = true;
  EXPECT_EQ(init(), -1);
  expect_error(kInit, "jzdl::net_create fail.");
  runtime.fail_create = false;

  EXPECT_EQ(kel_nne_graph_init(&graph_, "missing.bin", 1), -1);
  EXPECT_THAT(printed_messages(),
              ElementsAre("[Error]Read file " + models.file("missing.bin") + " error!",
                          "[Error]Decode model fail."));
  expect_zero_graph();

  graph_.model_data = static_cast<uint8_t*>(std::malloc(1));
  EXPECT_EQ(init(), -1);
  expect_error(kInit, "graph_handle->model_data not NULL! Is it already been initialized?");
  expect_zero_graph();
}

TEST_F(Engine, AModelThatDoesNotLoadKeepsTheGraphUntilDeinit) {
  runtime.fail_next_load = 42;
  EXPECT_EQ(init(), -1);
  expect_error(kInit, "load model error[42]: Can not load model \"" + models.file("a.bin") + "\".");
  EXPECT_NE(graph_.net, nullptr);
  EXPECT_NE(graph_.model_path, nullptr);
  EXPECT_NE(graph_.model_data, nullptr);
  const kel_nn_graph before = graph_;
  EXPECT_EQ(init(), -1);
  expect_error(kInit, "Graph has already been initialized.");
  EXPECT_EQ(std::memcmp(&graph_, &before, sizeof(before)), 0);
  runtime.fail_next_input = 20;
  EXPECT_EQ(run(), -1);
  expect_error(kRun, "Input image fail: 20");
  EXPECT_EQ(run(), -1);  // a network that runs all the same has nowhere to put its values
  expect_error(kRun, "Invalid output layout in 15 values.");

  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(kel_nne_graph_deinit(&graph_), 0);
    expect_zero_graph();
  }
  EXPECT_EQ(init(), 0);
}

TEST_F(Engine, WorksWithTheFirst16OutputsOfMore) {
  std::vector<Output> outputs;
  for (const size_t count : {16, 20}) {
    while (outputs.size() < count) {
      const float i = static_cast<float>(outputs.size());
      outputs.push_back({{1, 1, 2}, {i + 0.25f, i + 0.5f}});
    }
    runtime.set_outputs(outputs);
    kel_nne_graph_deinit(&graph_);
    ASSERT_EQ(init(), 0);
    EXPECT_EQ(printed_messages()[0],
              count == 16 ? "[Info] model: " + models.file("a.bin")
                          : "[Error]out_num larger than KEL_NN_MAX_TENSOR_CNT (20 vs 16).");
  }
  // All 20 lie in the buffer, and the trailer behind them is found by the number that was declared.
  ASSERT_EQ(run(), 0);
  EXPECT_THAT(values(15, 2), ElementsAre(15.25f, 15.5f));
  EXPECT_EQ(graph_.output_data[39], 19.5f);
}

TEST_F(Engine, AModelMayHaveNoOutputsAndAnOutputNoElements) {
  for (float declared : {0.0f, 0.9f, -0.5f, -1.0f, -7.0f, -1e30f}) {
    SCOPED_TRACE(declared);
    runtime.output = {1.0f, 2.0f, declared};
    ASSERT_EQ(init(), 0);
    EXPECT_EQ(output(0)->buffer, nullptr);
    EXPECT_EQ(run(), 0);
    EXPECT_EQ(graph_.output_data[0], 1.0f);
    kel_nne_graph_deinit(&graph_);
  }
  runtime.set_outputs({{{0, 5, 5}, {}}, {{1, 1, 1}, {3.0f}}});
  ASSERT_EQ(init(), 0);
  EXPECT_EQ(output(0)->buffer, graph_.output_data);
  EXPECT_EQ(output(1)->buffer, graph_.output_data);
}

TEST_F(Engine, RefusesATrailerThatDoesNotFitAndAnInputWithoutPixels) {
  const char kLayout[] = "Invalid output layout in 4 values.";
  const char kShapes[] = "Output shapes exceed the 2 values of the output.";
  const struct {
    const char* name;
    std::vector<float> output;
    const char* message;
  } cases[] = {
      {"nothing", {}, "Invalid output layout in 0 values."},
      {"NaN outputs", {1, 1, 1, NAN}, kLayout},
      {"endless outputs", {1, 1, 1, INFINITY}, kLayout},
      {"more outputs than shapes", {1, 1, 1, 2}, kLayout},
      {"outputs whose shapes would wrap", {1, 1, 1, 1431655766.0f}, kLayout},
      {"a shape beyond the data", {5, 6, 1, 1, 3, 1}, kShapes},
      {"a second shape beyond the data", {5, 6, 1, 1, 1, 1, 1, 2, 2}, kShapes},
      {"a negative shape", {5, 6, 1, 1, -1, 1}, kShapes},
      {"a NaN shape", {5, 6, 1, NAN, 1, 1}, kShapes},
      {"a product that would wrap", {5, 6, 65536, 65536, 65536, 1}, kShapes},
      {"nothing times endless", {5, 6, 0, INFINITY, 1, 1}, kShapes},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    runtime.output = c.output;
    EXPECT_EQ(init(), -1);
    expect_error(kInit, c.message);
    expect_zero_graph();
  }
  for (const std::vector<int>& shape : {std::vector<int>{}, {4, 3}, {4, 0, 2}, {-4, 3, 2}}) {
    runtime.input_shape = shape;
    EXPECT_EQ(init(), -1);
    expect_error(kInit, "Invalid input shape.");
    expect_zero_graph();
  }
}

// ----- Running

TEST_F(Engine, FeedsAPrivateCopyLess128AndCopiesTheOutputs) {
  for (size_t i = 0; i < image_.size(); ++i) image_[i] = static_cast<unsigned char>(i * 11);
  const std::vector<unsigned char> before = image_;
  ASSERT_EQ(init(), 0);
  const void* address = output(1)->buffer;
  runtime.set_outputs({{{1, 2, 3}, count_up(6, 7.0f)}, {{1, 1, 2}, {-1.0f, -2.0f}}});
  ASSERT_EQ(run(), 0);
  EXPECT_THAT(runtime.last_input_shape, ElementsAre(4, 3, 2));
  EXPECT_EQ(runtime.last_layer, -999);
  ASSERT_EQ(runtime.last_input.size(), image_.size());
  for (size_t i = 0; i < 24; ++i) EXPECT_EQ(runtime.last_input[i], image_[i] - 128) << i;
  EXPECT_EQ(image_, before);
  // For vector loads of the runtime.
  EXPECT_EQ(reinterpret_cast<uintptr_t>(runtime.last_input_data) % 64, 0u);
  EXPECT_EQ(values(0, 6), count_up(6, 7.0f));
  EXPECT_THAT(values(1, 2), ElementsAre(-1.0f, -2.0f));
  EXPECT_EQ(output(1)->buffer, address);
  kel_nne_tensor_set_buffer(input(), nullptr);  // then a shape without data
  EXPECT_EQ(kel_nne_run_graph(&graph_), 0);
  EXPECT_THAT(runtime.last_input_shape, ElementsAre(4, 3, 2));
  EXPECT_EQ(runtime.last_input_data, nullptr);
}

TEST_F(Engine, SaysWhichPartOfARunFailed) {
  EXPECT_EQ(kel_nne_run_graph(nullptr), -1);
  expect_error(kRun, "Unhandled graph.");
  EXPECT_EQ(kel_nne_run_graph(&graph_), -1);
  expect_error(kRun, "Uninitialized graph.");
  ASSERT_EQ(init(), 0);
  printed();
  runtime.fail_next_input = 5;
  EXPECT_EQ(run(), -1);
  expect_error(kRun, "Input image fail: 5");
  runtime.fail_next_run = -6;
  EXPECT_EQ(run(), -1);
  expect_error(kRun, "Inference fail: -6");
  EXPECT_EQ(run(), 0);
  kel_nne_tensor_get_dim(input())[1] = 4;
  EXPECT_EQ(run(), -1);
  expect_error(kRun, "The input's dimensions have been changed.");
}

// Each run reads its own trailer, and may deliver less than was learnt, but never more.
TEST_F(Engine, ARunMayShrinkButNotOverflowTheOutput) {
  ASSERT_EQ(init(), 0);
  ASSERT_EQ(run(), 0);
  runtime.set_outputs({{{1, 1, 1}, {99.0f}}});
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(values(0, 6), (std::vector<float>{99, 2, 3, 4, 5, 6}));
  printed();
  for (const std::vector<float>& grown :
       {std::vector<float>(10, 0.0f), std::vector<float>{}, std::vector<float>{1, 2, 3, 4}}) {
    runtime.output = grown;
    EXPECT_EQ(run(), -1);
    expect_error(kRun, "Invalid output layout in " + std::to_string(grown.size()) + " values.");
  }
  EXPECT_EQ(values(0, 6), (std::vector<float>{99, 2, 3, 4, 5, 6}));
}

// ----- Tensors and de-initialisation

TEST_F(Engine, AccessesReportUnderTheirOwnSignaturesAndShapesAreNeverSet) {
  ASSERT_EQ(init(), 0);
  printed();
  size_t right[] = {1, 3, 4, 2}, swapped[] = {1, 4, 3, 2};
  EXPECT_EQ(kel_nne_tensor_set_dim(input(), right), 0);
  EXPECT_EQ(printed(), "");
  const char get[] = "void* kel_nne_graph_get_",
             set_dim[] = "int kel_nne_tensor_set_dim(kel_nn_tensor_t, size_t*)";
  const char range[] = "Index out of range.", no_graph[] = "Unhandled graph input.";
  const char no_names[] = "get_tensor_with_name is not support in T31.";
  const char no_tensor[] = "Unhandled tensor input.";
  const std::string in = std::string(get) + "input_tensor",
                    out = std::string(get) + "output_tensor";
  const std::string by_index = "(kel_nn_graph_t, size_t)",
                    by_name = "_with_name(kel_nn_graph_t, const char*)";
  const auto check = [&](bool refused, const std::string& signature, const char* message) {
    EXPECT_TRUE(refused);
    expect_error(signature, message);
  };
  check(!kel_nne_graph_get_input_tensor(nullptr, 0), in + by_index, no_graph);
  check(!kel_nne_graph_get_input_tensor(&graph_, 16), in + by_index, range);
  check(!kel_nne_graph_get_output_tensor(nullptr, 0), out + by_index, no_graph);
  check(!kel_nne_graph_get_output_tensor(&graph_, 16), out + by_index, range);
  check(!kel_nne_graph_get_input_tensor_with_name(&graph_, "x"), in + by_name, no_names);
  check(!kel_nne_graph_get_output_tensor_with_name(&graph_, "x"), out + by_name, no_names);
  check(!kel_nne_tensor_get_dim(nullptr), "size_t* kel_nne_tensor_get_dim(kel_nn_tensor_t)",
        no_tensor);
  check(!kel_nne_tensor_get_buffer(nullptr), "float* kel_nne_tensor_get_buffer(kel_nn_tensor_t)",
        no_tensor);
  check(kel_nne_tensor_set_dim(nullptr, right) == -1, set_dim, no_tensor);
  check(kel_nne_tensor_set_dim(input(), swapped) == -1, set_dim,
        "JZ T31 not allowed input dynamic shape, expect: [1, 3, 4, 2]");
  EXPECT_THAT(input()->dim, ElementsAre(1, 3, 4, 2));
  check(kel_nne_tensor_set_buffer(nullptr, right) == -1,
        "int kel_nne_tensor_set_buffer(kel_nn_tensor_t, void*)", no_tensor);
  check(kel_nne_graph_deinit(nullptr) == -1, "int kel_nne_graph_deinit(kel_nn_graph_t)",
        "Uninitialized graph.");
}

// The record is public, and so is what it owns: blocks of the heap.
TEST_F(Engine, TakesARecordThatWasFilledByHand) {
  graph_.output_data = static_cast<float*>(std::malloc(64));
  graph_.model_data = static_cast<uint8_t*>(std::malloc(1));
  graph_.model_path = static_cast<char*>(std::malloc(1));
  graph_.net = jzdl::net_create();
  graph_.outputs[1] = {graph_.output_data + 6, {1, 1, 2, 0}};
  for (const size_t rows : {3, 300, 30}) {  // its dimensions are its owner's, too
    SCOPED_TRACE(rows);
    graph_.inputs[0] = {nullptr, {1, rows, 4, 2}};
    image_.assign(rows * 4 * 2, 1);
    if (rows == 300) {  // it grows
      const kelnn_test::NoMemory none;
      EXPECT_EQ(run(), -1);
    }
    ASSERT_EQ(run(), 0);
    EXPECT_EQ(runtime.last_input.size(), image_.size());
    EXPECT_THAT(values(1, 2), ElementsAre(50.0f, 51.0f));
  }
  EXPECT_EQ(kel_nne_graph_deinit(&graph_), 0);
  expect_zero_graph();
}

}  // namespace
