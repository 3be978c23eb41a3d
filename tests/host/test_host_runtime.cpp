// The PC's runtime on real networks, and the engine on top of it. The networks come from
// make_test_networks.py; what they compute can be worked out by hand.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <jzdl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <opencv2/core/utils/logger.hpp>

#include "kel_nn.h"
#include "kel_nn_model_files.h"
#include "model_container.h"
#include "support/stdout_capture.h"

namespace {

using namespace kelnn_host;
using kelnn_test::StdoutCapture;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using Bytes = std::vector<uint8_t>;
using Floats = std::vector<float>;

constexpr int kOwnLayer = -999;
constexpr int kWidth = 5, kHeight = 2, kChannels = 3;  // of most test networks

std::string network(const std::string& name) {
  return std::string(KEL_NN_TEST_NETWORKS) + "/" + name + ".onnx";
}
Bytes read(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(file), {});
}
Bytes container_of(const std::string& name) {
  const Bytes onnx = read(network(name));
  return wrap_model(onnx.data(), onnx.size());
}

class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    if (!mkdtemp(&path_[0])) std::abort();
  }
  ~TemporaryDirectory() { std::filesystem::remove_all(path_); }
  std::string with_slash() const { return path_ + "/"; }
  std::string write(const std::string& name, const Bytes& bytes) const {
    const std::string path = with_slash() + name;
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    return path;
  }

 private:
  std::string path_ = std::filesystem::temp_directory_path().string() + "/kelnn_host_XXXXXX";
};

