// SPDX-License-Identifier: Apache-2.0
// Resizing of any size, number of channels and stride, beside the plain twin; what lies between rows stays as it is.
#include "support/input.h"
#include "support/plain_resize.h"

using namespace kelnn_fuzz;

namespace {

constexpr int kMostSide = 300;

void with_strides(Input& input) {
  constexpr decltype(&resize_bilinear_c1) kResize[] = {resize_bilinear_c1, resize_bilinear_c2,
                                                       resize_bilinear_c3, resize_bilinear_c4};
  const int channels = input.number(1, 4);
  const int source_width = input.side(kMostSide), source_height = input.side(kMostSide),
            width = input.side(kMostSide), height = input.side(kMostSide);
  const int source_stride = source_width * channels + input.number(0, 9),
            stride = width * channels + input.number(0, 9);
  // Not more than the last row's pixels: what is read or written behind them is seen.
  const auto size = [&](int w, int h, int s) {
    return static_cast<size_t>(s) * (h - 1) + w * channels;
  };
  const std::vector<uint8_t> source = input.bytes(size(source_width, source_height, source_stride));
  std::vector<uint8_t> resized(size(width, height, stride), 0xa5), plain = resized;
  kResize[channels - 1](source.data(), source_width, source_height, source_stride, resized.data(),
                        width, height, stride);
  if (source_width >= 2 && source_height >= 2) {
    kelnn_test::plain_resize(channels, source.data(), source_width, source_height, source_stride,
                             plain.data(), width, height, stride);
  }
  EXPECT(resized == plain);
}

void nv12(Input& input) {
  const int source_width = input.side(kMostSide), source_height = input.side(kMostSide),
            width = input.side(kMostSide), height = input.side(kMostSide);
  const auto size = [](int w, int h) { return static_cast<size_t>(w) * (h + h / 2); };
  const std::vector<uint8_t> source = input.bytes(size(source_width, source_height));
  std::vector<uint8_t> resized(size(width, height), 0xa5);
  resize_bilinear_yuv420sp(source.data(), source_width, source_height, resized.data(), width,
                           height);
  std::vector<uint8_t> again(resized.size(), 0xa5);
  EXPECT(kel_nn_pixel_resize_bilinear_nv12(source.data(), source_width, source_height, again.data(),
                                           width, height) == 0);
  EXPECT(resized == again);
}

// Sizes that nobody has memory for: nothing is written.
void absurd(Input& input) {
  uint8_t pixels[64] = {};
  const int sides[] = {0, -1, 1, 0x7fffffff, -0x7fffffff - 1};
  const int a = sides[input.number(0, 4)], b = sides[input.number(0, 4)];
  kel_nn_pixel_resize_bilinear(pixels, a, b, nullptr, 4, 4, input.number(-1, 5));
  kel_nn_pixel_resize_bilinear(nullptr, 4, 4, pixels, a, b, input.number(-1, 5));
  if (a <= 1 || b <= 1) {
    std::vector<uint8_t> out(16, 7);
    EXPECT(kel_nn_pixel_resize_bilinear(pixels, a, b, out.data(), 4, 4, 1) == -1);
    EXPECT(out == std::vector<uint8_t>(16, 7));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  switch (input.number(0, 9)) {
    case 0:
      absurd(input);
      break;
    case 1:
    case 2:
      nv12(input);
      break;
    default:
      with_strides(input);
  }
  return 0;
}
