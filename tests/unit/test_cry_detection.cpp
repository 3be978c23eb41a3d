// SPDX-License-Identifier: Apache-2.0
// Cry detection over the scripted runtime: the window, the gate and the score.

#include "support/library_test.h"
#include "support/plain_filter_bank.h"
#include "support/sounds.h"

namespace {

using namespace kelnn_test;
using namespace ::testing;

constexpr char kCrySource[] = "src/kel_nn_crydet.cpp";

std::string too_much(unsigned length, unsigned n) {
  return "[Warning]Audio lenth cannot be divisible, audio buffer length is: " +
         std::to_string(length) + ", but input length: " + std::to_string(n);
}

class CryDetection : public TaskTest {
 protected:
  CryDetection() { runtime.play({64, 297, 1}, {{0.5f, 2.0f}}); }
  ~CryDetection() override { kel_nn_crydet_deinit(handle); }
  void init() {
    ASSERT_EQ(kel_nn_crydet_init(handle, 16000, 0.0f), 0);
    EXPECT_THAT(printed(), StartsWith("config.audio_len = 48000 with int16_t\n"));
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

  const std::vector<int16_t> loud_ = sounds(100000)[3].pcm;
  // Softmax of the played scores, in single precision.
  const float cry_ = std::exp(2.0f) / (std::exp(0.5f) + std::exp(2.0f));

 private:
  int runs_before_ = 0;
};

TEST_F(CryDetection, ScoresEveryFullWindowWithTheNetwork) {
  init();
  PlainFilterBank plain(48000);
  for (const int begin : {0, 48000}) {
    EXPECT_EQ(process(part(begin, begin + 30000)), -1.0f);
    EXPECT_EQ(process(part(begin + 30000, begin + 48000)), cry_);
    ASSERT_TRUE(plain.process(&loud_[begin]));
    EXPECT_THAT(runtime.last_input_shape, ElementsAre(64, 297, 1));
    ASSERT_EQ(runtime.last_input.size(), plain.bytes.size());
    for (size_t i = 0; i < plain.bytes.size(); ++i)
      ASSERT_EQ(runtime.last_input[i], plain.bytes[i] - 128);
  }
  EXPECT_EQ(runs(), 2);
  EXPECT_EQ(printed(), "");
}

// The last chunk of a window may be too long, and the rest of it is lost.
TEST_F(CryDetection, ChunksOfAnySizeFillTheWindowAndLoseWhatDoesNotFit) {
  struct Chunk {
    int n;
    float score;
    bool warns;
  };
  const float cry = cry_;
  const std::vector<Chunk> cases[] = {
      {{48000, cry, false}, {1, -1, false}},
      {{48001, cry, true}, {47999, -1, false}, {1, cry, false}},
      {{30000, -1, false}, {30000, cry, true}, {47999, -1, false}, {2, cry, true}},
      {{0, -1, false}, {47999, -1, false}, {0, -1, false}, {1, cry, false}},
  };
  for (const auto& chunks : cases) {
    kel_nn_crydet_deinit(handle);
    init();
    for (const Chunk& chunk : chunks) {
      SCOPED_TRACE(Message() << &chunks - cases << ", " << chunk.n);
      EXPECT_EQ(process(part(0, chunk.n)), chunk.score);
      const auto warning = IsLocatedLine("33", kCrySource, "kel_nn_crydet_process",
                                         too_much(48000, static_cast<unsigned>(chunk.n)));
      EXPECT_THAT(printed(), Conditional(chunk.warns, warning, IsEmpty()));
    }
  }
  float score = 0.0f;
  // Twice as many bytes are 0 in 32 bits; only the first 47998 samples are read.
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

TEST_F(CryDetection, ARefusedSampleRateLeavesTheWindowAndAFailedRunLosesIt) {
  init();
  process(part(0, 47999));
  for (const uint32_t rate : {8000u, 44100u, 4294967295u}) {
    EXPECT_EQ(kel_nn_crydet_init(handle, rate, 1e9f), -1);
    expect_error(kCrySource, "kel_nn_crydet_init",
                 "Do not support sample rate: " + std::to_string(static_cast<int>(rate)) + ".");
  }
  EXPECT_EQ(process(part(47999, 48000)), cry_);
  runtime.fail_next_run = 7;
  EXPECT_EQ(process(part(0, 48000)), 999.0f);
  EXPECT_EQ(process(part(0, 48000)), cry_);
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

class CryDetectionAtFirst : public CryDetection {};  // a suite, and so a process, of its own

TEST_F(CryDetectionAtFirst, FailsWithoutInitOrModelAndBeginsAnewAfterDeinit) {
  const char kNull[] = "[Error]kel_nn_mfcc_process g_mfcc or input buf is NULL.";
  const char kFailed[] = "[Error]kel_nn_mfcc_process is err!";
  EXPECT_EQ(process(part(0, 10)), 999.0f);
  EXPECT_THAT(printed_messages(), ElementsAre(too_much(0, 10), kNull, kFailed));
  EXPECT_EQ(process({}), 999.0f);
  EXPECT_THAT(printed_messages(), ElementsAre(kNull, kFailed));
  {
    const NoMemory none;
    EXPECT_EQ(kel_nn_crydet_init(handle, 16000, 0.0f), -1);
  }
  EXPECT_THAT(printed_messages(), Contains("[Error]kel_nn_mfcc_create is err!"));
  runtime.fail_next_load = 3;
  EXPECT_EQ(kel_nn_crydet_init(handle, 16000, 0.0f), -1);
  EXPECT_THAT(printed(), HasSubstr("[Error]load model error[3]"));
  EXPECT_EQ(process(part(0, 100)), -1.0f);  // the window is there, the network is not
  EXPECT_EQ(process(part(0, 47900)), 999.0f);
  kel_nn_crydet_deinit(handle);
  printed();
  init();
  process(part(0, 100));
  EXPECT_EQ(kel_nn_crydet_deinit(handle), 0);
  init();
  EXPECT_EQ(process(part(0, 47999)), -1.0f);
}

}  // namespace
