// SPDX-License-Identifier: Apache-2.0
// A batch is kLanes frames, each 160 samples after the one before. All arrays have the frames last,
// so the innermost loops run over frames, which have nothing to do with each other; within a frame,
// every operation and the order of every sum are those of kel_nn_filter_bank.cpp.
#include "kel_nn_frame_batch.h"

#include <cstdlib>

#include "kel_nn_audio_context.h"
#include "kel_nn_compiler.h"
#include "kel_nn_counted_vector.h"
#include "kel_nn_float_rules.h"
#include "kel_nn_log_energy.h"
#include "kel_nn_rotation.h"

namespace kelnn {
namespace {

constexpr int kLanes = 8;
constexpr int kPoints = kFrameSize / 2;  // complex
constexpr int kColumns = kLanes + kFrameSize / kFrameShift;
constexpr int kSpan = (kLanes - 1) * kFrameShift + kFrameSize;  // samples of a batch

// What all batches of a window share.
struct Tables {
  Twiddle split[kPoints / 2];  // one for each bin, from 1 on
  Twiddle stage[kPoints];      // of the stage with distance d: from element d on, one for each step
  uint8_t reversed[kPoints];   // the number with its bits in reverse
  int8_t lower_channel[kPoints + 2];  // of each bin, from 1 on; then one that is no channel
};

struct Batch {
  // Sample t of lane l is samples[t % 160][t / 160 + l]: frames overlap, and so every sample is
  // here once.
  float samples[kFrameShift][kColumns];
  float mean[kLanes];
  float re[kPoints][kLanes], im[kPoints][kLanes];
  float channels[kChannels + 1][kLanes];  // from 1 on; nobody reads channel 0
};

struct Scratch {
  Tables tables;
  Batch batch;
};

// Each step for a batch stays a function: inlined together, steps lose what __restrict says.

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

// False when the bins' channels do not ascend from 0 to 64.
bool fill_lower_channels(const kel_nn_fbank_info_t& info, Tables* tables) {
  int last = 0;
  for (int bin = info.klo; bin <= info.khi; ++bin) {
    const int32_t channel = truncated(info.lo_chan[bin]);
    if (channel < last || channel > kChannels) return false;
    tables->lower_channel[bin] = static_cast<int8_t>(channel);
    last = channel;
  }
  tables->lower_channel[info.khi + 1] = kChannels + 1;
  return true;
}

bool fill_tables(const kel_nn_fbank_info_t& info, Tables* tables) {
  fill_reversed(tables);
  fill_twiddles(tables);
  return fill_lower_channels(info, tables);
}

// What kel_nn_mfcc_create() makes for every sample rate.
bool is_usual(const kel_nn_mfcc_t& m) {
  const kel_nn_fbank_info_t& info = m.cfg.fbank;
  return m.wave.frame_size == kFrameSize && m.wave.frame_shift == kFrameShift &&
         info.frame_size == kFrameSize && info.fft_n == kFrameSize && info.klo == 2 &&
         info.khi == kPoints && info.num_chans == kChannels && info.use_power && info.take_logs &&
         count_of(info.x) == kFrameSize;
}

// Those beyond the last frame's end are not read.
void load_samples(const float* samples, Batch* batch) {
  constexpr int kInLastColumn = kSpan - (kColumns - 1) * kFrameShift;
  for (int i = 0; i < kFrameShift; ++i) {
    const int columns = i < kInLastColumn ? kColumns : kColumns - 1;
    for (int column = 0; column < columns; ++column) {
      batch->samples[i][column] = samples[column * kFrameShift + i];
    }
    for (int column = columns; column < kColumns; ++column) batch->samples[i][column] = 0.0f;
  }
}

// Samples are whole numbers of at most 2^15, so every sum of up to 512 of them is one of at most
// 2^24: exact in single precision, in whatever order.
KEL_NN_TARGET_CLONES_APART
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

// Two samples, an even and an odd one, less the mean, less their share of the sample before, in the
// window.
inline void condition_pair(const float* __restrict before, const float* __restrict even,
                           const float* __restrict odd, const float* __restrict mean,
                           float pre_emphasis, const float* window, float* __restrict re,
                           float* __restrict im) {
  const float even_window = window[0], odd_window = window[1];
  KEL_NN_KEEP_LOOP
  for (int lane = 0; lane < kLanes; ++lane) {
    const float x = even[lane] - mean[lane];
    re[lane] = (x - (before[lane] - mean[lane]) * pre_emphasis) * even_window;
    im[lane] = (odd[lane] - mean[lane] - x * pre_emphasis) * odd_window;
  }
}

// Mean, pre-emphasis and window, and each complex number to where the butterflies want it.
KEL_NN_TARGET_CLONES_APART
void condition(const Tables& tables, const float* window, float pre_emphasis, Batch* batch) {
  const float* before = batch->samples[0];  // there is none before the first: see below
  for (int point = 0, row = 0, column = 0; point < kPoints; ++point) {
    const float* even = batch->samples[row] + column;
    const float* odd = batch->samples[row + 1] + column;
    const int target = tables.reversed[point];
    condition_pair(before, even, odd, batch->mean, pre_emphasis, window + 1 + 2 * point,
                   batch->re[target], batch->im[target]);
    before = odd;
    row += 2;
    if (row == kFrameShift) {
      row = 0;
      ++column;
    }
  }
  for (int lane = 0; lane < kLanes; ++lane) {
    const float x = batch->samples[0][lane] - batch->mean[lane];
    batch->re[0][lane] = static_cast<float>(x * (1.0 - pre_emphasis)) * window[1];  // in double
  }
}

// All four butterflies of two stages whose factors are 1, 1, 1 and `w`, on rows a to d.
//
// With the factor 1 the butterfly is a sum and a difference, and as sums of two floats, rounded to
// double and then to float, they are the same as in single precision. (A zero may have another
// sign, which no power can tell.)
inline void butterflies_of_1(const Twiddle& w, float* __restrict a_re, float* __restrict a_im,
                             float* __restrict b_re, float* __restrict b_im, float* __restrict c_re,
                             float* __restrict c_im, float* __restrict d_re,
                             float* __restrict d_im) {
  const double w_re = w.re, w_im = w.im;
  KEL_NN_KEEP_LOOP
  for (int lane = 0; lane < kLanes; ++lane) {
    const float ab_re = a_re[lane] + b_re[lane], ab_im = a_im[lane] + b_im[lane];
    const float cd_re = c_re[lane] + d_re[lane], cd_im = c_im[lane] + d_im[lane];
    const double b1_re = a_re[lane] - b_re[lane], b1_im = a_im[lane] - b_im[lane];
    const double d1_re = c_re[lane] - d_re[lane], d1_im = c_im[lane] - d_im[lane];
    const double re = w_re * d1_re - w_im * d1_im;
    const double im = w_re * d1_im + w_im * d1_re;
    a_re[lane] = ab_re + cd_re;
    a_im[lane] = ab_im + cd_im;
    b_re[lane] = static_cast<float>(b1_re + re);
    b_im[lane] = static_cast<float>(b1_im + im);
    c_re[lane] = ab_re - cd_re;
    c_im[lane] = ab_im - cd_im;
    d_re[lane] = static_cast<float>(b1_re - re);
    d_im[lane] = static_cast<float>(b1_im - im);
  }
}

// Sums in double, each rounded once: what a stage leaves in memory is single precision.
inline void butterfly(const Twiddle& w, float* __restrict a_re, float* __restrict a_im,
                      float* __restrict b_re, float* __restrict b_im) {
  const double w_re = w.re, w_im = w.im;
  KEL_NN_KEEP_LOOP
  for (int lane = 0; lane < kLanes; ++lane) {
    const double re = w_re * b_re[lane] - w_im * b_im[lane];
    const double im = w_re * b_im[lane] + w_im * b_re[lane];
    b_re[lane] = static_cast<float>(a_re[lane] - re);
    b_im[lane] = static_cast<float>(a_im[lane] - im);
    a_re[lane] = static_cast<float>(a_re[lane] + re);
    a_im[lane] = static_cast<float>(a_im[lane] + im);
  }
}

// Two stages at a time, with the distances d and 2 d. Their steps 0 and, in the second, d form
// butterflies_of_1(). The others could go through registers in pairs as well, but GCC 12's
// vectoriser then leaves out the rounding to float between the stages.
KEL_NN_TARGET_CLONES_APART
void transform(const Tables& tables, Batch* batch) {
  float(*const re)[kLanes] = batch->re;
  float(*const im)[kLanes] = batch->im;
  for (int d = 1; d < kPoints; d *= 4) {
    const Twiddle w = tables.stage[3 * d];
    for (int a = 0; a < kPoints; a += 4 * d) {
      butterflies_of_1(w, re[a], im[a], re[a + d], im[a + d], re[a + 2 * d], im[a + 2 * d],
                       re[a + 3 * d], im[a + 3 * d]);
    }
    for (int distance = d; distance <= 2 * d; distance *= 2) {
      for (int i = 1; i < distance; ++i) {
        if (i == d) continue;
        const Twiddle v = tables.stage[distance + i];
        for (int a = i; a < kPoints; a += 2 * distance) {
          butterfly(v, re[a], im[a], re[a + distance], im[a + distance]);
        }
      }
    }
  }
}

// Bins k + 1 and their mirror images, from the transform of complex numbers to the powers of the
// real signal. These take the real parts' places.
inline void split_pair(const Twiddle& w, float* __restrict a_re, const float* __restrict a_im,
                       float* __restrict b_re, const float* __restrict b_im) {
  const double w_re = w.re, w_im = w.im;
  KEL_NN_KEEP_LOOP
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

KEL_NN_TARGET_CLONES_APART
void split_to_power(const Tables& tables, Batch* batch) {
  for (int k = 1; k < kPoints / 2; ++k) {
    split_pair(tables.split[k], batch->re[k], batch->im[k], batch->re[kPoints - k],
               batch->im[kPoints - k]);
  }
  float* re = batch->re[kPoints / 2];  // its own mirror image: nothing to split
  const float* im = batch->im[kPoints / 2];
  for (int lane = 0; lane < kLanes; ++lane) re[lane] = re[lane] * re[lane] + im[lane] * im[lane];
}

// Bins between the centres of two channels share their energy among the two. Sums run from the
// lowest bin to the highest: a channel first gets what is below its centre, then what is above.
KEL_NN_TARGET_CLONES_APART
void sum_channels(const Tables& tables, const kel_nn_fbank_info_t& info, Batch* batch) {
  float upper[kLanes] = {};
  int bin = info.klo;
  for (int channel = 0; channel <= kChannels; ++channel) {
    float lower[kLanes];
    for (int lane = 0; lane < kLanes; ++lane) {
      lower[lane] = upper[lane];
      upper[lane] = 0.0f;
    }
    for (; tables.lower_channel[bin] == channel; ++bin) {
      const float* power = batch->re[bin - 1];
      const float weight = info.lo_wt[bin];
      for (int lane = 0; lane < kLanes; ++lane) {
        const float share = weight * power[lane];
        lower[lane] += share;
        upper[lane] += power[lane] - share;
      }
    }
    for (int lane = 0; lane < kLanes; ++lane) batch->channels[channel][lane] = lower[lane];
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
  if (!is_usual(*m)) return 0;
  // More than a small thread's stack should give. Without it, frames are done one by one.
  Scratch* scratch = static_cast<Scratch*>(std::malloc(sizeof(Scratch)));
  if (!scratch) return 0;
  Tables& tables = scratch->tables;
  Batch& batch = scratch->batch;
  kel_nn_wave_t& wave = m->wave;
  int32_t row = 0;
  if (fill_tables(m->cfg.fbank, &tables)) {
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
  }
  std::free(scratch);
  return row;
}

}  // namespace kelnn
