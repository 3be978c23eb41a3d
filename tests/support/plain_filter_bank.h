// SPDX-License-Identifier: Apache-2.0
// The filter-bank front end as one would first write it down: one frame after the other, one number
// after the other. The tests expect its bits, the benchmark its time.
#ifndef KEL_NN_TESTS_PLAIN_FILTER_BANK_H_
#define KEL_NN_TESTS_PLAIN_FILTER_BANK_H_

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <utility>
#include <vector>

namespace kelnn_test {

// Of n / 2 complex numbers from s[1] on, n a power of two.
inline void plain_fft(float* s, int n, bool invert) {
  const int points = n / 2;
  for (int i = 0, j = 0; i < points; ++i) {
    if (j > i) {
      std::swap(s[2 * i + 1], s[2 * j + 1]);
      std::swap(s[2 * i + 2], s[2 * j + 2]);
    }
    int bit = points / 2;
    for (; bit >= 1 && (j & bit); bit /= 2) j ^= bit;
    j ^= bit;
  }
  for (int span = 2; span < n; span *= 2) {
    double theta = 6.28318530717959 / span;
    if (invert) theta = -theta;
    const double t = std::sin(0.5 * theta), wpr = -2.0 * t * t, wpi = std::sin(theta);
    double wr = 1.0, wi = 0.0;
    for (int m = 1; m < span; m += 2) {
      for (int i = m; i <= n; i += 2 * span) {
        const int j = i + span;
        const double tr = wr * s[j] - wi * s[j + 1];
        const double ti = wr * s[j + 1] + wi * s[j];
        s[j] = static_cast<float>(s[i] - tr);
        s[j + 1] = static_cast<float>(s[i + 1] - ti);
        s[i] = static_cast<float>(s[i] + tr);
        s[i + 1] = static_cast<float>(s[i + 1] + ti);
      }
      const double wt = wr;
      wr = wr * wpr - wi * wpi + wr;
      wi = wi * wpr + wt * wpi + wi;
    }
  }
  if (invert) {
    for (int i = 1; i <= n; ++i) s[i] /= static_cast<float>(points);
  }
}

// Of n real numbers from s[1] on, n a power of two.
inline void plain_real_fft(float* s, int n) {
  const int points = n / 2;
  plain_fft(s, n, false);
  const double theta = 3.14159265358979 / points;
  const double t = std::sin(0.5 * theta), wpr = -2.0 * t * t, wpi = std::sin(theta);
  double wr = 1.0 + wpr, wi = wpi;
  for (int i = 2; i <= points / 2; ++i) {
    const int i1 = 2 * i - 1, i2 = i1 + 1, i3 = n + 3 - i2, i4 = i3 + 1;
    const double h1r = (s[i1] + s[i3]) / 2, h1i = (s[i2] - s[i4]) / 2;
    const double h2r = (s[i2] + s[i4]) / 2, h2i = (s[i3] - s[i1]) / 2;
    s[i1] = static_cast<float>(h1r + wr * h2r - wi * h2i);
    s[i2] = static_cast<float>(h1i + wr * h2i + wi * h2r);
    s[i3] = static_cast<float>(h1r - wr * h2r + wi * h2i);
    s[i4] = static_cast<float>(-h1i + wr * h2i + wi * h2r);
    const double wt = wr;
    wr = wr * wpr - wi * wpi + wr;
    wi = wi * wpr + wt * wpi + wi;
  }
  s[1] += s[2];
  s[2] = 0.0f;
}

class PlainFilterBank {
 public:
  static constexpr int kFrame = 512, kShift = 160, kChannels = 64, kBins = kFrame / 2;

