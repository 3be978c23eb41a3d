// SPDX-License-Identifier: Apache-2.0
// Bilinear resizing of 8-bit images in fixed point. Each source row is scaled horizontally, into 16
// bits with 7 below the point, and two such rows are blended into a destination row:
//
//     scaled = (left * a0 + right * a1) >> 4
//     pixel = (((scaled * b0) >> 16) + ((scaled below * b1) >> 16) + 2) >> 2
//
// Here pixel by pixel, which is what a camera runs; with AVX2, kel_nn_resize_windows.cpp comes first.
// Both work on tiles of columns: the scratch is small whatever the width, and not from the heap.
#include "kel_nn_resize.h"

#include <cstring>

#include "kel_nn.h"
#include "kel_nn_compiler.h"

namespace kelnn {
namespace {

// ----- Weights 0 and 1 only ----------------------------------------------------------------------

template <int kChannels>
void pick_row(const uint8_t* source, ptrdiff_t step_bytes, uint8_t* row, int width) {
  // Three bytes go as four: the fourth is overwritten by the next pixel, which there must be.
  constexpr int kCopy = kChannels == 3 ? kChannels + 1 : kChannels;
  for (; width > 4; width -= 4, source += 4 * step_bytes, row += 4 * kChannels) {
    // One by one: as a loop they would not be unrolled, which takes half as long again.
    std::memcpy(row, source, kCopy);
    std::memcpy(row + kChannels, source + step_bytes, kCopy);
    std::memcpy(row + 2 * kChannels, source + 2 * step_bytes, kCopy);
    std::memcpy(row + 3 * kChannels, source + 3 * step_bytes, kCopy);
  }
  for (; width > 0; --width, source += step_bytes, row += kChannels) {
    std::memcpy(row, source, kChannels);
  }
}

constexpr decltype(&pick_row<1>) kPickRow[] = {pick_row<1>, pick_row<2>, pick_row<3>, pick_row<4>};

void pick(int channels, const Source& source, const Axis& columns, const Axis& rows,
          const Destination& to) {
  const ptrdiff_t step_bytes = static_cast<ptrdiff_t>(columns.step()) * channels;
  const ptrdiff_t first_byte = static_cast<ptrdiff_t>(columns.step() / 2) * channels;
  for (int y = 0; y < to.height; ++y) {
    const uint8_t* from = source.row(y * rows.step() + rows.step() / 2) + first_byte;
    if (columns.step() == 1) {
      std::memcpy(to.row(y), from, static_cast<size_t>(to.width) * static_cast<size_t>(channels));
    } else {
      kPickRow[channels - 1](from, step_bytes, to.row(y), to.width);
    }
  }
}

// ----- Pixel by pixel ----------------------------------------------------------------------------

constexpr int kGroup = 4;  // columns that one turn of a loop makes
constexpr int kMaxChannels = 4;
constexpr int kTileValues = 1024;  // of a row

struct Column {
  ptrdiff_t offset;  // of the left sample in a source row, in bytes
  int16_t a0, a1;
};

// A destination row, or a part of it: where it comes from and goes to.
struct RowTask {
  int channels, group_count;
  const Column* columns;
  const uint8_t *upper, *lower;  // source rows
  int16_t *scaled0, *scaled1;    // the same rows, scaled
  int b0, b1;
  uint8_t* row;
};

inline uint8_t blended(int scaled0, int scaled1, int b0, int b1) {
  return static_cast<uint8_t>((((scaled0 * b0) >> 16) + ((scaled1 * b1) >> 16) + 2) >> 2);
}

// Scales the lower source row, and the upper one too if it has not been scaled before.
template <int kChannels, bool kScalesUpper>
void resize_groups(const RowTask& task) {
  RowTask now = task;
  const ptrdiff_t to_upper = now.upper - now.lower;
  const auto make_pixel = [&](const Column& column) KEL_NN_INLINED {
    const int a0 = column.a0, a1 = column.a1;
    const uint8_t* lower = now.lower + column.offset;
    const uint8_t* upper = lower + to_upper;
    for (int k = 0; k < kChannels; ++k) {
      int upper_value = *now.scaled0;
      if (kScalesUpper) {
        upper_value = (upper[k] * a0 + upper[kChannels + k] * a1) >> 4;
        *now.scaled0 = static_cast<int16_t>(upper_value);
      }
      const int lower_value = (lower[k] * a0 + lower[kChannels + k] * a1) >> 4;
      *now.scaled1++ = static_cast<int16_t>(lower_value);
      *now.row++ = blended(upper_value, lower_value, now.b0, now.b1);
      ++now.scaled0;
    }
  };
  // What a turn of the loop costs by itself is much for a pixel of 1 or 2 channels, and little for others.
  constexpr int kTurn = kChannels <= 2 ? kGroup : kGroup / 2;
  for (const Column* const end = now.columns + now.group_count * kGroup; now.columns != end;
       now.columns += kTurn) {
    make_pixel(now.columns[0]);
    make_pixel(now.columns[1]);
    if (kTurn < kGroup) continue;
    make_pixel(now.columns[2]);
    make_pixel(now.columns[3]);
  }
}

// Both source rows have been scaled before.
void blend_groups(const RowTask& task) {
  const int b0 = task.b0, b1 = task.b1;
  const int16_t *scaled0 = task.scaled0, *scaled1 = task.scaled1;
  uint8_t* row = task.row;
  for (uint8_t* const end = row + task.group_count * kGroup * task.channels; row != end;) {
    for (int i = 0; i < kGroup; ++i) *row++ = blended(*scaled0++, *scaled1++, b0, b1);
  }
}

using GroupFunction = decltype(&blend_groups);
constexpr GroupFunction kResizeGroups[kMaxChannels][2] = {
    {resize_groups<1, false>, resize_groups<1, true>},
    {resize_groups<2, false>, resize_groups<2, true>},
    {resize_groups<3, false>, resize_groups<3, true>},
    {resize_groups<4, false>, resize_groups<4, true>},
};

// There is a whole group of columns at the end, and of scaled values, but not of the row.
void make_row(GroupFunction make_groups, RowTask task, int width) {
  const int rest = width % kGroup, whole = width - rest;
  task.group_count = whole / kGroup;
  make_groups(task);
  if (rest == 0) return;
  uint8_t last[kGroup * kMaxChannels];
  uint8_t* const row = task.row + whole * task.channels;
  task.group_count = 1;
  task.columns += whole;
  task.scaled0 += whole * task.channels;
  task.scaled1 += whole * task.channels;
  task.row = last;
  make_groups(task);
  std::memcpy(row, last, static_cast<size_t>(rest * task.channels));
}

KEL_NN_NEVER_INLINE void resize_by_pixels(int channels, const Source& source, const Axis& columns,
                                          const Axis& rows, const Destination& to) {
  Column tile[kTileValues];
  int16_t scaled[2][kTileValues];
  const int tile_width = kTileValues / channels / kGroup * kGroup;
  for (int x = 0, left = to.width, width; left > 0; x += width, left -= width) {
    width = std::min(left, tile_width);
    for (int i = 0; i < width || i % kGroup != 0; ++i) {
      const Tap tap = columns.tap(x + std::min(i, width - 1));
      tile[i] = {static_cast<ptrdiff_t>(tap.first) * channels, tap.weight0, tap.weight1};
    }
    // Source row y is scaled into scaled[y % 2] and stays there until row y + 2 comes.
    int previous = -2;
    for (int y = 0; y < to.height; ++y) {
      const Tap tap = rows.tap(y);
      RowTask task;
      task.channels = channels;
      task.columns = tile;
      task.upper = source.row(tap.first);
      task.lower = source.row(tap.first + 1);
      task.scaled0 = scaled[tap.first % 2];
      task.scaled1 = scaled[1 - tap.first % 2];
      task.b0 = tap.weight0;
      task.b1 = tap.weight1;
      task.row = to.row(y) + static_cast<ptrdiff_t>(x) * channels;
      const auto resize_groups = kResizeGroups[channels - 1][tap.first != previous + 1];
      make_row(tap.first == previous ? blend_groups : resize_groups, task, width);
      previous = tap.first;
    }
  }
}

// ----- One image ---------------------------------------------------------------------------------

bool can_resize(int channels, const Source& source, const Destination& to) {
  const ptrdiff_t max_width = std::numeric_limits<ptrdiff_t>::max() / channels;
  return source.pixels && to.pixels && source.width >= 2 && source.width <= kMaxSize &&
         source.width <= max_width && source.height >= 2 && source.height <= kMaxSize &&
         to.width >= 1 && to.width <= kMaxSize && to.width <= max_width && to.height >= 1 &&
         to.height <= kMaxSize;
}

KEL_NN_NEVER_INLINE void resize(int channels, const Source& source, const Destination& to) {
  if (!can_resize(channels, source, to)) return;
  const Axis columns(source.width, to.width), rows(source.height, to.height);
  if (columns.only_picks() && rows.only_picks()) {
    pick(channels, source, columns, rows, to);
  } else if (!resize_by_windows(channels, source, columns, rows, to)) {
    resize_by_pixels(channels, source, columns, rows, to);
  }
}

// Not as an int, which the sizes that are allowed are too large for.
ptrdiff_t packed_stride(int width, int channels) {
  return static_cast<ptrdiff_t>(static_cast<size_t>(width) * static_cast<size_t>(channels));
}

}  // namespace
}  // namespace kelnn

