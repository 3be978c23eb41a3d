// SPDX-License-Identifier: Apache-2.0
// A bright square appears, and "moved 1" is printed; in C++, with the kit linked as well.
#include <cstdio>
#include <kel_nn.hpp>
#include <vector>

int main() {
  const kel_nn::Library library("models");
  kel_nn::MotionFilter filter(library, 1.0f, 4);
  for (int i = 0; i < 4; ++i) {
    const std::vector<uint8_t> luma(64 * 48, i % 2 ? 200 : 20);
    if (const auto moved = filter.take(luma.data(), {64, 48})) std::printf("moved %d\n", *moved);
  }
  return kel_nn_kit_detector_input(1920, 1080).w == 416 ? 0 : 1;
}
