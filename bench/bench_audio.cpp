// SPDX-License-Identifier: Apache-2.0
// The audio front end on one window of 3 seconds, beside the plain loops and the same features over
// FFTW in single precision. FFTW's differ in the last bits: its order of sums is its own.
#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "kel_nn.h"
#include "support/plain_filter_bank.h"

namespace {

using kelnn_test::PlainFilterBank;

constexpr int kSamples = 48000;

// A tone that slides over noise, or a hundredth of it.
std::vector<int16_t> window(bool loud) {
  std::vector<int16_t> pcm(kSamples);
  uint32_t noise = 1;
  for (int i = 0; i < kSamples; ++i) {
    noise = noise * 1664525 + 1013904223;
    const double tone = 8000 * std::sin(i * (0.1 + i * 2e-6));
    pcm[i] = static_cast<int16_t>((tone + (noise >> 21)) * (loud ? 1.0 : 0.001));
  }
  return pcm;
}

// What one would write with FFTW: all in single precision, one plan for a frame.
class FftwFilterBank {
 public:
  FftwFilterBank() : geometry_(kSamples), samples_(kSamples), features_(geometry_.n_frames * 64) {
    frame_ = fftwf_alloc_real(kFrame);
    bins_ = fftwf_alloc_complex(kFrame / 2 + 1);
    plan_ = fftwf_plan_dft_r2c_1d(kFrame, frame_, bins_, FFTW_MEASURE);
    bytes.resize(features_.size());
  }
  ~FftwFilterBank() {
    fftwf_destroy_plan(plan_);
    fftwf_free(bins_);
    fftwf_free(frame_);
  }
  FftwFilterBank(const FftwFilterBank&) = delete;
  FftwFilterBank& operator=(const FftwFilterBank&) = delete;

  bool process(const int16_t* pcm) {
    std::copy(pcm, pcm + kSamples, samples_.begin());
    float loudness = 0.0f;
    for (int i = 0; i < kSamples; i += 10) loudness += std::fabs(samples_[i]);
    if (loudness < geometry_.threshold) return false;
    float mean[64] = {};
    for (int row = 0; row < geometry_.n_frames; ++row) {
      frame_energies(&samples_[row * PlainFilterBank::kShift], &features_[row * 64]);
      for (int c = 0; c < 64; ++c) mean[c] += features_[row * 64 + c];
    }
    for (float& m : mean) m /= static_cast<float>(geometry_.n_frames);
    for (int row = 0; row < geometry_.n_frames; ++row) {
      for (int c = 0; c < 64; ++c) {
        const float value = (features_[row * 64 + c] - mean[c]) * 4.5714f + 128.0f;
        bytes[row * 64 + c] = static_cast<uint8_t>(std::min(std::max(value, 0.0f), 255.0f));
      }
    }
    return true;
  }

  std::vector<uint8_t> bytes;

 private:
  static constexpr int kFrame = PlainFilterBank::kFrame;

  void frame_energies(const float* samples, float* energies) {
    float sum = 0.0f;
    for (int i = 0; i < kFrame; ++i) sum += samples[i];
    const float mean = sum / kFrame;
    frame_[0] = (samples[0] - mean) * 0.03f * geometry_.hamming[1];
    for (int i = 1; i < kFrame; ++i) {
      frame_[i] = (samples[i] - mean - (samples[i - 1] - mean) * 0.97f) * geometry_.hamming[i + 1];
    }
    fftwf_execute(plan_);
    float out[66] = {};
    for (int k = 2; k <= kFrame / 2; ++k) {
      const float re = bins_[k - 1][0], im = bins_[k - 1][1];
      const float power = re * re + im * im;
      const float share = geometry_.weight[k] * power;
      out[geometry_.channel[k]] += share;
      out[geometry_.channel[k] + 1] += power - share;
    }
    for (int c = 0; c < 64; ++c) energies[c] = std::log(std::max(out[c + 1], 1.0f));
  }

  PlainFilterBank geometry_;
  std::vector<float> samples_, features_;
  float* frame_;
  fftwf_complex* bins_;
  fftwf_plan plan_;
};

// The library's context behind the same call as the others.
class KelnnFilterBank {
 public:
  KelnnFilterBank() { kel_nn_mfcc_create(&context_, 16000, 0.0f); }
  ~KelnnFilterBank() { kel_nn_mfcc_destory(&context_); }
  KelnnFilterBank(const KelnnFilterBank&) = delete;
  KelnnFilterBank& operator=(const KelnnFilterBank&) = delete;
  bool process(const int16_t* pcm) {
    return kel_nn_mfcc_process(context_, pcm) == 0 && context_->has_voice;
  }

 private:
  kel_nn_mfcc_t* context_ = nullptr;
};

struct PlainContender : PlainFilterBank {
  PlainContender() : PlainFilterBank(kSamples) {}
};

template <typename FilterBank>
void run(benchmark::State& state, bool loud) {
  const std::vector<int16_t> pcm = window(loud);
  FilterBank filter_bank;
  for (auto _ : state) benchmark::DoNotOptimize(filter_bank.process(pcm.data()));
}

const int kRegistered = [] {
  using benchmark::RegisterBenchmark;
  RegisterBenchmark("audio/3 s window/kelnn", run<KelnnFilterBank>, true);
  RegisterBenchmark("audio/3 s window/plain", run<PlainContender>, true);
  RegisterBenchmark("audio/3 s window/fftw", run<FftwFilterBank>, true);
  RegisterBenchmark("audio/3 s too quiet/kelnn", run<KelnnFilterBank>, false);
  RegisterBenchmark("audio/3 s too quiet/plain", run<PlainContender>, false);
  return 0;
}();

}  // namespace