using kelnn::resize;

void resize_bilinear_c1(const uint8_t* src, int srcw, int srch, int srcstride, uint8_t* dst, int w,
                        int h, int stride) {
  resize(1, {src, srcw, srch, srcstride}, {dst, w, h, stride});
}

void resize_bilinear_c2(const uint8_t* src, int srcw, int srch, int srcstride, uint8_t* dst, int w,
                        int h, int stride) {
  resize(2, {src, srcw, srch, srcstride}, {dst, w, h, stride});
}

void resize_bilinear_c3(const uint8_t* src, int srcw, int srch, int srcstride, uint8_t* dst, int w,
                        int h, int stride) {
  resize(3, {src, srcw, srch, srcstride}, {dst, w, h, stride});
}

void resize_bilinear_c4(const uint8_t* src, int srcw, int srch, int srcstride, uint8_t* dst, int w,
                        int h, int stride) {
  resize(4, {src, srcw, srch, srcstride}, {dst, w, h, stride});
}

void resize_bilinear_yuv420sp(const uint8_t* src, int srcw, int srch, uint8_t* dst, int w, int h) {
  if (!src || !dst || srcw <= 0 || srch <= 0 || w <= 0 || h <= 0) return;
  const size_t source_luma_size = static_cast<size_t>(srcw) * static_cast<size_t>(srch);
  const size_t luma_size = static_cast<size_t>(w) * static_cast<size_t>(h);
  resize_bilinear_c1(src, srcw, srch, srcw, dst, w, h, w);
  resize_bilinear_c2(src + source_luma_size, srcw / 2, srch / 2, srcw, dst + luma_size, w / 2,
                     h / 2, w);
}

int kel_nn_pixel_resize_bilinear(const uint8_t* src, int srcw, int srch, uint8_t* dst, int w, int h,
                                 int channels) {
  if (channels >= 1 && channels <= kelnn::kMaxChannels) {
    resize(channels, {src, srcw, srch, kelnn::packed_stride(srcw, channels)},
           {dst, w, h, kelnn::packed_stride(w, channels)});
  }
  return -1;  // after a successful resize too: the interface says so
}

int kel_nn_pixel_resize_bilinear_nv12(const uint8_t* src, int srcw, int srch, uint8_t* dst, int w,
                                      int h) {
  resize_bilinear_yuv420sp(src, srcw, srch, dst, w, h);
  return 0;
}
