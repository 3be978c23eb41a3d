// SPDX-License-Identifier: Apache-2.0
// Cry detection fed with chunks of any length, and the audio front end with any settings; the features of whole windows
// beside the plain twin.
#include "support/input.h"
#include "support/plain_filter_bank.h"
#include "support/scripted_runtime.h"
#include "support/tasks.h"

using namespace kelnn_fuzz;
using namespace kelnn_test;

namespace {

constexpr uint32_t kWindow = 48000;
const kel_nn_handle_t handle = handle_with_models();

std::vector<int16_t> samples(Input& input, size_t count) {
  std::vector<int16_t> pattern(input.number<size_t>(1, 100));
  for (int16_t& sample : pattern) sample = input.ConsumeIntegral<int16_t>();
  return input.block(count, std::move(pattern));
}

// Windows and what is left of them are counted beside the library.
void chunks(Input& input) {
  scripted_runtime().play({64, 297, 1}, {{input.usual_float(), input.usual_float()}});
  EXPECT(kel_nn_crydet_init(handle, 16000, input.any_float()) == 0);
  uint32_t filled = 0;
  for (int chunk = input.number(1, 8); chunk > 0; --chunk) {
    const uint32_t count =
        input.yes() ? input.number(1u, 20000u) : input.number(1u, kWindow + 5000);
    const std::vector<int16_t> pcm = samples(input, count);
    float score = -7;
    EXPECT(kel_nn_crydet_process(handle, pcm.data(), count, &score) == 0);
    filled += count;
    if (filled < kWindow) {
      EXPECT(score == -1);
    } else {
      EXPECT(score != -1 && score != -7);
      filled = 0;
    }
  }
  EXPECT(kel_nn_crydet_deinit(handle) == 0);
}

void window(Input& input) {
  static kel_nn_mfcc_t* context = nullptr;
  static PlainFilterBank plain(kWindow);
  if (!context) EXPECT(kel_nn_mfcc_create(&context, 16000, 0) == 0);
  const std::vector<int16_t> pcm = samples(input, kWindow);
  EXPECT(kel_nn_mfcc_process(context, pcm.data()) == 0);
  EXPECT((context->has_voice == 1) == plain.process(pcm.data()));
  if (context->has_voice) {
    EXPECT(std::memcmp(context->wave.features, plain.features.data(),
                       plain.features.size() * sizeof(float)) == 0);
    EXPECT(std::memcmp(context->feature_u8, plain.bytes.data(), plain.bytes.size()) == 0);
  }
}

void settings(Input& input) {
  kel_nn_mfcc_t* context = nullptr;
  const uint32_t rate = input.number(0u, 400u);
  if (kel_nn_mfcc_create(&context, rate, input.any_float()) != 0) return;
  if (input.yes()) {
    kel_nn_mfcc_mem_free(context);
    EXPECT(kel_nn_mfcc_para_init(context, input.number(-100, 5000), input.number(-3, 700),
                                 input.number(-1, 700), input.number(-1, 4000),
                                 input.any_float()) == 0);
    EXPECT(kel_nn_mfcc_mem_malloc(context));
    context->cfg.frame_size = context->wave.frame_size;
    kel_nn_filter_bank_init(&context->cfg, &context->cfg.fbank);
    context->gate_threshold = 0;
  }
  if (input.yes()) context->wave.position = input.ConsumeIntegral<int32_t>();
  const std::vector<int16_t> pcm =
      samples(input, static_cast<size_t>(std::max(context->wave.n_samples, 1)));
  input.yes() ? kel_nn_mfcc_process(context, pcm.data())
              : kel_nn_filter_bank(context, input.yes() ? pcm.data() : nullptr);
  EXPECT(kel_nn_mfcc_destory(&context) == 0 && !context);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  switch (input.number(0, 255)) {  // what takes longest least often
    case 255:
      window(input);
      break;
    case 254:
    case 253:
      chunks(input);
      break;
    default:
      settings(input);
  }
  return 0;
}
