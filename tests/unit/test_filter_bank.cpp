// SPDX-License-Identifier: Apache-2.0
// The steps of the filter-bank front end, one by one: small cases by hand, and all of them bit for
// bit beside the plain loops.
#include <cfloat>

#include "kel_nn_log_energy.h"
#include "kel_nn_rotation.h"
#include "support/library_test.h"
#include "support/plain_filter_bank.h"

namespace {

using namespace kelnn_test;
using namespace ::testing;

using Floats = std::vector<float>;

constexpr char kFilterBankSource[] = "src/kel_nn_filter_bank.cpp";
constexpr double kPi = 3.14159265358979323846;

class FilterBank : public LibraryTest {
 protected:
  FilterBank() { EXPECT_EQ(kel_nn_mfcc_create(&context_, 16000, 0.0f), 0); }
  ~FilterBank() override { kel_nn_mfcc_destory(&context_); }
  kel_nn_mfcc_t* context_ = nullptr;
};

Floats counted(Floats data) {
  data.insert(data.begin(), static_cast<float>(data.size()));
  return data;
}

Floats random_values(size_t n, float scale) {
  std::minstd_rand random(static_cast<unsigned>(n));
  std::uniform_real_distribution<float> uniform(-scale, scale);
  Floats values(n);
  for (float& value : values) value = uniform(random);
  return values;
}

TEST_F(FilterBank, ReportsNullVectors) {
  kel_nn_wave_t wave = {}, no_samples = {};
  const int16_t pcm[1] = {};
  float value[2] = {};
  kel_nn_frame_cfg_t& cfg = context_->cfg;
  kel_nn_fbank_info_t& info = cfg.fbank;
  wave.samples = value;
  // The window's routine has the other one's text, under its own name.
  EXPECT_EQ(kel_nn_ham_distance(nullptr, value), -1);
  expect_error(kFilterBankSource, "kel_nn_ham_distance", "kel_nn_pre_emphasise frame is NULL.");
  const std::pair<int32_t, const char*> refused[] = {
      {kel_nn_load_data(nullptr, &wave), "kel_nn_load_data buf is NULL."},
      {kel_nn_get_wave(nullptr, &wave), "kel_nn_get_wave buf is NULL."},
      {kel_nn_pre_emphasise(nullptr, 0.97f), "kel_nn_pre_emphasise frame is NULL."},
      {kel_nn_filter_bank_init(nullptr, &info), "kel_nn_filter_bank_init CF is NULL."},
      {kel_nn_load_data(pcm, nullptr), "Invalid arguments."},
      {kel_nn_load_data(pcm, &no_samples), "Invalid arguments."},
      {kel_nn_get_wave(value, nullptr), "Invalid arguments."},
      {kel_nn_get_wave(value, &no_samples), "Invalid arguments."},
      {kel_nn_ham_distance(value, nullptr), "Invalid arguments."},
      {kel_nn_filter_bank_init(&cfg, nullptr), "Invalid arguments."},
      {kel_nn_convert_frame(nullptr, &wave, value), "Invalid arguments."},
      {kel_nn_convert_frame(&cfg, nullptr, value), "Invalid arguments."},
      {kel_nn_convert_frame(&cfg, &wave, nullptr), "Invalid arguments."},
      {kel_nn_filter_bank(nullptr, nullptr), "Invalid arguments."}};
  std::vector<std::string> texts;
  for (const auto& [result, text] : refused) {
    EXPECT_EQ(result, -1) << text;
    texts.push_back(std::string("[Error]") + text);
  }
  EXPECT_EQ(printed_messages(), texts);
  EXPECT_EQ(kel_nn_load_data(pcm, &wave), 0);
  EXPECT_EQ(kel_nn_ham_distance(value, value), 0);
  EXPECT_EQ(kel_nn_convert_frame(&cfg, &context_->wave, context_->window), 0);

  // One block that is missing is enough. Where there is no result, there is nothing to print.
  for (float** block :
       {&context_->wave.samples, &context_->wave.features, &context_->window, &cfg.frame,
        &cfg.fbank_out, &info.x, &info.cf, &info.lo_chan, &info.lo_wt}) {
    float* const kept = std::exchange(*block, nullptr);
    EXPECT_EQ(kel_nn_filter_bank(context_, pcm), -1);
    kel_nn_link_data(&cfg, &context_->wave, 0);
    kel_nn_zeromean(&context_->wave);
    if (cfg.frame) kel_nn_wave_to_filter_bank(cfg.frame, cfg.fbank_out, info);
    const bool has_frame = cfg.frame && cfg.fbank_out;
    const bool has_bank = info.x && info.cf && info.lo_chan && info.lo_wt;
    EXPECT_TRUE(has_frame || kel_nn_convert_frame(&cfg, &wave, value) == -1);
    EXPECT_TRUE(has_bank || kel_nn_filter_bank_init(&cfg, &info) == -1);
    *block = kept;
  }
  printed();
  kel_nn_fft(nullptr, 0);
  kel_nn_real_fft(nullptr);
  kel_nn_zeromean_frame(nullptr);
  kel_nn_zeromean(nullptr);
  kel_nn_link_data(nullptr, &wave, 0);
  kel_nn_link_data(&cfg, nullptr, 0);
  kel_nn_wave_to_filter_bank(nullptr, cfg.fbank_out, info);
  EXPECT_EQ(printed(), "");
}

TEST(Fft, HasTheBitsOfThePlainLoops) {
  for (int n = 2; n <= 2048; n *= 2) {
    const Floats values = counted(random_values(n, 32768.0f));
    for (const char* kind : {"forward", "inverse", "real"}) {
      SCOPED_TRACE(Message() << n << ", " << kind);
      Floats ours = values, plain = values;
      if (*kind == 'r') {
        kel_nn_real_fft(ours.data());
        plain_real_fft(plain.data(), n);
      } else {
        kel_nn_fft(ours.data(), *kind == 'i' ? -5 : 0);
        plain_fft(plain.data(), n, *kind == 'i');
      }
      ASSERT_EQ(ours, plain);
    }
  }
}

TEST(Fft, TurnsByAnglesOfFifteenDigits) {
  kelnn::Rotation split = kelnn::split_rotation(1024), stage = kelnn::stage_rotation(2048, false);
  split.advance();
  stage.advance();
  EXPECT_EQ(split.now().im, std::sin(3.14159265358979 / 1024));
  EXPECT_EQ(stage.now().im, std::sin(6.28318530717959 / 2048));
}

TEST(Fft, LeavesLengthsThatAreNoPowersOfTwoAlone) {
  for (const float count : {0.0f, 1.0f, 3.0f, 6.0f, -4.0f, 1e30f, NAN}) {
    SCOPED_TRACE(count);
    Floats s = {count, 1, 2, 3, 4, 5, 6};
    kel_nn_fft(s.data(), 1);
    kel_nn_real_fft(s.data());
    EXPECT_THAT(Floats(s.begin() + 1, s.end()), ElementsAre(1, 2, 3, 4, 5, 6));
  }
}

TEST(FrameSteps, SmallCasesByHand) {
  Floats s = counted({1, 2, 4});
  EXPECT_EQ(kel_nn_pre_emphasise(s.data(), 0.5f), 0);
  EXPECT_THAT(s, ElementsAre(3, 0.5f, 1.5f, 3));
  for (const float count : {1.0f, 0.0f, -3.0f}) {  // the last step
    s = {count, 8, 4};
    kel_nn_pre_emphasise(s.data(), 0.75f);
    EXPECT_THAT(s, ElementsAre(count, 2, 4));
  }
  // 0.97 is the float next to it.
  s = counted({10000});
  kel_nn_pre_emphasise(s.data(), 0.97f);
  EXPECT_EQ(s[1], static_cast<float>(10000.0 * (1.0 - 0.9700000286102295)));
  s = counted({16777216, 1, 1, 0});  // a sum in single precision: neither 1 changes it
  kel_nn_zeromean_frame(s.data());
  EXPECT_THAT(s, ElementsAre(4, 12582912, -4194303, -4194303, -4194304));
}

TEST(FrameRead, GivesZerosBeyondTheWindowAndMovesOn) {
  float samples[] = {1, 2, 3, 4, 5};
  kel_nn_wave_t wave = {5, 3, 0, 2, 0, samples, nullptr};
  const struct {
    int32_t position;
    Floats frame;  // and a value behind it
  } cases[] = {{0, {1, 2, 3, 7}},  {2, {3, 4, 5, 7}},  {4, {5, 0, 0, 7}},         {6, {0, 0, 0, 7}},
               {-2, {0, 0, 1, 7}}, {-9, {0, 0, 0, 7}}, {2147483600, {0, 0, 0, 7}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.position);
    wave.position = c.position;
    Floats frame(4, 7.0f);
    EXPECT_EQ(kel_nn_get_wave(frame.data(), &wave), 0);
    EXPECT_EQ(frame, c.frame);
    EXPECT_EQ(wave.position, c.position + 2);
  }
}

TEST(Features, RowsAreCopiedAndCentredPerChannel) {
  Floats features(3 * 64, -1.0f), out = counted(Floats(64));
  kel_nn_wave_t wave = {};
  wave.features = features.data();
  kel_nn_frame_cfg_t cfg = {};
  cfg.fbank_out = out.data();
  cfg.fbank.num_chans = 3;               // 64 are copied all the same
  for (int row = -1; row <= 2; ++row) {  // row -1 is not there
    for (int c = 0; c < 64; ++c) out[c + 1] = static_cast<float>(100 * row + c * row);
    kel_nn_link_data(&cfg, &wave, row);  // whatever number of frames is set
  }
  EXPECT_EQ(features[0], 0.0f);
  EXPECT_EQ(features[64 + 5], 105.0f);
  EXPECT_EQ(features[2 * 64 + 63], 326.0f);
  wave.n_frames = 2;
  kel_nn_zeromean(&wave);
  for (int c = 0; c < 64; ++c) {
    EXPECT_EQ(features[c], -(100.0f + c) / 2) << c;
    EXPECT_EQ(features[64 + c], (100.0f + c) / 2) << c;
    EXPECT_EQ(features[2 * 64 + c], 200.0f + 2 * c) << "the spare row " << c;
  }
}

TEST(WarpFreq, IsStraightInThreePieces) {
  EXPECT_EQ(kel_nn_warp_freq(300, 3000, 1234.5f, 0, 5000, 1.000001f),
            1234.5f);  // less than 1.000001 as a double
  EXPECT_FLOAT_EQ(kel_nn_warp_freq(300, 3000, 3500, 0, 5000, 0.5f), 4500);
  // Every step rounds to a float.
  for (float freq = 3.7f, alpha = 0.835f; freq < 8000; freq *= 1.07f, alpha += 0.01f) {
    const float scale = 1.0f / alpha, above = scale + 1.0f;
    const float low = 2 * 300.3f / above, high = 2 * 6000.7f / above;
    float expected = freq * scale;
    if (freq > high) {
      expected = (freq - high) * ((8000.1f - high * scale) / (8000.1f - high)) + high * scale;
    } else if (freq < low) {
      expected = (freq - 1.3f) * ((low * scale - 1.3f) / (low - 1.3f)) + 1.3f;
    }
    EXPECT_EQ(kel_nn_warp_freq(300.3f, 6000.7f, freq, 1.3f, 8000.1f, alpha), expected) << freq;
  }
}

TEST_F(FilterBank, GeometryIsThatOfThePlainLoops) {
  const PlainFilterBank plain(48000);
  kel_nn_fbank_info_t& info = context_->cfg.fbank;
  std::fill_n(info.lo_wt, 257, 9.0f);  // what was there before does not matter
  EXPECT_EQ(kel_nn_filter_bank_init(&context_->cfg, &info), 0);
  EXPECT_THAT((Floats{info.cf[0], info.lo_chan[0], info.lo_wt[0], info.x[0]}),
              ElementsAre(65, 256, 256, 512));
  EXPECT_THAT(info, FieldsAre(512, 64, 625, 512, 2, 256, 1, 1, plain.fres, _, _, _, _));
  EXPECT_EQ(kel_nn_mel_filter(1, info.fres), 0.0f);
  EXPECT_NEAR(kel_nn_mel_filter(33, info.fres), 1000.0, 0.1);  // 1000 mel are 1000 Hz
  for (int c = 1; c <= 65; ++c) EXPECT_EQ(info.cf[c], plain.centre[c]) << c;
  EXPECT_EQ(info.lo_chan[1], -1.0f);
  EXPECT_EQ(info.lo_wt[1], 0.0f);
  for (int k = 2; k <= 256; ++k) {
    EXPECT_EQ(info.lo_chan[k], static_cast<float>(plain.channel[k])) << k;
    EXPECT_EQ(info.lo_wt[k], plain.weight[k]) << k;
  }
  // By hand: bin 2, 49.2 mel, lies between the points at 43.7 and 87.4.
  EXPECT_NEAR(info.cf[65], 2840.02, 0.02);
  EXPECT_NEAR(info.lo_wt[2], (87.385 - 49.22) / 43.693, 1e-3);
}

struct Geometry : LibraryTest {  // of frames of any size
  void init_for(int32_t size) {
    info.cf = cf.data(), info.lo_chan = lo_chan.data(), info.lo_wt = lo_wt.data();
    info.x = x.data();
    kel_nn_frame_cfg_t cfg = {};
    cfg.frame_size = size;
    ASSERT_EQ(kel_nn_filter_bank_init(&cfg, &info), 0);
  }
  Floats cf = Floats(66), lo_chan = Floats(2049), lo_wt = Floats(2049), x = Floats(4097);
  kel_nn_fbank_info_t info = {};
};

// Long frames have bins below half of the first point, where the difference is rounded.
TEST_F(Geometry, WeightsAreInSinglePrecision) {
  for (const int32_t size : {2000, 2048, 3000, 4096}) {
    init_for(size);
    EXPECT_EQ(lo_chan[2], 0.0f);
    for (int k = 2; k < 20 && lo_chan[k] == 0.0f; ++k) {
      const float below_point = cf[1] - kel_nn_mel_filter(k, info.fres);
      EXPECT_EQ(lo_wt[k], below_point / cf[1]) << size << ", " << k;
    }
  }
}

TEST_F(Geometry, OddFrameSizesGiveOneWithoutCrashing) {
  for (const int32_t size : {-7, -1, 0, 1, 2, 3, 4, 16}) {
    init_for(size);
    EXPECT_EQ(info.khi, size / 2);
    EXPECT_EQ(x[0], static_cast<float>(size));
  }
}

class Energies : public FilterBank {
 protected:
  // A frame whose transform has power in bin `bin` and its neighbours.
  Floats tone(int bin, float size) {
    Floats s(512);
    for (int t = 0; t < 512; ++t) {
      s[t] = size * static_cast<float>(std::cos(2 * kPi * (bin - 1) * t / 512));
    }
    return counted(s);
  }
  Floats run(Floats s, kel_nn_fbank_info_t info, float out_count = 64) {
    Floats out(65, 5.0f);
    out[0] = out_count;
    kel_nn_wave_to_filter_bank(s.data(), out.data(), info);
    return out;
  }
};

TEST_F(Energies, MagnitudesAndLogarithmsAreSwitches) {
  kel_nn_fbank_info_t info = context_->cfg.fbank;
  const int lower = static_cast<int>(info.lo_chan[40]);
  info.use_power = 0;
  info.take_logs = 0;
  const Floats magnitudes = run(tone(40, 1.0f), info);
  EXPECT_NEAR(magnitudes[lower] + magnitudes[lower + 1], 256.0, 0.1);
  const Floats few = run(tone(40, 1.0f), info, 10.0f);  // channels that are not cleared: 5 each
  EXPECT_NEAR(few[lower] + few[lower + 1], 256.0 + 10.0, 0.1);
  info.take_logs = 1;
  const Floats logs = run(tone(40, 1.0f), info);
  for (int c = 1; c <= 64; ++c) {
    EXPECT_EQ(logs[c], static_cast<float>(std::log(std::max(1.0, double{magnitudes[c]})))) << c;
  }
  EXPECT_EQ(logs[1], 0.0f);  // less than 1 counts as 1
}

TEST_F(Energies, TheVectorsOwnCountSaysWhatIsCleared) {
  kel_nn_fbank_info_t info = context_->cfg.fbank;
  info.take_logs = 0;
  const Floats out = run(counted(Floats(512)), info, 10.5f);
  for (int c = 1; c <= 64; ++c) EXPECT_EQ(out[c], c <= 10 ? 0.0f : 5.0f) << c;
  for (const int last_heard : {200, 256}) {
    info.khi = last_heard;
    const Floats heard = run(tone(210, 1.0f), info);
    EXPECT_EQ(*std::max_element(heard.begin() + 1, heard.end()) > 1.0f, last_heard > 210);
  }
  info.lo_chan[40] = -1.0f;  // marked unused by hand: all goes to the channel above, element 0
  info.lo_wt[40] = 0.0f;
  EXPECT_NEAR(run(tone(40, 1.0f), info)[0], 64 + 256.0 * 256.0, 1.0);
  info.klo = 1;  // bin 1 is marked unused
  EXPECT_GT(run(tone(1, 1.0f), info)[0], 65.0f);
}

TEST(LogEnergy, HasTheBitsOfLog) {
  Floats values = {0.0f, -0.0f, -3.0f, 0.999999f, 1.0f, 1.0000001f, FLT_MIN, FLT_MAX};
  for (double value = 1.0; value < 3e38; value *= 1.0003)
    values.push_back(static_cast<float>(value));
  for (float value = 1.0f; values.size() < 1000000; value = std::nextafter(value, 2.0f)) {
    values.push_back(value);
  }
  Floats logs = values;
  kelnn::take_logs(logs.data(), static_cast<int32_t>(logs.size()));
  for (size_t i = 0; i < values.size(); ++i) {
    const double energy = std::max(1.0f, values[i]);
    ASSERT_EQ(logs[i], static_cast<float>(std::log(energy))) << values[i];
  }
  float odd[] = {INFINITY, NAN, -INFINITY, -NAN};  // processors make NaN of either sign
  kelnn::take_logs(odd, 4);
  EXPECT_EQ(odd[0], INFINITY);
  EXPECT_TRUE(std::isnan(odd[1]));
  EXPECT_EQ(odd[2], 0.0f);
  EXPECT_TRUE(std::isnan(odd[3]));
}

}  // namespace
