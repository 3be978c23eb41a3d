#include "kel_nn_resize_blend.h"

#include <cstring>

#include "kel_nn_compiler.h"

namespace kelnn {
namespace {

// The int16_t in between is what makes the compiler multiply 16 bits by 16.
KEL_NN_TARGET_CLONES void blend_blocks(const int16_t* scaled0, const int16_t* scaled1,
                                       ptrdiff_t block_step, int16_t b0, int16_t b1,
                                       uint8_t* __restrict row, int block_count) {
  for (int block = 0; block < block_count; ++block) {
    for (int i = 0; i < kBlock; ++i) {
      const int16_t upper = static_cast<int16_t>((scaled0[i] * b0) >> 16);
      const int16_t lower = static_cast<int16_t>((scaled1[i] * b1) >> 16);
      row[i] = static_cast<uint8_t>((upper + lower + 2) >> 2);
    }
    scaled0 += block_step;
    scaled1 += block_step;
    row += kBlock;
  }
}

}  // namespace

void blend_row(const int16_t* scaled0, const int16_t* scaled1, ptrdiff_t block_step, int16_t b0,
               int16_t b1, uint8_t* row, int count) {
  const int whole = count / kBlock, rest = count % kBlock;
  blend_blocks(scaled0, scaled1, block_step, b0, b1, row, whole);
  if (rest != 0) {
    uint8_t last[kBlock];
    blend_blocks(scaled0 + whole * block_step, scaled1 + whole * block_step, block_step, b0, b1,
                 last, 1);
    std::memcpy(row + whole * kBlock, last, static_cast<size_t>(rest));
  }
}

}  // namespace kelnn