// The image of the tests: both ends of the range, then values that tell rows, columns and channels
// apart.
std::vector<signed char> test_image() {
  std::vector<signed char> image;
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      for (int c = 0; c < kChannels; ++c) {
        image.push_back(static_cast<signed char>(50 * (c - 1) + 10 * x + y));
      }
    }
  }
  image.front() = -128;
  image.back() = 127;
  return image;
}
template <typename Operation>
Floats each(Operation operation) {
  Floats values;
  for (signed char x : test_image()) values.push_back(operation(static_cast<float>(x)));
  return values;
}
Floats operator+(Floats a, const Floats& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

class HostRuntime : public ::testing::Test {
 protected:
  int load(const std::string& name) { return net->load_model(network(name).c_str(), 0); }
  int load_memory(const Bytes& image) {
    return net->load_model(reinterpret_cast<const char*>(image.data()), 1);
  }
  int input(std::vector<signed char> image, int width, int height, int channels,
            int layer = kOwnLayer) {
    jzdl::Mat<signed char> mat(width, height, channels, image.data());
    return net->input(mat, layer);
  }
  int input_test_image() { return input(test_image(), kWidth, kHeight, kChannels); }
  Floats run() {
    jzdl::Mat<float> output;
    EXPECT_EQ(net->run(output, kOwnLayer), kOk);
    return Floats(output.data, output.data + output.total());
  }
  Floats run_on_test_image(const std::string& name) {
    EXPECT_EQ(load(name), kOk);
    EXPECT_EQ(input_test_image(), kOk);
    return run();
  }

  struct Destroy {
    void operator()(jzdl::BaseNet* net) const { jzdl::net_destory(net); }
  };
  std::unique_ptr<jzdl::BaseNet, Destroy> net{jzdl::net_create()};
  TemporaryDirectory directory;
};

const Floats kShape = {kHeight, kWidth, kChannels};

TEST_F(HostRuntime, DeliversChannelsInnermostAndTheTrailer) {
  EXPECT_EQ(run_on_test_image("identity"), each([](float x) { return x; }) + kShape + Floats{1});
  EXPECT_THAT(net->input_shape(), ElementsAre(kWidth, kHeight, kChannels));
  EXPECT_EQ(run_on_test_image("weights_as_inputs"),
            each([](float x) { return x + 1; }) + kShape + Floats{1});
}

TEST_F(HostRuntime, DeliversOutputsInTheOrderOfTheGraph) {
  EXPECT_EQ(run_on_test_image("reversed_outputs"), each([](float x) { return 2 * x; }) +
                                                       each([](float x) { return x + 1; }) +
                                                       kShape + kShape + Floats{2});
}

TEST_F(HostRuntime, DeliversAnOutputThatOtherNodesConsume) {
  const Floats expected = each([](float x) { return x > 0 ? x : 0; }) +
                          each([](float x) { return x + 1; }) + each([](float x) { return x; }) +
                          each([](float x) { return x; }) + kShape + kShape + kShape + kShape +
                          Floats{4};
  EXPECT_EQ(run_on_test_image("inner_output"), expected);
  EXPECT_EQ(input_test_image(), kOk);
  EXPECT_EQ(run(), expected);  // nothing was changed in its place
}

TEST_F(HostRuntime, GivesEveryRankItsShape) {
  // The graph's own order of [1, 3, 2, 5]: planes.
  const std::vector<signed char> image = test_image();
  Floats planes, means;
  for (int c = 0; c < kChannels; ++c) {
    for (int i = 0; i < kHeight * kWidth; ++i) planes.push_back(image[i * kChannels + c]);
  }
  // Channel c has 50 * (c - 1) + 20.5 on average; channel 0 lost 128 - 50, channel 2 won 127 - 91.
  means = {-29.5f - 7.8f, 20.5f, 70.5f + 3.6f};
  const Floats output = run_on_test_image("ranks");
  ASSERT_EQ(output.size(), 5 * 30u + 3 + 6 * 3 + 1);
  size_t at = 0;
  const auto next = [&](size_t count) {
    at += count;
    return Floats(output.begin() + at - count, output.begin() + at);
  };
  EXPECT_EQ(next(30), planes) << "rank2";
  EXPECT_EQ(next(30), planes) << "rank3";
  EXPECT_THAT(next(3), ::testing::Pointwise(::testing::FloatNear(1e-4f), means));
  EXPECT_EQ(next(30), planes) << "rank1";
  EXPECT_EQ(next(30), planes) << "wide_rank3";
  EXPECT_EQ(next(30), planes) << "rows_rank2";
  EXPECT_THAT(next(19), ElementsAre(1, 1, 30, 1, 6, 5, 1, 1, 3, 1, 1, 30, 6, 1, 5, 1, 6, 5, 6));
}

TEST_F(HostRuntime, DeliversMoreOutputsThanAGraphHasTensors) {
  ASSERT_EQ(load("18_outputs"), kOk);
  ASSERT_EQ(input({-128, 127}, 2, 1, 1), kOk);
  Floats values, trailer;
  for (int i = 0; i < 18; ++i) {
    values = values + Floats{-128.0f + i, 127.0f + i};
    trailer = trailer + Floats{1, 2, 1};
  }
  EXPECT_EQ(run(), values + trailer + Floats{18});
}

TEST_F(HostRuntime, RefusesNetworksThatItCannotRun) {
  const struct {
    const char* name;
    int error;
  } cases[] = {
      {"dynamic_height", kDynamicShape},
      {"no_shape", kDynamicShape},
      {"rank3_input", kUnsupportedInput},
      {"batch_of_2", kUnsupportedInput},
      {"byte_input", kUnsupportedInput},
      {"huge_input", kUnsupportedInput},
      {"two_inputs", kUnsupportedInput},
      {"no_input", kUnsupportedInput},
      {"misspelt_operator", kBadOnnx},
      {"missing_value", kBadOnnx},
      {"short_weights", kBadOnnx},
      {"empty_weights", kBadOnnx},
      {"unknown_operator", kUnsupportedNetwork},
      {"constant_output", kUnsupportedNetwork},
      {"rank5_output", kUnsupportedOutput},
      {"there is no such file", kUnreadable},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(load(c.name), c.error);
    EXPECT_TRUE(net->input_shape().empty());
    EXPECT_EQ(input_test_image(), kNoNetwork);
    // The same network object works again at once.
    EXPECT_EQ(run_on_test_image("identity").size(), 34u);
  }
}

TEST_F(HostRuntime, RefusesBytesThatAreNoNetwork) {
  const Bytes good = read(network("convolutions"));
  Bytes garbage(5000);
  for (size_t i = 0; i < garbage.size(); ++i) garbage[i] = static_cast<uint8_t>(i * i * 7919 >> 8);
  Bytes cut(good.begin(), good.begin() + good.size() / 2);
  const struct {
    const char* name;
    Bytes onnx;
    int error;
  } cases[] = {
      {"garbage", garbage, kBadOnnx},
      {"cut off", cut, kBadOnnx},
      {"zeros", Bytes(3000, 0), kBadOnnx},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(net->load_model(directory.write("bare", c.onnx).c_str(), 0), c.error);
    const Bytes container = wrap_model(c.onnx.data(), c.onnx.size());
    EXPECT_EQ(load_memory(container), c.error);
    EXPECT_EQ(net->load_model(directory.write("wrapped", container).c_str(), 0), c.error);
  }
  EXPECT_EQ(net->load_model(directory.write("empty", {}).c_str(), 0), kBadOnnx);
  EXPECT_EQ(net->load_model(directory.with_slash().c_str(), 0), kUnreadable);
  EXPECT_EQ(net->load_model(nullptr, 0), kUnreadable);
  EXPECT_EQ(net->load_model(nullptr, 1), kUnreadable);
}

// A container vouches for its bytes, not for their sense: OpenCV must not meet a model that
// contradicts itself. Any code will do, as long as it is a code.
TEST_F(HostRuntime, SurvivesAnOnnxModelWithWrongBytes) {
  const Bytes good = read(network("inner_output"));
  int refused = 0;
  for (size_t i = 0; i < good.size(); ++i) {
    Bytes bad = good;
    bad[i] ^= 0x41;
    if (load_memory(wrap_model(bad.data(), bad.size())) != kOk) ++refused;
  }
  EXPECT_GT(refused, 0);
  EXPECT_EQ(run_on_test_image("identity").size(), 34u);
}

TEST_F(HostRuntime, LoadsContainersFromFilesAndMemory) {
  Bytes container = container_of("identity");
  const Floats expected = run_on_test_image("identity");
  EXPECT_EQ(net->load_model(directory.write("container", container).c_str(), 0), kOk);
  EXPECT_EQ(input_test_image(), kOk);
  EXPECT_EQ(run(), expected);
  EXPECT_EQ(load_memory(container), kOk);
  EXPECT_EQ(input_test_image(), kOk);
  EXPECT_EQ(run(), expected);

  EXPECT_EQ(load_memory(read(network("convolutions"))), kBadMagic);  // bare ONNX has no length
  Bytes short_one(container.begin(), container.end() - 1);
  EXPECT_EQ(net->load_model(directory.write("short", short_one).c_str(), 0), kCutOff);
  container[8] = 2;
  EXPECT_EQ(load_memory(container), kUnsupportedVersion);
  container[8] = 1;
  std::fill(container.begin() + 100, container.end(), uint8_t{0});  // what a lost tail looks like
  EXPECT_EQ(load_memory(container), kWrongChecksum);
}

TEST_F(HostRuntime, ChecksTheOrderAndTheArgumentsOfCalls) {
  jzdl::Mat<float> output;
  EXPECT_EQ(net->run(output, kOwnLayer), kNoNetwork);
  EXPECT_EQ(input_test_image(), kNoNetwork);
  ASSERT_EQ(load("identity"), kOk);
  EXPECT_EQ(net->run(output, kOwnLayer), kNoInput);
  EXPECT_EQ(input(test_image(), kHeight, kWidth, kChannels), kWrongImageShape);
  EXPECT_EQ(input(test_image(), kWidth, kHeight, 1), kWrongImageShape);
  EXPECT_EQ(input(test_image(), kWidth, kHeight, kChannels, 0), kUnknownLayer);
  jzdl::Mat<signed char> without_data(kWidth, kHeight, kChannels, nullptr);
  EXPECT_EQ(input_test_image(), kOk);
  EXPECT_EQ(net->input(without_data, kOwnLayer), kNoImageData);
  EXPECT_EQ(net->run(output, kOwnLayer), kNoInput);  // not the image before it
  EXPECT_EQ(input_test_image(), kOk);
  EXPECT_EQ(net->run(output, 0), kUnknownLayer);
  EXPECT_EQ(net->run(output, kOwnLayer), kOk);
  EXPECT_FALSE(output.empty());
  EXPECT_EQ(load("dynamic_height"), kDynamicShape);
  EXPECT_EQ(net->run(output, kOwnLayer), kNoNetwork);
  EXPECT_TRUE(output.empty());
}

TEST_F(HostRuntime, UsesTheOutputsMemoryAgainUnlessItIsHeld) {
  ASSERT_EQ(load("identity"), kOk);
  ASSERT_EQ(input_test_image(), kOk);
  jzdl::Mat<float> output;
  ASSERT_EQ(net->run(output, kOwnLayer), kOk);
  const float* memory = output.data;
  ASSERT_EQ(net->run(output, kOwnLayer), kOk);
  EXPECT_EQ(output.data, memory);

  const jzdl::Mat<float> held = output;
  ASSERT_EQ(input(std::vector<signed char>(30, 1), kWidth, kHeight, kChannels), kOk);
  ASSERT_EQ(net->run(output, kOwnLayer), kOk);
  EXPECT_NE(output.data, held.data);
  EXPECT_EQ(held.data[0], -128);
  EXPECT_EQ(output.data[0], 1);
  net.reset();
  EXPECT_EQ(output.data[0], 1);  // outlives the network
}

TEST_F(HostRuntime, GivesTheSameBitsForTheSameImage) {
  std::vector<signed char> image(64 * 48 * 3);
  for (size_t i = 0; i < image.size(); ++i) image[i] = static_cast<signed char>(i * i * 31 >> 4);
  ASSERT_EQ(load("convolutions"), kOk);
  ASSERT_EQ(input(image, 64, 48, 3), kOk);
  const Floats first = run();
  EXPECT_NE(first[1000], first[2000]);  // there is something to get wrong
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(input(std::vector<signed char>(image.size(), 5), 64, 48, 3), kOk);
    run();
    ASSERT_EQ(input(image, 64, 48, 3), kOk);
    ASSERT_EQ(run(), first);
  }
  ASSERT_EQ(load_memory(container_of("convolutions")), kOk);
  ASSERT_EQ(input(image, 64, 48, 3), kOk);
  EXPECT_EQ(run(), first);
}