  explicit PlainFilterBank(int n_samples, float threshold = 86046.0f)
      : n_samples(n_samples),
        n_frames((n_samples - kFrame) / kShift + 1),
        threshold(threshold),
        hamming(kFrame + 1),
        centre(kChannels + 2),
        channel(kBins + 1),
        weight(kBins + 1),
        features(n_frames * kChannels),
        bytes(n_frames * kChannels) {
    const float a = static_cast<float>(6.28318530717959 / (kFrame - 1));
    for (int i = 0; i < kFrame; ++i) {
      const float angle = static_cast<float>(i) * a;
      hamming[i + 1] = static_cast<float>(0.54 - std::cos(double{angle}) * 0.46);
    }
    fres = static_cast<float>(1e7 / (double{kFrame * 625} * 700.0));
    for (int c = 1; c <= kChannels + 1; ++c) {
      centre[c] = static_cast<float>(c) / 65.0f * mel(kBins + 1);
    }
    for (int k = 2, c = 1; k <= kBins; ++k) {
      while (c <= kChannels + 1 && centre[c] < mel(k)) ++c;
      channel[k] = c - 1;
      weight[k] = (centre[c] - mel(k)) / (centre[c] - centre[c - 1]);  // centre[0] is 0
    }
  }

  float mel(int k) const {
    const float ratio = static_cast<float>(k - 1) * fres + 1.0f;
    return static_cast<float>(1127.0 * std::log(double{ratio}));
  }

  // Fills `features` and `bytes`; false for a window that is too quiet.
  bool process(const int16_t* pcm) {
    const std::vector<float> samples(pcm, pcm + n_samples);
    float loudness = 0.0f;
    for (int i = 0; i < n_samples; i += 10) {
      loudness += static_cast<float>(std::abs(static_cast<int>(samples[i])));
    }
    if (loudness < threshold) return false;
    for (int row = 0; row < n_frames; ++row) {
      frame_energies(&samples[row * kShift], &features[row * kChannels]);
    }
    for (int c = 0; c < kChannels; ++c) {
      float sum = 0.0f;
      for (int row = 0; row < n_frames; ++row) sum += features[row * kChannels + c];
      const float mean = sum / static_cast<float>(n_frames);
      for (int row = 0; row < n_frames; ++row) features[row * kChannels + c] -= mean;
    }
    for (int i = 0; i < n_frames * kChannels; ++i) {
      if (features[i] > 28.0f) {
        features[i] = 28.0f;
        bytes[i] = 255;
      } else if (features[i] < -28.0f) {
        features[i] = -28.0f;
        bytes[i] = 0;
      } else {
        bytes[i] = static_cast<uint8_t>(double{features[i]} * 4.5714 + 128.0);
      }
    }
    return true;
  }

  // One frame of samples to its 64 logarithms.
  void frame_energies(const float* samples, float* energies) const {
    float s[kFrame + 1];
    float sum = 0.0f;
    for (int i = 1; i <= kFrame; ++i) sum += s[i] = samples[i - 1];
    const float mean = sum / kFrame;
    for (int i = 1; i <= kFrame; ++i) s[i] -= mean;
    for (int i = kFrame; i >= 2; --i) s[i] -= s[i - 1] * 0.97f;
    s[1] = static_cast<float>(s[1] * (1.0 - double{0.97f}));
    for (int i = 1; i <= kFrame; ++i) s[i] *= hamming[i];
    plain_real_fft(s, kFrame);
    float out[kChannels + 2] = {};
    for (int k = 2; k <= kBins; ++k) {
      const float power = s[2 * k - 1] * s[2 * k - 1] + s[2 * k] * s[2 * k];
      const float share = weight[k] * power;
      if (channel[k] > 0) out[channel[k]] += share;
      if (channel[k] < kChannels) out[channel[k] + 1] += power - share;
    }
    for (int c = 0; c < kChannels; ++c) {
      const float energy = out[c + 1] < 1.0f ? 1.0f : out[c + 1];
      energies[c] = static_cast<float>(std::log(double{energy}));
    }
  }

  int n_samples, n_frames;
  float threshold, fres;
  std::vector<float> hamming, centre;  // from element 1 on
  std::vector<int> channel;            // the lower channel of each bin, from bin 2 on
  std::vector<float> weight;
  std::vector<float> features;
  std::vector<uint8_t> bytes;
};

}  // namespace kelnn_test

#endif  // KEL_NN_TESTS_PLAIN_FILTER_BANK_H_
