// Cry detection over the scripted runtime: the window, the gate and the score.
#include <cmath>
#include <vector>

#include "kel_nn_handle.h"
#include "kel_nn_model_files.h"
#include "support/library_test.h"
#include "support/plain_filter_bank.h"
#include "support/sounds.h"

namespace {

using kelnn_test::IsLocatedLine;
using kelnn_test::TaskTest;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr char kPath[] = "src/kel_nn_crydet.cpp";
constexpr char kTooMuch[] =
    "[Warning]Audio lenth cannot be divisible, audio buffer length is: %u, but input length: %u";

std::string too_much(unsigned length, unsigned n) {
  char text[200];
  std::snprintf(text, sizeof(text), kTooMuch, length, n);
  return text;
}

class CryDetection : public TaskTest {
 protected:
  CryDetection() {
    runtime.input_shape = {64, 297, 1};
    runtime.set_outputs({{{1, 1, 2}, {0.5f, 2.0f}}});
  }
  ~CryDetection() override { kel_nn_crydet_deinit(handle); }
  void init() {
    ASSERT_EQ(kel_nn_crydet_init(handle, 16000, 0.0f), 0);
    printed();
    runs_before_ = runtime.runs;
  }
  // The score, or 999 when the call fails.
  float process(const std::vector<int16_t>& pcm) {
    float score = 123.0f;
    const int16_t* samples = pcm.empty() ? loud_.data() : pcm.data();  // never null
    const int result =
        kel_nn_crydet_process(handle, samples, static_cast<uint32_t>(pcm.size()), &score);
    if (result == 0) return score;
    EXPECT_EQ(result, -1);
    EXPECT_EQ(score, 123.0f);
    return 999.0f;
  }
  std::vector<int16_t> part(int begin, int end) const {
    return {loud_.begin() + begin, loud_.begin() + end};
  }
  int runs() const { return runtime.runs - runs_before_; }

  const std::vector<int16_t> loud_ = kelnn_test::sounds(100000)[3].pcm;
  // Softmax of the played scores, in single precision.
  const float cry_ = std::exp(2.0f) / (std::exp(0.5f) + std::exp(2.0f));

