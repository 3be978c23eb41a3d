// SPDX-License-Identifier: Apache-2.0
// Views, rectangles and images that the C++ objects are given: what does not fit is an error, and nothing is read beyond it.
#include <kel_nn.hpp>

#include "support/input.h"

using namespace kelnn_fuzz;

namespace {

kel_nn::Frame frame_of(Input& input, std::vector<uint8_t>* pixels) {
  const int width = input.number(-1, 90), height = input.number(-1, 90),
            pad = input.yes() ? input.number(-2, 30) : 0;
  const int kind = input.number(0, 3);
  const int row = kind == 0 ? width : kind == 3 ? (width + 1) / 2 * 2 : 3 * width;
  const int stride = pad ? row + pad : 0;
  const int rows = height + (kind == 3 ? (height + 1) / 2 : 0);
  *pixels =
      input.bytes(static_cast<size_t>(std::max(1, row + std::max(pad, 0))) * std::max(1, rows));
  switch (kind) {
    case 0:
      return kel_nn::Frame::grey(pixels->data(), width, height, stride);
    case 1:
      return kel_nn::Frame::rgb(pixels->data(), width, height, stride);
    case 2:
      return kel_nn::Frame::bgr(pixels->data(), width, height, stride);
    default:
      return kel_nn::Frame::nv12(pixels->data(), width, height, stride);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  std::vector<uint8_t> pixels;
  try {
    const kel_nn::Frame frame = frame_of(input, &pixels);
    kel_nn::Image image({input.number(1, 112), input.number(1, 112)},
                        input.yes() ? KEL_NN_KIT_GREY : KEL_NN_KIT_RGB);
    kel_nn::Rect rect = {input.number(-40, 100), input.number(-40, 100), input.number(-3, 120),
                         input.number(-3, 120)};
    if (input.number(0, 7) == 0) rect.w = input.ConsumeIntegral<int>();
    std::array<float, 10> points;
    for (float& point : points)
      point = input.yes() ? static_cast<float>(input.number(-20, 110)) : input.any_float();
    switch (input.number(0, 4)) {
      case 0:
        image.scale(frame);
        break;
      case 1:
        image.letterbox(frame);
        break;
      case 2:
        image.crop(frame, rect);
        break;
      case 3:
        image.align(frame, points);
        break;
      default:
        image.crop(frame, frame.whole());
    }
  } catch (const kel_nn::Error& error) {
    EXPECT(error.what()[0] != '\0');
  }
  return 0;
}
