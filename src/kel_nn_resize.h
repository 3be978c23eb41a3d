// SPDX-License-Identifier: Apache-2.0
// What both ways of resizing share: the images, and where destination columns and rows come from.
#ifndef KEL_NN_RESIZE_H_
#define KEL_NN_RESIZE_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "kel_nn_float_rules.h"

namespace kelnn {

template <typename Byte>
struct Picture {
  Byte* pixels;
  int width, height;
  ptrdiff_t stride_bytes;

  Byte* row(int y) const { return pixels + stride_bytes * y; }
};
using Source = Picture<const uint8_t>;
using Destination = Picture<uint8_t>;

constexpr int kOne = 2048;  // weights have 11 bits below the point
constexpr int kMaxSize = std::numeric_limits<int>::max() - 127;  // its float fits an int

// The two neighbouring source columns (or rows) of a destination column, and their weights. Each
// weight is rounded on its own: they add up to 2048 or to 2049.
struct Tap {
  int first;
  int16_t weight0, weight1;
};

class Axis {
 public:
  Axis(int source_size, int size)
      : source_size_(source_size),
        step_(size != 0 && source_size % size == 0 ? source_size / size : 0),
        scale_(static_cast<double>(source_size) / size) {}

  // Minimum, maximum and masks instead of branches, so that a loop over it becomes SIMD.
  Tap tap(int position) const {
    // Rounded to float before it is split: that decides which weight a column far right gets.
    const float center = static_cast<float>((position + 0.5) * scale_ - 0.5);
    const int whole = static_cast<int>(center);
    // Left of the first centre whole is 0, and the fraction negative.
    const float fraction = center - static_cast<float>(whole);
    const int weight0 = std::min(fixed_point(1.0f - fraction), kOne);
    const int weight1 = std::max(fixed_point(fraction), 0);
    const int beyond = -static_cast<int>(whole >= source_size_ - 1);  // all bits or none
    return {whole + (beyond & (source_size_ - 2 - whole)), static_cast<int16_t>(weight0 & ~beyond),
            static_cast<int16_t>((weight1 & ~beyond) | (kOne & beyond))};
  }

  // Every destination pixel is one source pixel: the scale is odd, and the centres are exact in
  // single precision. Pixel i is then step() * i + step() / 2.
  bool only_picks() const { return step_ % 2 == 1 && source_size_ <= 1 << 24; }
  int step() const { return step_; }

 private:
  // Rounds half up. In single precision, what is just below a half would become one.
  static int fixed_point(float weight) { return static_cast<int>(weight * kOne + 0.5); }

  int source_size_;
  int step_;  // 0: not a whole number
  double scale_;
};

// Consecutive taps of an axis, computed together.
template <int kMaxSize>
class TapTable {
 public:
  void fill(const Axis& of, int position, int size) {
    const Axis axis = of;  // which the table does not overlap
    for (int i = 0; i < size; ++i) {
      const Tap tap = axis.tap(position + i);
      first_[i] = tap.first;
      weight0_[i] = tap.weight0;
      weight1_[i] = tap.weight1;
    }
  }
  Tap operator[](int i) const { return {first_[i], weight0_[i], weight1_[i]}; }

 private:
  int first_[kMaxSize];
  int16_t weight0_[kMaxSize], weight1_[kMaxSize];
};

// With AVX2. Returns false, whatever it has written, where the processor cannot, a source row is
// shorter than a window or the samples of neighbouring columns lie too far apart.
bool resize_by_windows(int channels, const Source& source, const Axis& columns, const Axis& rows,
                       const Destination& to);

}  // namespace kelnn

#endif  // KEL_NN_RESIZE_H_
