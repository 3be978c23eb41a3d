// SPDX-License-Identifier: Apache-2.0
// The audio context: its defaults and its life, the loudness gate, and whole windows bit for bit
// beside the plain loops.

#include "kel_nn_window_loops.h"
#include "support/library_test.h"
#include "support/plain_filter_bank.h"
#include "support/sounds.h"

namespace {

using namespace kelnn_test;
using namespace ::testing;

constexpr char kMfccSource[] = "src/kel_nn_mfcc.cpp";

class Mfcc : public LibraryTest {
 protected:
  ~Mfcc() override { kel_nn_mfcc_destory(&context_); }
  void create(uint32_t rate = 16000, float threshold = 0.0f) {
    kel_nn_mfcc_destory(&context_);
    ASSERT_EQ(kel_nn_mfcc_create(&context_, rate, threshold), 0);
  }
  size_t value_count() const { return static_cast<size_t>(context_->wave.n_frames) * 64; }
  std::vector<uint8_t> bytes() const {
    return {context_->feature_u8, context_->feature_u8 + value_count()};
  }
  std::vector<float> features() const {
    return {context_->wave.features, context_->wave.features + value_count()};
  }
  kel_nn_mfcc_t* context_ = nullptr;
};

TEST_F(Mfcc, DefaultsAreThoseOfAThreeSecondWindow) {
  create();
  const kel_nn_mfcc_t& m = *context_;
  EXPECT_THAT(m.wave, FieldsAre(48000, 512, 0, 160, 297, _, _));
  EXPECT_THAT((std::vector<int>{m.audio_ms, m.has_voice, m.cfg.frame_size}),
              ElementsAre(3000, 0, 512));
  const PlainFilterBank plain(48000);
  for (int i = 1; i <= 512; ++i) EXPECT_EQ(m.window[i], plain.hamming[i]) << i;
  EXPECT_EQ(printed(), "");
}

TEST_F(Mfcc, WholeWindowsHaveTheBitsOfThePlainLoops) {
  for (const uint32_t rate : {16000u, 8000u, 11025u}) {
    create(rate);
    const int n = static_cast<int>(rate) * 3;
    ASSERT_EQ(context_->wave.n_samples, n);
    PlainFilterBank plain(n);
    for (const Sound& sound : sounds(n)) {  // the context is not reset in between
      SCOPED_TRACE(std::to_string(rate) + " Hz, " + sound.name);
      ASSERT_EQ(kel_nn_mfcc_process(context_, sound.pcm.data()), 0);
      ASSERT_TRUE(plain.process(sound.pcm.data()));
      EXPECT_EQ(context_->has_voice, 1);
      EXPECT_EQ(context_->wave.position, (plain.n_frames + 1) * 160);
      EXPECT_TRUE(features() == plain.features);
      EXPECT_TRUE(bytes() == plain.bytes);
    }
  }
}

// Without memory for a batch, frames go one by one.
TEST_F(Mfcc, WhatIsUnusualHasTheBitsOfOneFrameAtATime) {
  const Sound sound = sounds(48000)[3];
  void (*const changes[])(kel_nn_fbank_info_t*) = {
      [](kel_nn_fbank_info_t* info) { std::swap(info->lo_chan[100], info->lo_chan[110]); },
      [](kel_nn_fbank_info_t* info) { info->x[0] = 256; },
      [](kel_nn_fbank_info_t* info) { info->klo = 3; },
      [](kel_nn_fbank_info_t* info) { info->khi = 255; },
      [](kel_nn_fbank_info_t* info) {  // usual, but for the last channel
        for (int k = 2; k <= 256; ++k) info->lo_chan[k] = std::min(info->lo_chan[k], 63.0f);
      },
      [](kel_nn_fbank_info_t* info) { info->use_power = 0; },
      [](kel_nn_fbank_info_t* info) { info->take_logs = 0; },
  };
  for (const auto& change : changes) {
    create();
    change(&context_->cfg.fbank);
    kel_nn_mfcc_process(context_, sound.pcm.data());
    const std::vector<float> ours = features();
    const NoMemory none;
    kel_nn_mfcc_process(context_, sound.pcm.data());
    EXPECT_TRUE(features() == ours) << &change - changes;
  }
  create();
  kel_nn_mfcc_process(context_, sound.pcm.data());
  const std::vector<float> usual = features();
  create();
  context_->cfg.fbank.khi = 300;  // behind the last bin: unusual, and no difference
  kel_nn_mfcc_process(context_, sound.pcm.data());
  EXPECT_TRUE(features() == usual);
}

TEST_F(Mfcc, TheSpareFrameEndsInZerosAndLeavesItsTraces) {
  create();
  const PlainFilterBank plain(48000);
  const Sound sound = sounds(48000)[0];
  context_->cfg.frame_shift = 7;
  context_->cfg.frame_size = 9;
  context_->cfg.pre_emphasis = 0.5f;
  kel_nn_mfcc_process(context_, sound.pcm.data());
  std::vector<float> frame(sound.pcm.begin() + 297 * 160, sound.pcm.end()), expected(64);
  ASSERT_EQ(frame.size(), 480u);
  frame.resize(512);
  plain.frame_energies(frame.data(), expected.data());
  const float* spare = context_->wave.features + value_count();
  EXPECT_EQ(std::vector<float>(spare, spare + 64), expected);
  EXPECT_EQ(std::vector<float>(context_->cfg.fbank_out + 1, context_->cfg.fbank_out + 65),
            expected);
  EXPECT_THAT(context_->cfg, FieldsAre(0.97f, 512, 298 * 160, 160, _, _, _));
  EXPECT_EQ(context_->cfg.fbank_out[0], 64.0f);
}

// Samples that the gate hears with the given sum, at most 32767 for each.
std::vector<int16_t> gate_sum(int sum) {
  std::vector<int16_t> pcm(48000, 77);  // between those that count
  for (int i = 0; i < 48000; i += 10) {
    const int size = std::min(sum, 30000);
    pcm[i] = static_cast<int16_t>(i % 20 ? size : -size);
    sum -= size;
  }
  return pcm;
}

// The threshold is at least 86046.
TEST_F(Mfcc, TheGateOpensAtItsThreshold) {
  const struct {
    float threshold;
    int sum, has_voice;
  } cases[] = {{0, 86045, 0},   {0, 86046, 1},        {86046.05f, 86046, 0}, {-1e9f, 86045, 0},
               {NAN, 86045, 0}, {NAN, 86046, 1},      {100000, 99999, 0},    {100000, 100000, 1},
               {0, 0, 0},       {1e9f, 100000000, 0}, {1e30f, 86046, 0},     {INFINITY, 86046, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(Message() << c.threshold << ", " << c.sum);
    create(16000, c.threshold);
    std::fill_n(context_->feature_u8, value_count(), uint8_t{123});
    std::fill_n(context_->wave.features, value_count(), 4.5f);
    EXPECT_EQ(kel_nn_mfcc_process(context_, gate_sum(c.sum).data()), 0);
    EXPECT_EQ(context_->has_voice, c.has_voice);
    EXPECT_THAT(bytes(), Conditional(c.has_voice, Not(Each(123)), Each(123)));
    EXPECT_THAT(features(), Conditional(c.has_voice, Not(Each(4.5f)), Each(4.5f)));
  }
}

// Every tenth sample is 20001 or so, in a sum that single precision must round from 2^24 on.
TEST_F(Mfcc, TheGatesSumIsInSinglePrecision) {
  std::vector<int16_t> pcm(48000);
  float in_order = 0.0f;
  for (int i = 0; i < 48000; i += 10) {
    pcm[i] = static_cast<int16_t>(20001 + i % 7);
    in_order += static_cast<float>(pcm[i]);
  }
  for (const bool opens : {true, false}) {
    create(16000, opens ? in_order : std::nextafter(in_order, INFINITY));
    kel_nn_mfcc_process(context_, pcm.data());
    EXPECT_EQ(context_->has_voice, opens);
  }
}

// Half of the rows have no energy at all: 297 logarithms, some 0 and the others alike, are as far
// from their mean as they can be.
TEST_F(Mfcc, ValuesOf28AndBeyondFillTheByte) {
  create();
  PlainFilterBank plain(48000);
  std::fill_n(context_->window + 1, 512, 1e9f);  // louder than any sound
  std::fill_n(&plain.hamming[1], 512, 1e9f);
  const Sound sound = sounds(48000)[7];
  kel_nn_mfcc_process(context_, sound.pcm.data());
  ASSERT_TRUE(plain.process(sound.pcm.data()));
  EXPECT_TRUE(features() == plain.features);
  EXPECT_TRUE(bytes() == plain.bytes);
  EXPECT_THAT(plain.bytes, AllOf(Contains(0), Contains(255)));

  std::vector<float> just_below(128);  // the next byte, with its factor in double
  std::vector<uint8_t> bytes(128);
  for (int i = 0; i < 128; ++i) {
    float& value = just_below[i] = static_cast<float>((i + 1) / 4.5714);
    while (value * 4.5714 + 128.0 >= 129 + i) value = std::nextafter(value, 0.0f);
  }
  kelnn::quantise(just_below.data(), 2, bytes.data());
  for (int i = 0; i < 128; ++i) EXPECT_EQ(bytes[i], 128 + i);
}

TEST_F(Mfcc, ReportsNullArguments) {
  create();
  const int16_t pcm[1] = {};
  const auto check = [&](int32_t result, const char* function, const char* text) {
    SCOPED_TRACE(text);
    EXPECT_EQ(result, -1);
    expect_error(kMfccSource, function, text);
  };
  check(kel_nn_mfcc_create(nullptr, 16000, 0), "kel_nn_mfcc_create",
        "kel_nn_mfcc_create g_mfcc is NULL.");
  check(kel_nn_mfcc_para_init(nullptr, 0, 160, 512, 48000, 0), "kel_nn_mfcc_para_init",
        "kel_nn_mfcc_para_init g_mfcc is NULL.");
  check(kel_nn_mfcc_destory(nullptr), "kel_nn_mfcc_destory", "kel_nn_mfcc_destory g_mfcc is NULL.");
  for (const bool has_context : {false, true}) {
    check(kel_nn_mfcc_process(has_context ? context_ : nullptr, has_context ? nullptr : pcm),
          "kel_nn_mfcc_process", "kel_nn_mfcc_process g_mfcc or input buf is NULL.");
  }
  EXPECT_EQ(kel_nn_mfcc_mem_malloc(nullptr), nullptr);
  kel_nn_mfcc_mem_free(nullptr);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(kel_nn_mfcc_destory(&context_), 0);
    EXPECT_EQ(context_, nullptr);
  }
  kel_nn_mfcc_t without_memory = {};
  kel_nn_mfcc_para_init(&without_memory, 0, 160, 512, 48000, 0);
  EXPECT_EQ(kel_nn_mfcc_process(&without_memory, pcm), -1);
  EXPECT_THAT(printed_messages(),
              ElementsAre("[Error]Invalid arguments.", "[Error]kel_nn_filter_bank is err!"));
}

TEST_F(Mfcc, WithoutSoundTheSamplesBeforeAreUsedAgain) {
  create();
  PlainFilterBank plain(48000);
  const Sound sound = sounds(48000)[2];
  kel_nn_mfcc_process(context_, sound.pcm.data());
  ASSERT_TRUE(plain.process(sound.pcm.data()));
  std::fill_n(context_->feature_u8, value_count(), uint8_t{0});
  context_->wave.position = 0;
  EXPECT_EQ(kel_nn_filter_bank(context_, nullptr), 0);
  EXPECT_THAT(printed_messages(), ElementsAre("[Error]kel_nn_load_data buf is NULL."));
  EXPECT_TRUE(bytes() == plain.bytes);
}

TEST_F(Mfcc, OddSettingsNeverCrash) {
  const std::vector<int16_t> pcm(200000, 30000);
  for (const uint32_t rate : {0u, 1u, 170u, 171u, 224u, 60000u}) {
    SCOPED_TRACE(rate);
    create(rate);
    EXPECT_EQ(context_->wave.n_samples, static_cast<int>(rate) * 3);
    EXPECT_EQ(context_->wave.n_frames, (static_cast<int>(rate) * 3 - 512) / 160 + 1);
    EXPECT_EQ(kel_nn_mfcc_process(context_, pcm.data()), 0);
  }
  const struct {
    int32_t position, frame_shift, frame_size, n_samples, n_frames;
  } cases[] = {{0, 0, 512, 48000, 0},      {0, 160, 512, -5, -2},
               {0, -160, 512, 0, 4},       {0, 160, 512, 511, 1},
               {-700, 160, 512, 2000, 10}, {0, 7, 100, 3000, 415},
               {0, 160, 0, 1000, 7},       {0, -1, INT32_MIN, INT32_MAX, INT32_MIN}};
  for (const auto& c : cases) {
    SCOPED_TRACE(Message() << c.n_samples << " in frames of " << c.frame_size);
    kel_nn_mfcc_t m = {};
    kel_nn_mfcc_para_init(&m, 1, 2, 3, 4, 0);  // what was set before does not matter
    EXPECT_EQ(kel_nn_mfcc_para_init(&m, c.position, c.frame_shift, c.frame_size, c.n_samples, 0),
              0);
    EXPECT_THAT(m.wave, FieldsAre(c.n_samples, c.frame_size, c.position, c.frame_shift, c.n_frames,
                                  nullptr, nullptr));
    if (c.n_samples > 100000) continue;  // more than a test should ask for
    EXPECT_EQ(kel_nn_mfcc_mem_malloc(&m), m.feature_u8);
    ASSERT_NE(m.feature_u8, nullptr);
    m.cfg.frame_size = c.frame_size;
    kel_nn_filter_bank_init(&m.cfg, &m.cfg.fbank);
    m.gate_threshold = 0.0f;
    EXPECT_EQ(kel_nn_filter_bank(&m, pcm.data()), 0);
    kel_nn_mfcc_mem_free(&m);
    EXPECT_EQ(m.wave.samples, nullptr);
  }
}

// The context and its ten blocks, each of which may be refused.
TEST_F(Mfcc, CreationFailsCleanlyWhenMemoryIsShort) {
  for (int refused = 1; refused <= 11; ++refused) {
    {
      const NoMemory no_memory(refused, refused);
      EXPECT_EQ(kel_nn_mfcc_create(&context_, 16000, 0.0f), -1) << refused;
    }
    EXPECT_EQ(context_, nullptr);
    EXPECT_EQ(live_blocks(), live_before_);
    expect_error(kMfccSource, "kel_nn_mfcc_create", "Out of memory.");
  }
}

}  // namespace
