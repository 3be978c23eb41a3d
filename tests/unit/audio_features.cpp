// SPDX-License-Identifier: Apache-2.0
// The library's side of compare_audio_features.py: windows of 48000 samples from standard input, for
// each a byte that says whether it is loud enough and 297 x 64 bytes to standard output.
#include <cstdio>
#include <vector>

#include "kel_nn.h"

int main() {
  kel_nn_mfcc_t* context = nullptr;
  if (kel_nn_mfcc_create(&context, 16000, 0.0f) != 0) return 1;
  std::vector<int16_t> pcm(static_cast<size_t>(context->wave.n_samples));
  const size_t size = static_cast<size_t>(context->wave.n_frames) * 64;
  while (std::fread(pcm.data(), sizeof(int16_t), pcm.size(), stdin) == pcm.size()) {
    if (kel_nn_mfcc_process(context, pcm.data()) != 0) return 1;
    std::putchar(context->has_voice);
    if (std::fwrite(context->feature_u8, 1, size, stdout) != size) return 1;
  }
  kel_nn_mfcc_destory(&context);
  return 0;
}