TEST_F(HostRuntime, RefusesInSilenceAndLeavesTheLogLevelAlone) {
  using namespace cv::utils::logging;
  const LogLevel level = setLogLevel(LOG_LEVEL_WARNING);
  ::testing::internal::CaptureStderr();
  StdoutCapture capture;
  for (const char* name : {"unknown_operator", "constant_output", "two_inputs"}) load(name);
  load_memory(wrap_model(reinterpret_cast<const uint8_t*>("\x08\x06\x12\xff"), 4));
  EXPECT_EQ(load("identity"), kOk);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(capture.take(), "");
  EXPECT_EQ(setLogLevel(level), LOG_LEVEL_WARNING);
}

TEST(HostMat, CopiesShareTheElementsAndTheLastOneFreesThem) {
  jzdl::Mat<float> first(2, 3, 1);
  first.data[5] = 7.0f;
  jzdl::Mat<float> second(first), third;
  third = second;
  third = *&third;  // to itself: nothing is lost
  first.release();
  EXPECT_EQ(first.data, nullptr);
  second.create(2, 3, 1);  // still shared, so these are new elements
  EXPECT_NE(second.data, third.data);
  EXPECT_EQ(third.data[5], 7.0f);
  const float* own = third.data;
  third.create(2, 3, 1);
  EXPECT_EQ(third.data, own);
}

