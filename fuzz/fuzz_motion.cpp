// SPDX-License-Identifier: Apache-2.0
// The motion filter through restarts, frames of other sizes and any ratios and periods, beside the plain twin.
#include <memory>

#include "support/input.h"
#include "support/plain_pir_filter.h"

using namespace kelnn_fuzz;

static const kel_nn_handle_t handle = kel_nn_handle_create();

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const int width = 3 + input.side(67), height = 3 + input.side(37);
  EXPECT(kel_nn_pir_filter_init(handle, width, height) == 0);
  auto plain = std::make_unique<kelnn_test::PlainPirFilter>(width, height);
  const int period = input.number(1, 6);
  const float ratio =
      input.yes() ? input.ConsumeFloatingPointInRange(0.0f, 100.0f) : input.any_float();
  // A product beyond an int is not the twin's to truncate.
  const bool is_usual = std::fabs(ratio) < 1e6f;
  for (int frame = input.number(1, 14); frame > 0; --frame) {
    int32_t result = -7, wanted = -7;
    switch (input.number(0, 15)) {
      case 0:
        EXPECT(kel_nn_pir_filter_init(handle, width, height) == 0);
        plain = std::make_unique<kelnn_test::PlainPirFilter>(width, height);
        break;
      case 1: {
        const std::vector<uint8_t> other(1);
        EXPECT(kel_nn_pir_filter_process(handle, other.data(),
                                         input.ConsumeIntegral<int32_t>() | 0x100, height, ratio,
                                         period, &result) != 0);
        break;
      }
      default: {
        const std::vector<uint8_t> image = input.bytes(static_cast<size_t>(width) * height);
        EXPECT(kel_nn_pir_filter_process(handle, image.data(), width, height, ratio, period,
                                         &result) == 0);
        if (!is_usual) break;
        plain->process(image.data(), ratio, period, &wanted);
        EXPECT(result == wanted);
      }
    }
  }
  if (input.yes()) EXPECT(kel_nn_pir_filter_deinit(handle) == 0);
  return 0;
}
