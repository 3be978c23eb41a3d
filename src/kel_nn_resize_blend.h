// The second half of bilinear resizing: two horizontally scaled rows become a destination row.
#ifndef KEL_NN_RESIZE_BLEND_H_
#define KEL_NN_RESIZE_BLEND_H_

#include <cstddef>
#include <cstdint>

namespace kelnn {

constexpr int kBlock = 16;  // values that are scaled and blended at once

inline uint8_t blended(int scaled0, int scaled1, int b0, int b1) {
  return static_cast<uint8_t>((((scaled0 * b0) >> 16) + ((scaled1 * b1) >> 16) + 2) >> 2);
}

// `count` values of `row`. Scaled rows hold whole blocks, of which each is `block_step` values
// after the one before.
void blend_row(const int16_t* scaled0, const int16_t* scaled1, ptrdiff_t block_step, int16_t b0,
               int16_t b1, uint8_t* row, int count);

}  // namespace kelnn

#endif  // KEL_NN_RESIZE_BLEND_H_