 private:
  int runs_before_ = 0;
};

TEST_F(CryDetection, InitPrintsTheWindowAndLoadsItsScrambledModel) {
  ASSERT_EQ(kel_nn_crydet_init(handle, 16000, 0.0f), 0);
  EXPECT_THAT(printed(), testing::StartsWith("config.audio_len = 48000 with int16_t\n\033[0;32m"));
  EXPECT_EQ(handle->graph_crydet.model_path, models.with_slash() + kelnn::kCryDetectionModel);
  EXPECT_EQ(runtime.loaded_from_memory, 1);
}

TEST_F(CryDetection, ScoresEveryFullWindowWithTheNetwork) {
  init();
  kelnn_test::PlainFilterBank plain(48000);
  for (int second = 0; second < 6; ++second) {
    const float score = process(part(16000 * second, 16000 * (second + 1)));
    EXPECT_EQ(score, second % 3 == 2 ? cry_ : -1.0f) << second;
    if (second % 3 != 2) continue;
    ASSERT_TRUE(plain.process(&loud_[16000 * (second - 2)]));
    EXPECT_THAT(runtime.last_input_shape, ElementsAre(64, 297, 1));
    ASSERT_EQ(runtime.last_input.size(), plain.bytes.size());
    for (size_t i = 0; i < plain.bytes.size(); ++i) {
      ASSERT_EQ(runtime.last_input[i], plain.bytes[i] - 128) << i;
    }
  }
  EXPECT_EQ(runs(), 2);
  EXPECT_EQ(printed(), "");
}

TEST_F(CryDetection, ChunksOfAnySizeFillTheWindowAndLoseWhatDoesNotFit) {
  struct Chunk {
    int n;
    float score;
    bool warns;
  };
  struct Case {
    const char* name;
    std::vector<Chunk> chunks;
  };
  const Case cases[] = {
      {"one window", {{48000, cry_, false}, {1, -1, false}}},
      {"one sample too many", {{48001, cry_, true}, {47999, -1, false}, {1, cry_, false}}},
      {"the next window starts empty",
       {{30000, -1, false}, {30000, cry_, true}, {47999, -1, false}, {2, cry_, true}}},
      {"nothing", {{0, -1, false}, {47999, -1, false}, {0, -1, false}, {1, cry_, false}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    kel_nn_crydet_deinit(handle);
    init();
    for (const Chunk& chunk : c.chunks) {
      SCOPED_TRACE(chunk.n);
      EXPECT_EQ(process(part(0, chunk.n)), chunk.score);
      const std::string text = printed();
      if (!chunk.warns) {
        EXPECT_EQ(text, "");
      } else {
        EXPECT_THAT(text, IsLocatedLine("33", kPath, "kel_nn_crydet_process",
                                        too_much(48000, static_cast<unsigned>(chunk.n))));
      }
    }
  }
}

TEST_F(CryDetection, TheWindowHoldsTheFirstSamplesOfAChunkThatIsTooLong) {
  init();
  kelnn_test::PlainFilterBank plain(48000);
  process(part(0, 30000));
  EXPECT_EQ(process(part(30000, 60000)), cry_);
  ASSERT_TRUE(plain.process(loud_.data()));
  EXPECT_EQ(runtime.last_input[12345], plain.bytes[12345] - 128);
  EXPECT_EQ(runtime.last_input[19007], plain.bytes[19007] - 128);
}

TEST_F(CryDetection, ACountThatWouldWrapIsTooLongLikeAnyOther) {
  init();
  float score = 0.0f;
  // Twice as many bytes are 0 in 32 bits; only the first 48000 samples are read.
  EXPECT_EQ(kel_nn_crydet_process(handle, loud_.data(), 0x80000000u, &score), 0);
  EXPECT_EQ(score, cry_);
  EXPECT_THAT(printed(), HasSubstr(too_much(48000, 0x80000000u)));
}

TEST_F(CryDetection, AQuietWindowScoresWithoutTheNetwork) {
  init();
  EXPECT_EQ(process(std::vector<int16_t>(48000)), 1e-5f);
  EXPECT_EQ(process(std::vector<int16_t>(48000, 17)), 1e-5f);  // 4800 * 17 = 81600
  EXPECT_EQ(runs(), 0);
  EXPECT_EQ(process(std::vector<int16_t>(48000, 18)), cry_);  // 86400
  EXPECT_EQ(printed(), "");
}

TEST_F(CryDetection, TheCallersThresholdHolds) {
  ASSERT_EQ(kel_nn_crydet_init(handle, 16000, 200000.0f), 0);
  EXPECT_EQ(process(std::vector<int16_t>(48000, 41)), 1e-5f);  // 196800
  EXPECT_EQ(process(std::vector<int16_t>(48000, 42)), cry_);   // 201600
}

TEST_F(CryDetection, RefusedArgumentsAreReported) {
  float score = 0.0f;
  const auto check = [&](int result, const char* function, const char* text) {
    SCOPED_TRACE(text);
    EXPECT_EQ(result, -1);
    EXPECT_THAT(printed(), IsLocatedLine("31", kPath, function, std::string("[Error]") + text));
  };
  check(kel_nn_crydet_init(nullptr, 8000, 0), "kel_nn_crydet_init", "Uninitialized handle.");
  check(kel_nn_crydet_init(handle, 8000, 0), "kel_nn_crydet_init",
        "Do not support sample rate: 8000.");
  check(kel_nn_crydet_init(handle, 4294967295u, 0), "kel_nn_crydet_init",
        "Do not support sample rate: -1.");
  EXPECT_EQ(runtime.networks_alive, 0);
  check(kel_nn_crydet_deinit(nullptr), "kel_nn_crydet_deinit", "Uninitialized handle.");
  check(kel_nn_crydet_process(nullptr, loud_.data(), 1, &score), "kel_nn_crydet_process",
        "Invalid arguments.");
  check(kel_nn_crydet_process(handle, nullptr, 0, &score), "kel_nn_crydet_process",
        "Invalid arguments.");
  check(kel_nn_crydet_process(handle, loud_.data(), 1, nullptr), "kel_nn_crydet_process",
        "Invalid arguments.");
}

TEST_F(CryDetection, ARefusedSampleRateLeavesTheTaskAsItWas) {
  init();
  process(part(0, 47999));
  EXPECT_EQ(kel_nn_crydet_init(handle, 44100, 1e9f), -1);
  EXPECT_EQ(process(part(47999, 48000)), cry_);
}

TEST_F(CryDetection, ASecondInitIsRefusedAndEmptiesTheWindow) {
  init();
  process(part(0, 47999));
  EXPECT_EQ(kel_nn_crydet_init(handle, 16000, 200000.0f), -1);
  EXPECT_THAT(printed(), HasSubstr("[Error]Graph has already been initialized."));
  EXPECT_EQ(process(part(0, 47999)), -1.0f);
  EXPECT_EQ(process(part(0, 1)), cry_);
  EXPECT_EQ(process(std::vector<int16_t>(48000, 41)), 1e-5f);  // the new threshold
}

TEST_F(CryDetection, WithoutInitItFails) {
  EXPECT_EQ(process(part(0, 10)), 999.0f);
  EXPECT_THAT(
      printed_messages(),
      ElementsAre(too_much(0, 10), "[Error]kel_nn_mfcc_process g_mfcc or input buf is NULL.",
                  "[Error]kel_nn_mfcc_process is err!"));
  EXPECT_EQ(process({}), 999.0f);
  EXPECT_THAT(printed_messages(),
              ElementsAre("[Error]kel_nn_mfcc_process g_mfcc or input buf is NULL.",
                          "[Error]kel_nn_mfcc_process is err!"));
}

TEST_F(CryDetection, DeinitReleasesEverythingAndMayBeRepeated) {
  EXPECT_EQ(kel_nn_crydet_deinit(handle), 0);
  EXPECT_EQ(kel_nn_crydet_deinit(handle), 0);
  EXPECT_EQ(printed(), "");
  init();
  process(part(0, 100));
  EXPECT_EQ(kel_nn_crydet_deinit(handle), 0);
  EXPECT_EQ(runtime.networks_alive, 0);
  init();
  EXPECT_EQ(process(part(0, 47999)), -1.0f);  // the window is empty again
}

TEST_F(CryDetection, AModelThatDoesNotLoadFails) {
  runtime.fail_next_load = 3;
  EXPECT_EQ(kel_nn_crydet_init(handle, 16000, 0.0f), -1);
  EXPECT_THAT(printed(), HasSubstr("[Error]load model error[3]"));
  // The window is there, the network is not.
  EXPECT_EQ(process(part(0, 100)), -1.0f);
  EXPECT_EQ(process(part(0, 47900)), 999.0f);
}

TEST_F(CryDetection, AFailedRunLosesItsWindow) {
  init();
  runtime.fail_next_run = 7;
  EXPECT_EQ(process(part(0, 48000)), 999.0f);
  EXPECT_THAT(printed_messages(), ElementsAre("[Error]Inference fail: 7"));
  EXPECT_EQ(process(part(0, 48000)), cry_);
}

TEST_F(CryDetection, ANetworkOfAnotherShapeFails) {
  runtime.input_shape = {64, 298, 1};
  init();
  EXPECT_EQ(process(part(0, 48000)), 999.0f);
  EXPECT_THAT(
      printed_messages(),
      ElementsAre("[Error]JZ T31 not allowed input dynamic shape, expect: [1, 298, 64, 1]"));
  kel_nn_crydet_deinit(handle);
  runtime.input_shape = {64, 297, 1};
  runtime.set_outputs({{{1, 1, 1}, {1.0f}}});
  init();
  EXPECT_EQ(process(part(0, 48000)), 999.0f);
  EXPECT_THAT(printed_messages(), ElementsAre("[Error]Output 0 has fewer than 2 values."));
}

}  // namespace
