// A batch is kLanes frames, each 160 samples after the one before. All arrays have the frames last,
// so the innermost loops run over frames, which have nothing to do with each other; within a frame,
// every operation and the order of every sum are those of kel_nn_filter_bank.cpp.
#include "kel_nn_frame_batch.h"

#include <cstring>

#include "kel_nn_counted_vector.h"
#include "kel_nn_float_rules.h"
#include "kel_nn_log_energy.h"
#include "kel_nn_rotation.h"
#include "kel_nn_target_clones.h"

namespace kelnn {
namespace {

constexpr int kLanes = 4;
constexpr int kFrameSize = 512;
constexpr int kFrameShift = 160;
constexpr int kPoints = kFrameSize / 2;  // complex
constexpr int kChannels = 64;
constexpr int kColumns = kLanes + kFrameSize / kFrameShift;
constexpr int kSpan = (kLanes - 1) * kFrameShift + kFrameSize;  // samples of a batch

// What all batches of a window share.
struct Tables {
  Twiddle stage[kPoints];      // of the stage with distance d: from element d on, one for each step
  Twiddle split[kPoints / 2];  // one for each bin, from 1 on
  uint8_t reversed[kPoints];   // the number with its bits in reverse
  int8_t lower_channel[kPoints + 1];  // of each bin, from 1 on
};

struct Batch {
  // Sample t of lane l is samples[t % 160][t / 160 + l]: frames overlap, and so every sample is
  // here once.
  float samples[kFrameShift][kColumns];
  float mean[kLanes];
  float re[kPoints][kLanes], im[kPoints][kLanes];
  float channels[kChannels + 2][kLanes];  // from 1 on
};

void fill_twiddles(Tables* tables) {
  for (int distance = 1; distance < kPoints; distance *= 2) {
    Rotation rotation = stage_rotation(2 * distance, false);
    for (int i = 0; i < distance; ++i, rotation.advance()) {
      tables->stage[distance + i] = rotation.now();
    }
  }
  Rotation rotation = split_rotation(kPoints);
  for (int bin = 0; bin < kPoints / 2; ++bin, rotation.advance()) {
    tables->split[bin] = rotation.now();
  }
}

void fill_reversed(Tables* tables) {
  for (int i = 0; i < kPoints; ++i) {
    int reversed = 0;
    for (int bit = 1; bit < kPoints; bit *= 2) reversed = 2 * reversed + ((i & bit) != 0);
    tables->reversed[i] = static_cast<uint8_t>(reversed);
  }
}

// False when a bin feeds a channel that is not there.
bool fill_lower_channels(const kel_nn_fbank_info_t& info, Tables* tables) {
  for (int bin = info.klo; bin <= info.khi; ++bin) {
    const int32_t channel = to_int(info.lo_chan[bin]);
    if (channel < 0 || channel > kChannels) return false;
    tables->lower_channel[bin] = static_cast<int8_t>(channel);
  }
  return true;
}

// What kel_nn_mfcc_create() makes for every sample rate.
bool is_usual(const kel_nn_mfcc_t& m) {
  const kel_nn_fbank_info_t& info = m.cfg.fbank;
  return m.wave.frame_size == kFrameSize && m.wave.frame_shift == kFrameShift &&
         info.frame_size == kFrameSize && info.fft_n == kFrameSize && info.klo == 2 &&
         info.khi == kPoints && info.num_chans == kChannels && info.use_power && info.take_logs &&
         count_of(info.x) == kFrameSize;
}

void load_samples(const float* samples, Batch* batch) {
  for (int column = 0; column < kColumns; ++column) {
    const int first = column * kFrameShift;
    const int count = kSpan - first < kFrameShift ? kSpan - first : kFrameShift;
    for (int i = 0; i < count; ++i) batch->samples[i][column] = samples[first + i];
    for (int i = count; i < kFrameShift; ++i) batch->samples[i][column] = 0.0f;
  }
}

// Samples are whole numbers of at most 2^15, so every sum of up to 512 of them is one of at most
// 2^24: exact in single precision, in whatever order.
KEL_NN_TARGET_CLONES
void take_means(Batch* batch) {
  constexpr int kWhole = kFrameSize / kFrameShift, kRest = kFrameSize % kFrameShift;
  float columns[kColumns] = {}, rest[kLanes] = {};
  for (int i = 0; i < kFrameShift; ++i) {
    for (int column = 0; column < kColumns; ++column) columns[column] += batch->samples[i][column];
  }
  for (int i = 0; i < kRest; ++i) {
    for (int lane = 0; lane < kLanes; ++lane) rest[lane] += batch->samples[i][lane + kWhole];
  }
  for (int lane = 0; lane < kLanes; ++lane) {
    float sum = rest[lane];
    for (int column = lane; column < lane + kWhole; ++column) sum += columns[column];
    batch->mean[lane] = sum / static_cast<float>(kFrameSize);
  }
}

const float* sample_row(const Batch& batch, int i) {
  return batch.samples[i % kFrameShift] + i / kFrameShift;
}

// Mean, pre-emphasis and window, and each complex number to where the butterflies want it.
KEL_NN_TARGET_CLONES
void condition(const Tables& tables, const float* window, float pre_emphasis, Batch* batch) {
  const float* mean = batch->mean;
  // The element before the first is the first itself, and its factor is applied in double.
  for (int point = 0; point < kPoints; ++point) {
    const int i = 2 * point;
    const float* before = sample_row(*batch, i ? i - 1 : 0);
    const float* even = sample_row(*batch, i);
    const float* odd = sample_row(*batch, i + 1);
    const float even_window = window[i + 1], odd_window = window[i + 2];
    float* re = batch->re[tables.reversed[point]];
    float* im = batch->im[tables.reversed[point]];
    for (int lane = 0; lane < kLanes; ++lane) {
      const float x = even[lane] - mean[lane];
      re[lane] = (x - (before[lane] - mean[lane]) * pre_emphasis) * even_window;
      im[lane] = (odd[lane] - mean[lane] - x * pre_emphasis) * odd_window;
    }
  }
  const float* first = sample_row(*batch, 0);
  for (int lane = 0; lane < kLanes; ++lane) {
    const float x = first[lane] - mean[lane];
    batch->re[0][lane] = static_cast<float>(x * (1.0 - pre_emphasis)) * window[1];
  }
}

// With the factor 1 the butterfly is a sum and a difference, and as sums of two floats, rounded to
// double and then to float, they are the same as in single precision. (A zero may have another
// sign, which no power can tell.)
inline void butterfly_of_1(float* __restrict a_re, float* __restrict a_im, float* __restrict b_re,
                           float* __restrict b_im) {
  for (int lane = 0; lane < kLanes; ++lane) {
    const float re = b_re[lane], im = b_im[lane];
    b_re[lane] = a_re[lane] - re;
    b_im[lane] = a_im[lane] - im;
    a_re[lane] += re;
    a_im[lane] += im;
  }
}

inline void butterfly(const Twiddle& w, float* __restrict a_re, float* __restrict a_im,
                      float* __restrict b_re, float* __restrict b_im) {
  const double w_re = w.re, w_im = w.im;
  for (int lane = 0; lane < kLanes; ++lane) {
    const double re = w_re * b_re[lane] - w_im * b_im[lane];
    const double im = w_re * b_im[lane] + w_im * b_re[lane];
    b_re[lane] = static_cast<float>(a_re[lane] - re);
    b_im[lane] = static_cast<float>(a_im[lane] - im);
    a_re[lane] = static_cast<float>(a_re[lane] + re);
    a_im[lane] = static_cast<float>(a_im[lane] + im);
  }
}

KEL_NN_TARGET_CLONES
void transform(const Tables& tables, Batch* batch) {
  for (int distance = 1; distance < kPoints; distance *= 2) {
    for (int block = 0; block < kPoints; block += 2 * distance) {
      const int last = block + distance;
      butterfly_of_1(batch->re[block], batch->im[block], batch->re[last], batch->im[last]);
      for (int i = 1; i < distance; ++i) {
        const int a = block + i, b = a + distance;
        butterfly(tables.stage[distance + i], batch->re[a], batch->im[a], batch->re[b],
                  batch->im[b]);
      }
    }
  }
}

// From the transform of complex numbers to the power of the real signal's bins: bin k + 1 replaces
// re[k].
KEL_NN_TARGET_CLONES
void split_to_power(const Tables& tables, Batch* batch) {
  for (int k = 1; k < kPoints / 2; ++k) {
    float* __restrict a_re = batch->re[k];
    float* __restrict b_re = batch->re[kPoints - k];
    const float* __restrict a_im = batch->im[k];
    const float* __restrict b_im = batch->im[kPoints - k];
    const double w_re = tables.split[k].re, w_im = tables.split[k].im;
    for (int lane = 0; lane < kLanes; ++lane) {
      const double h1_re = (a_re[lane] + b_re[lane]) * 0.5f;
      const double h1_im = (a_im[lane] - b_im[lane]) * 0.5f;
      const double h2_re = (a_im[lane] + b_im[lane]) * 0.5f;
      const double h2_im = (b_re[lane] - a_re[lane]) * 0.5f;
      const float low_re = static_cast<float>(h1_re + w_re * h2_re - w_im * h2_im);
      const float low_im = static_cast<float>(h1_im + w_re * h2_im + w_im * h2_re);
      const float high_re = static_cast<float>(h1_re - w_re * h2_re + w_im * h2_im);
      const float high_im = static_cast<float>(-h1_im + w_re * h2_im + w_im * h2_re);
      a_re[lane] = low_re * low_re + low_im * low_im;
      b_re[lane] = high_re * high_re + high_im * high_im;
    }
  }
  float* re = batch->re[kPoints / 2];  // its own mirror image: nothing to split
  const float* im = batch->im[kPoints / 2];
  for (int lane = 0; lane < kLanes; ++lane) re[lane] = re[lane] * re[lane] + im[lane] * im[lane];
}

KEL_NN_TARGET_CLONES
void sum_channels(const Tables& tables, const kel_nn_fbank_info_t& info, Batch* batch) {
  std::memset(batch->channels, 0, sizeof(batch->channels));
  for (int bin = info.klo; bin <= info.khi; ++bin) {
    const int channel = tables.lower_channel[bin];
    const float weight = info.lo_wt[bin];
    const float* __restrict power = batch->re[bin - 1];
    // Channels 0 and 65 take what the bins beyond the first and the last centre have for them; no
    // one reads them.
    float* __restrict lower = batch->channels[channel];
    float* __restrict upper = batch->channels[channel + 1];
    for (int lane = 0; lane < kLanes; ++lane) {
      const float share = weight * power[lane];
      lower[lane] += share;
      upper[lane] += power[lane] - share;
    }
  }
}

void store_rows(const Batch& batch, float* rows) {
  for (int lane = 0; lane < kLanes; ++lane) {
    for (int c = 0; c < kChannels; ++c) rows[lane * kChannels + c] = batch.channels[c + 1][lane];
  }
  take_logs(rows, kLanes * kChannels);
}

}  // namespace

int32_t fill_rows_in_batches(kel_nn_mfcc_t* m) {
  kel_nn_wave_t& wave = m->wave;
  Tables tables;
  if (!is_usual(*m) || !fill_lower_channels(m->cfg.fbank, &tables)) return 0;
  fill_twiddles(&tables);
  fill_reversed(&tables);
  Batch batch;
  int32_t row = 0;
  while (row <= wave.n_frames - kLanes && wave.position >= 0 &&
         wave.position <= wave.n_samples - kSpan) {
    load_samples(wave.samples + wave.position, &batch);
    take_means(&batch);
    condition(tables, m->window, m->cfg.pre_emphasis, &batch);
    transform(tables, &batch);
    split_to_power(tables, &batch);
    sum_channels(tables, m->cfg.fbank, &batch);
    store_rows(batch, wave.features + static_cast<size_t>(row) * kChannels);
    row += kLanes;
    wave.position += kLanes * kFrameShift;
  }
  return row;
}

}  // namespace kelnn
