/* SPDX-License-Identifier: Apache-2.0 */
/* The audio front end step by step, on three seconds of a tone: sound_steps FREQUENCY
 *
 * Does by hand what kel_nn_mfcc_process() does, shows what each step gives for one frame, and
 * compares the bytes of the whole window.
 *
 * Build: make build/sound_steps   Run: README.md
 */
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kel_nn.h"

enum { kSamples = 48000, kFrameSize = 512, kBins = 256, kChannels = 64 };

/* The strongest of the first 256 bins, in Hz; the transform gives pairs of real and imaginary part. */
static double peak_frequency(const float* frame) {
  float spectrum[kFrameSize + 1];
  int peak = 2;
  memcpy(spectrum, frame, sizeof(spectrum));
  kel_nn_real_fft(spectrum);
  for (int bin = 2; bin <= kBins; ++bin) {
    const float* a = &spectrum[2 * bin - 1];
    const float* b = &spectrum[2 * peak - 1];
    if (a[0] * a[0] + a[1] * a[1] > b[0] * b[0] + b[1] * b[1]) peak = bin;
  }
  return (peak - 1) * 31.25;
}

/* How far a transform and its inverse are from where they began: rounding alone. */
static double round_trip_error(const float* frame) {
  float numbers[kFrameSize + 1];
  double worst = 0;
  memcpy(numbers, frame, sizeof(numbers));
  kel_nn_fft(numbers, 0);
  kel_nn_fft(numbers, 1);
  for (int i = 1; i <= kFrameSize; ++i) worst = fmax(worst, fabs((double)numbers[i] - frame[i]));
  return worst;
}

static void show_one_frame(kel_nn_mfcc_t* context) {
  kel_nn_frame_cfg_t* cfg = &context->cfg;
  int loudest = 1;
  cfg->frame[0] = kFrameSize; /* a counted vector: its length, then its elements */
  kel_nn_get_wave(cfg->frame + 1, &context->wave);
  kel_nn_zeromean_frame(cfg->frame);
  printf("transform and inverse differ by %g\n", round_trip_error(cfg->frame));
  kel_nn_pre_emphasise(cfg->frame, 0.97f);
  kel_nn_ham_distance(cfg->frame, context->window);
  const double frequency = peak_frequency(cfg->frame);
  printf("strongest bin at %.2f Hz, mel %.1f\n", frequency,
         kel_nn_mel_filter((int32_t)(frequency / 31.25) + 1, cfg->fbank.fres));
  printf("of a vocal tract a tenth shorter, at %.2f Hz\n",
         kel_nn_warp_freq(100, 7000, (float)frequency, 0, 8000, 0.9f));
  cfg->fbank_out[0] = kChannels;
  kel_nn_wave_to_filter_bank(cfg->frame, cfg->fbank_out, cfg->fbank);
  for (int c = 2; c <= kChannels; ++c) {
    if (cfg->fbank_out[c] > cfg->fbank_out[loudest]) loudest = c;
  }
  printf("loudest channel %d of %d\n", loudest, kChannels);
}

/* Every frame, its row, and the mean of each channel taken off: the matrix that becomes bytes. */
static void compute_window(kel_nn_mfcc_t* context) {
  context->wave.position = 0;
  for (int32_t row = 0; row < context->wave.n_frames; ++row) {
    context->cfg.frame[0] = kFrameSize;
    kel_nn_get_wave(context->cfg.frame + 1, &context->wave);
    kel_nn_convert_frame(&context->cfg, &context->wave, context->window);
    kel_nn_link_data(&context->cfg, &context->wave, row);
  }
  kel_nn_zeromean(&context->wave);
}

static uint8_t byte_of(float value) {
  if (value > 28.0f) return 255;
  if (value < -28.0f) return 0;
  return (uint8_t)((double)value * 4.5714 + 128.0);
}

int main(int argc, char** argv) {
  static int16_t pcm[kSamples];
  kel_nn_mfcc_t *library = NULL, by_hand;
  const double frequency = argc == 2 ? atof(argv[1]) : 0;
  int differences = 0;
  if (!(frequency >= 50 && frequency <= 7900)) {
    fprintf(stderr, "usage: %s FREQUENCY   (50 to 7900 Hz)\n", argv[0]);
    return 2;
  }
  for (int i = 0; i < kSamples; ++i) {
    pcm[i] = (int16_t)(8000 * sin(6.283185307179586 * frequency * i / 16000) * (1 + i / 48000.0));
  }

  /* A context by hand: settings, memory, window, filter bank. */
  memset(&by_hand, 0, sizeof(by_hand));
  kel_nn_mfcc_para_init(&by_hand, 0, 160, kFrameSize, kSamples, 0);
  if (!kel_nn_mfcc_mem_malloc(&by_hand) || kel_nn_mfcc_create(&library, 16000, 0) != 0) return 1;
  memcpy(by_hand.window, library->window, (kFrameSize + 1) * sizeof(float));
  by_hand.cfg.frame_size = kFrameSize;
  kel_nn_filter_bank_init(&by_hand.cfg, &by_hand.cfg.fbank);

  kel_nn_load_data(pcm, &by_hand.wave);
  show_one_frame(&by_hand);
  compute_window(&by_hand);
  kel_nn_mfcc_process(library, pcm);
  for (int i = 0; i < by_hand.wave.n_frames * kChannels; ++i) {
    differences += byte_of(by_hand.wave.features[i]) != library->feature_u8[i];
  }
  printf("%d of %d bytes differ from the library's\n", differences,
         by_hand.wave.n_frames * kChannels);
  kel_nn_mfcc_mem_free(&by_hand);
  kel_nn_mfcc_destory(&library);
  return differences == 0 ? 0 : 1;
}