TEST(HostMat, IsEmptyWhenItsShapeIsNone) {
  for (const std::vector<int>& shape :
       {std::vector<int>{0, 3, 1}, {3, -1, 1}, {1 << 30, 1 << 30, 1 << 30}}) {
    jzdl::Mat<float> mat(shape[0], shape[1], shape[2]);
    EXPECT_TRUE(mat.empty());
    EXPECT_EQ(mat.total(), 0u);
  }
}

TEST(HostImageSub, SubtractsModulo256) {
  unsigned char bytes[] = {0, 1, 127, 128, 255, 77};
  jzdl::Mat<unsigned char> image(1, 5, 1, bytes);
  jzdl::image_sub(image, 128);
  EXPECT_THAT(bytes, ElementsAre(128, 129, 255, 0, 127, 77));
  jzdl::Mat<unsigned char> empty, without_data(2, 2, 1, nullptr);
  jzdl::image_sub(empty, 1);
  jzdl::image_sub(without_data, 1);
}

// ----- The whole way: a scrambled file, the engine, the network ----------------------------------

class EngineOnHostRuntime : public HostRuntime {
 protected:
  EngineOnHostRuntime() { kel_nn_set_model_root_dir(directory.with_slash().c_str()); }
  ~EngineOnHostRuntime() override { kel_nne_graph_deinit(&graph); }

