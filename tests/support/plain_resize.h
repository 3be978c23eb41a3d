// SPDX-License-Identifier: Apache-2.0
// Bilinear resizing as one would first write it: the twin that the library's is compared with, bit
// for bit in the tests and in time in the benchmarks.
#ifndef KEL_NN_TESTS_PLAIN_RESIZE_H_
#define KEL_NN_TESTS_PLAIN_RESIZE_H_

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace kelnn_test {

struct PlainTap {
  int offset;
  short weight0, weight1;
};

inline short to_short(float value) {
  const double rounded = std::trunc(value < 0.0f ? value - 0.5 : value + 0.5);
  return rounded < -32768 ? -32768 : rounded > 32767 ? 32767 : static_cast<short>(rounded);
}

inline std::vector<PlainTap> plain_taps(int source_size, int size, int step) {
  const double scale = static_cast<double>(source_size) / size;
  std::vector<PlainTap> taps;
  for (int i = 0; i < size; ++i) {
    float fraction = static_cast<float>((i + 0.5) * scale - 0.5);
    int first = static_cast<int>(std::floor(fraction));
    fraction -= static_cast<float>(first);
    if (first < 0) {
      first = 0;
      fraction = 0;
    }
    if (first >= source_size - 1) {
      first = source_size - 2;
      fraction = 1;
    }
    taps.push_back({first * step, to_short((1 - fraction) * 2048), to_short(fraction * 2048)});
  }
  return taps;
}

template <int kChannels>
void plain_scale_row(const uint8_t* source, const std::vector<PlainTap>& columns, short* scaled) {
  for (const PlainTap& column : columns) {
    const uint8_t* left = source + column.offset;
    for (int k = 0; k < kChannels; ++k) {
      *scaled++ = static_cast<short>(
          (left[k] * column.weight0 + left[kChannels + k] * column.weight1) >> 4);
    }
  }
}

template <int kChannels>
void plain_resize(const uint8_t* source, int source_width, int source_height,
                  ptrdiff_t source_stride, uint8_t* destination, int width, int height,
                  ptrdiff_t stride) {
  const std::vector<PlainTap> columns = plain_taps(source_width, width, kChannels);
  const std::vector<PlainTap> rows = plain_taps(source_height, height, 1);
  const size_t value_count = static_cast<size_t>(width) * kChannels;
  std::vector<short> upper(value_count), lower(value_count);
  int previous = -2;
  for (int y = 0; y < height; ++y) {
    const PlainTap& row = rows[static_cast<size_t>(y)];
    const uint8_t* first = source + source_stride * row.offset;
    if (row.offset == previous + 1) {
      std::swap(upper, lower);
      plain_scale_row<kChannels>(first + source_stride, columns, lower.data());
    } else if (row.offset != previous) {
      plain_scale_row<kChannels>(first, columns, upper.data());
      plain_scale_row<kChannels>(first + source_stride, columns, lower.data());
    }
    previous = row.offset;
    uint8_t* to = destination + stride * y;
    for (size_t i = 0; i < value_count; ++i) {
      to[i] = static_cast<uint8_t>(
          (((upper[i] * row.weight0) >> 16) + ((lower[i] * row.weight1) >> 16) + 2) >> 2);
    }
  }
}

inline void plain_resize(int channels, const uint8_t* source, int source_width, int source_height,
                         ptrdiff_t source_stride, uint8_t* destination, int width, int height,
                         ptrdiff_t stride) {
  const auto resize = channels == 1   ? plain_resize<1>
                      : channels == 2 ? plain_resize<2>
                      : channels == 3 ? plain_resize<3>
                                      : plain_resize<4>;
  resize(source, source_width, source_height, source_stride, destination, width, height, stride);
}

}  // namespace kelnn_test

#endif  // KEL_NN_TESTS_PLAIN_RESIZE_H_
