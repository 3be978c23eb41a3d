// SPDX-License-Identifier: Apache-2.0
// The PC's runtime on real networks. They come from make_test_networks.py; what they compute can be
// worked out by hand. What comes of them through the library, the tests of the command line show.
#include <jzdl.h>

#include <cstdlib>
#include <memory>
#include <opencv2/core/utils/logger.hpp>

#include "model_container.h"
#include "support/command_test.h"
#include "support/stdout_capture.h"

namespace kelnn_host {
namespace {

using namespace kelnn_test;
using namespace ::testing;
using Bytes = std::vector<uint8_t>;
using Floats = std::vector<float>;

constexpr int kOwnLayer = -999;
constexpr int kWidth = 5, kHeight = 2, kChannels = 3;  // of most test networks

std::string network(const std::string& name) {
  return std::string(KEL_NN_TEST_NETWORKS) + "/" + name + ".onnx";
}
Bytes read(const std::string& path) {
  const std::string text = text_of(path);
  return Bytes(text.begin(), text.end());
}
Bytes container_of(const std::string& name) {
  const Bytes onnx = read(network(name));
  return wrap_model(onnx.data(), onnx.size());
}

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

class HostRuntime : public CommandTest {
 protected:
  int load_bytes(const Bytes& model) {
    write("model", std::string(model.begin(), model.end()));
    return net->load_model(path("model").c_str(), 0);
  }
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
};

const Floats kShape = {kHeight, kWidth, kChannels};

TEST_F(HostRuntime, DeliversOutputsInTheOrderOfTheGraphAndTheTrailer) {
  const Floats same = each([](float x) { return x; }), plus = each([](float x) { return x + 1; }),
               twice = each([](float x) { return 2 * x; }),
               relu = each([](float x) { return x > 0 ? x : 0; });
  const std::pair<const char*, Floats> cases[] = {
      {"identity", same + kShape + Floats{1}},
      {"weights_as_inputs", plus + kShape + Floats{1}},
      {"reversed_outputs", twice + plus + kShape + kShape + Floats{2}},
      // Other nodes consume one of them, which none may change in its place.
      {"inner_output", relu + plus + same + same + kShape + kShape + kShape + kShape + Floats{4}},
  };
  for (const auto& [name, expected] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(run_on_test_image(name), expected);
    EXPECT_EQ(input_test_image(), kOk);
    EXPECT_EQ(run(), expected);
    EXPECT_THAT(net->input_shape(), ElementsAre(kWidth, kHeight, kChannels));
  }
  ASSERT_EQ(load("18_outputs"), kOk);  // more than a graph has tensors
  ASSERT_EQ(input({-128, 127}, 2, 1, 1), kOk);
  Floats values, trailer;
  for (int i = 0; i < 18; ++i) {
    values = values + Floats{-128.0f + i, 127.0f + i};
    trailer = trailer + Floats{1, 2, 1};
  }
  EXPECT_EQ(run(), values + trailer + Floats{18});
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
  const auto part = [&](size_t at, size_t count) {
    return Floats(output.begin() + at, output.begin() + at + count);
  };
  for (const size_t at : {0, 30, 63, 93, 123}) EXPECT_EQ(part(at, 30), planes) << at;
  EXPECT_THAT(part(60, 3), Pointwise(FloatNear(1e-4f), means));
  EXPECT_THAT(part(153, 19),
              ElementsAre(1, 1, 30, 1, 6, 5, 1, 1, 3, 1, 1, 30, 6, 1, 5, 1, 6, 5, 6));
}

TEST_F(HostRuntime, RefusesNetworksThatItCannotRunInSilence) {
  const std::pair<int, std::vector<const char*>> cases[] = {
      {kDynamicShape, {"dynamic_height", "no_shape"}},
      {kUnsupportedInput,
       {"rank3_input", "batch_of_2", "byte_input", "huge_input", "two_inputs", "no_input"}},
      {kBadOnnx, {"misspelt_operator", "missing_value", "short_weights", "empty_weights"}},
      {kUnsupportedNetwork, {"unknown_operator", "constant_output"}},
      {kUnsupportedOutput, {"rank5_output"}},
      {kUnreadable, {"there is no such file"}},
  };
  using namespace cv::utils::logging;
  const LogLevel level = setLogLevel(LOG_LEVEL_WARNING);
  ::testing::internal::CaptureStderr();
  StdoutCapture capture;
  for (const auto& [error, names] : cases) {
    for (const char* name : names) {
      SCOPED_TRACE(name);
      EXPECT_EQ(load(name), error);
      EXPECT_TRUE(net->input_shape().empty());
      EXPECT_EQ(input_test_image(), kNoNetwork);
      // The same network object works again at once.
      EXPECT_EQ(run_on_test_image("identity").size(), 34u);
    }
  }
  load_memory(wrap_model(reinterpret_cast<const uint8_t*>("\x08\x06\x12\xff"), 4));
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(capture.take(), "");
  EXPECT_EQ(setLogLevel(level), LOG_LEVEL_WARNING);  // left alone
}

TEST_F(HostRuntime, LoadsFilesAndMemoryOrSaysWhyNot) {
  const Bytes good = read(network("convolutions")), identity = container_of("identity");
  Bytes garbage(5000);
  for (size_t i = 0; i < garbage.size(); ++i) garbage[i] = static_cast<uint8_t>(i * i * 7919 >> 8);
  Bytes newer = identity, damaged = identity;
  newer[8] = 2;
  damaged[1500] ^= 1;
  const auto wrapped = [](const Bytes& onnx) { return wrap_model(onnx.data(), onnx.size()); };
  const Bytes cut(good.begin(), good.begin() + good.size() / 2), zeros(3000, 0);
  constexpr int kUndone = -1;
  const struct {
    const char* name;
    Bytes bytes;
    int from_file, from_memory;
  } cases[] = {
      {"a container", identity, kOk, kOk},
      {"a bare network", good, kOk, kBadMagic},  // it has no length
      {"cut off", {identity.begin(), identity.end() - 1}, kCutOff, kUndone},
      {"of a newer version", newer, kUnsupportedVersion, kUnsupportedVersion},
      {"damaged", damaged, kWrongChecksum, kWrongChecksum},
      {"bare garbage", garbage, kBadOnnx, kBadMagic},
      {"garbage", wrapped(garbage), kBadOnnx, kBadOnnx},
      {"half a bare network", cut, kBadOnnx, kBadMagic},
      {"half a network", wrapped(cut), kBadOnnx, kBadOnnx},
      {"zeros", wrapped(zeros), kBadOnnx, kBadOnnx},
      {"nothing", {}, kBadOnnx, kUndone},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(load_bytes(c.bytes), c.from_file);
    if (c.from_memory == kUndone) continue;
    EXPECT_EQ(load_memory(c.bytes), c.from_memory);
  }
  EXPECT_EQ(net->load_model(path("").c_str(), 0), kUnreadable);
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
  for (const int width : {0, -1, 1 << 30}) {  // no shape
    jzdl::Mat<float> none(width, 1 << 30, 1 << 30);
    EXPECT_TRUE(none.empty());
    EXPECT_EQ(none.total(), 0u);
  }
}

TEST(HostImageSub, SubtractsModulo256) {
  unsigned char bytes[] = {0, 1, 127, 128, 255, 77};
  jzdl::Mat<unsigned char> image(1, 5, 1, bytes), empty, without_data(2, 2, 1, nullptr);
  for (auto* mat : {&image, &empty, &without_data}) jzdl::image_sub(*mat, 128);
  EXPECT_THAT(bytes, ElementsAre(128, 129, 255, 0, 127, 77));
}

}  // namespace
}  // namespace kelnn_host