  // 1000 bytes of anything, then the model with its first 1000 bytes scrambled.
  void write_scrambled(const std::string& name, const Bytes& model) {
    Bytes file(1000 + model.size(), 0xa5);
    std::copy(model.begin(), model.end(), file.begin() + 1000);
    uint8_t* scrambled = nullptr;
    ASSERT_EQ(
        kel_nn_model_xor_decode(file.data(), &scrambled, file.size(), 1000, kelnn::kScrambleKey),
        model.size());
    std::copy(scrambled, scrambled + model.size(), file.begin() + 1000);
    std::free(scrambled);
    directory.write(name, file);
  }
  int run_on(std::vector<uint8_t> image) {
    auto input = static_cast<kel_nn_tensor_t>(kel_nne_graph_get_input_tensor(&graph, 0));
    kel_nne_tensor_set_buffer(input, image.data());
    return kel_nne_run_graph(&graph);
  }
  kel_nn_tensor_t output(size_t index) {
    return static_cast<kel_nn_tensor_t>(kel_nne_graph_get_output_tensor(&graph, index));
  }
  Floats values(size_t index) {
    const kel_nn_tensor_t tensor = output(index);
    const float* data = kel_nne_tensor_get_buffer(tensor);
    return Floats(data, data + tensor->dim[0] * tensor->dim[1] * tensor->dim[2]);
  }

  kel_nn_graph graph = {};
  StdoutCapture capture;
};

TEST_F(EngineOnHostRuntime, RunsAScrambledModel) {
  write_scrambled("m.bin", container_of("reversed_outputs"));
  ASSERT_EQ(kel_nne_graph_init(&graph, "m.bin", 1), 0) << capture.take();
  size_t dim[4] = {1, kHeight, kWidth, kChannels};
  EXPECT_EQ(kel_nne_tensor_set_dim(&graph.inputs[0], dim), 0);
  EXPECT_THAT(output(0)->dim, ElementsAre(kHeight, kWidth, kChannels, 0));
  EXPECT_THAT(output(1)->dim, ElementsAre(kHeight, kWidth, kChannels, 0));
  EXPECT_EQ(output(2)->buffer, nullptr);

  std::vector<uint8_t> image;  // what becomes the test image by subtracting 128
  for (signed char x : test_image()) image.push_back(static_cast<uint8_t>(x + 128));
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(run_on(image), 0);
    EXPECT_EQ(values(0), each([](float x) { return 2 * x; }));
    EXPECT_EQ(values(1), each([](float x) { return x + 1; }));
    ASSERT_EQ(run_on(Bytes(30, 128)), 0);
    EXPECT_EQ(values(0), Floats(30, 0.0f));
  }
}

TEST_F(EngineOnHostRuntime, RunsABareModel) {
  directory.write("m.onnx", read(network("mean_112x112x1")));
  ASSERT_EQ(kel_nne_graph_init(&graph, "m.onnx", 0), 0) << capture.take();
  ASSERT_EQ(run_on(Bytes(112 * 112, 130)), 0);
  EXPECT_EQ(values(0), Floats{2});
}

TEST_F(EngineOnHostRuntime, KeepsTheFirst16Outputs) {
  write_scrambled("m.bin", container_of("18_outputs"));
  EXPECT_EQ(kel_nne_graph_init(&graph, "m.bin", 1), 0);
  EXPECT_THAT(capture.take(), HasSubstr("out_num larger than KEL_NN_MAX_TENSOR_CNT (18 vs 16)."));
  ASSERT_EQ(run_on({128, 129}), 0);
  EXPECT_EQ(values(15), (Floats{15, 16}));
}

TEST_F(EngineOnHostRuntime, ReportsWhyAModelDoesNotLoad) {
  Bytes damaged = container_of("identity");
  damaged[1500] ^= 1;
  Bytes foreign = container_of("identity");
  foreign[0] ^= 1;
  const struct {
    const char* name;
    Bytes model;
    const char* printed;
  } cases[] = {
      {"damaged", damaged, "load model error[5]: Can not load model"},
      {"not a container", foreign, "load model error[2]: Can not load model"},
      {"dynamic", container_of("dynamic_height"), "load model error[8]: Can not load model"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    write_scrambled("m.bin", c.model);
    EXPECT_EQ(kel_nne_graph_init(&graph, "m.bin", 1), -1);
    EXPECT_THAT(capture.take(), HasSubstr(c.printed));
    EXPECT_EQ(kel_nne_graph_deinit(&graph), 0);
  }
  write_scrambled("m.bin", container_of("identity"));
  EXPECT_EQ(kel_nne_graph_init(&graph, "m.bin", 1), 0);
  EXPECT_EQ(kel_nne_run_graph(&graph), -1);  // no buffer set
  EXPECT_THAT(capture.take(), HasSubstr("Input image fail: 23"));
}

}  // namespace
