// Bilinear resizing of 8-bit images in fixed point. Each source row is scaled horizontally, into 16
// bits with 7 below the point, and two such rows are blended into a destination row:
//
//     scaled = (left * a0 + right * a1) >> 4
//     pixel = (((scaled * b0) >> 16) + ((scaled below * b1) >> 16) + 2) >> 2
//
// A column's samples lie anywhere in a row, which vector units cannot load at once. Where there is
// one, RowBatch therefore scales 8 or 16 rows together and transposes them, so that a vector holds
// one column of all the rows: one address, one weight. Elsewhere RowPair does what the formulas
// say. On a PC, kel_nn_resize_windows.h comes first. All work on tiles of columns, so the scratch is
// small whatever the width; the heap is not used.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "kel_nn.h"
#include "kel_nn_compiler.h"
#include "kel_nn_resize_axis.h"
#include "kel_nn_resize_blend.h"
#include "kel_nn_resize_windows.h"

namespace kelnn {
namespace {

// ----- Weights 0 and 1 only ----------------------------------------------------------------------

template <int kChannels>
void pick_row(const uint8_t* source, int step, uint8_t* row, int width) {
  if (step == 1) {
    std::memcpy(row, source, static_cast<size_t>(width) * kChannels);
    return;
  }
  const ptrdiff_t step_bytes = static_cast<ptrdiff_t>(step) * kChannels;
  source += static_cast<ptrdiff_t>(step / 2) * kChannels;
  // Three bytes go as four: the fourth is overwritten by the next pixel, which there must be.
  constexpr int kCopy = kChannels == 3 ? kChannels + 1 : kChannels;
  for (; width > 4; width -= 4, source += 4 * step_bytes, row += 4 * kChannels) {
    std::memcpy(row, source, kCopy);
    std::memcpy(row + kChannels, source + step_bytes, kCopy);
    std::memcpy(row + 2 * kChannels, source + 2 * step_bytes, kCopy);
    std::memcpy(row + 3 * kChannels, source + 3 * step_bytes, kCopy);
  }
  for (; width > 0; --width, source += step_bytes, row += kChannels) {
    std::memcpy(row, source, kChannels);
  }
}

template <int kChannels>
void pick(const Source& source, const Axis& columns, const Axis& rows, const Destination& to) {
  for (int y = 0; y < to.height; ++y) {
    const int source_y = y * rows.step() + rows.step() / 2;
    pick_row<kChannels>(source.row(source_y), columns.step(), to.row(y), to.width);
  }
}

// ----- Row by row: processors without a vector unit ----------------------------------------------

template <int kChannels>
class RowPair {
 public:
  static void resize(const Source& source, const Axis& columns, const Axis& rows,
                     const Destination& to) {
    RowPair pair;
    for (int x = 0, left = to.width; left > 0; x += pair.width_, left -= pair.width_) {
      pair.plan(columns, x, std::min(left, int{kTileWidth}));
      pair.resize_tile(source, rows, to, x);
    }
  }

 private:
  static constexpr int kTileWidth = 1024 / kChannels;

  struct Column {
    ptrdiff_t offset;
    int16_t a0, a1;
  };

  void plan(const Axis& axis, int x, int width) {
    width_ = width;
    for (int i = 0; i < width; ++i) {
      const Tap tap = axis.tap(x + i);
      columns_[i] = {static_cast<ptrdiff_t>(tap.first) * kChannels, tap.weight0, tap.weight1};
    }
  }

  // Source row y is scaled into scaled_[y % 2] and stays there until row y + 2 comes.
  void resize_tile(const Source& source, const Axis& rows, const Destination& to, int x) {
    int previous = -2;
    for (int y = 0; y < to.height; ++y) {
      const Tap tap = rows.tap(y);
      const uint8_t* below = source.row(tap.first + 1);
      uint8_t* row = to.row(y) + static_cast<ptrdiff_t>(x) * kChannels;
      if (tap.first == previous) {
        resize_row<0>(below, source.stride_bytes, tap, row);
      } else if (tap.first == previous + 1) {
        resize_row<1>(below, source.stride_bytes, tap, row);
      } else {
        resize_row<2>(below, source.stride_bytes, tap, row);
      }
      previous = tap.first;
    }
  }

  // kFresh of the two source rows have not been scaled yet: none, the lower one or both.
  template <int kFresh>
  void resize_row(const uint8_t* below, ptrdiff_t stride_bytes, const Tap& tap, uint8_t* row) {
    int16_t* scaled0 = scaled_[tap.first % 2];
    int16_t* scaled1 = scaled_[1 - tap.first % 2];
    const int b0 = tap.weight0, b1 = tap.weight1;
    const Column* const end = columns_ + width_;
    KEL_NN_UNROLL_BY_4
    for (const Column* column = columns_; column != end; ++column) {
      const int a0 = column->a0, a1 = column->a1;
      const uint8_t* lower = below + column->offset;
      const uint8_t* upper = lower - stride_bytes;
      for (int k = 0; k < kChannels; ++k) {
        int upper_value, lower_value;
        if (kFresh == 2) {
          upper_value = (upper[k] * a0 + upper[kChannels + k] * a1) >> 4;
          scaled0[k] = static_cast<int16_t>(upper_value);
        } else {
          upper_value = scaled0[k];
        }
        if (kFresh >= 1) {
          lower_value = (lower[k] * a0 + lower[kChannels + k] * a1) >> 4;
          scaled1[k] = static_cast<int16_t>(lower_value);
        } else {
          lower_value = scaled1[k];
        }
        row[k] = blended(upper_value, lower_value, b0, b1);
      }
      scaled0 += kChannels;
      scaled1 += kChannels;
      row += kChannels;
    }
  }

  int width_ = 0;
  Column columns_[kTileWidth];
  int16_t scaled_[2][kTileWidth * kChannels];
};

// ----- Several rows at a time: processors with a vector unit -------------------------------------

#if KEL_NN_HAS_VECTORS

// kBlock values are a block's width, and one column of all rows of a batch.

// A unit is what moves as a whole when rows are transposed: a pixel of 1 or 2 channels. The
// three values of a 3-channel pixel are units of their own whose neighbours are 3 units away.
template <typename Unit>
struct RowBatchState {
  static constexpr int kRows = kBlock / static_cast<int>(sizeof(Unit));  // also a block's columns
  static constexpr int kSlots = 1 + kRows;
  static constexpr int kMaxColumns = 256;
  static constexpr int kMaxBlocks = kMaxColumns / kRows;
  static constexpr int kMaxSpan = 2 * kMaxColumns + 64;

  // A column's two samples in `transposed`, in units. Near is the one with the larger weight.
  struct Column {
    uint16_t near, far;
  };

  alignas(32) int16_t weights[kMaxColumns][kBlock];  // -32 times that of far, for every value
  alignas(32) Unit transposed[kMaxSpan][kRows];
  // The last row of the batch before, then this batch's.
  alignas(32) int16_t scaled[kMaxBlocks][kSlots][kBlock];
  ptrdiff_t begin;                     // the first unit of a source row that is transposed
  ptrdiff_t left_offset[kMaxColumns];  // where span is 0: bytes in a source row
  ptrdiff_t right_offset;              // of the right sample from the left one
  int span;                            // units that are transposed; 0: the two of each column
  int column_count;                    // rounded up to whole blocks
  int heavy_count;
  uint16_t heavy[kMaxColumns];  // the columns whose weights add up to 2049
  Column columns[kMaxColumns];
};

template <typename Unit>
KEL_NN_ALWAYS_INLINE Unit load(const uint8_t* from) {
  Unit unit;
  std::memcpy(&unit, from, sizeof(unit));
  return unit;
}

// Unit i of every row becomes row i of `to`.
template <typename Unit>
KEL_NN_ALWAYS_INLINE void transpose(const uint8_t* const* rows, ptrdiff_t begin, int unit_count,
                                    Unit* __restrict to) {
  constexpr int kRows = RowBatchState<Unit>::kRows;
  const uint8_t* row[kRows];
  for (int r = 0; r < kRows; ++r) row[r] = rows[r] + begin * ptrdiff_t{sizeof(Unit)};
  for (int i = 0; i < unit_count; ++i) {
    for (int r = 0; r < kRows; ++r) {
      to[i * kRows + r] = load<Unit>(row[r] + static_cast<size_t>(i) * sizeof(Unit));
    }
  }
}

// Only what the columns need, where that is less than half of a row.
template <typename Unit>
KEL_NN_ALWAYS_INLINE void transpose_columns(RowBatchState<Unit>& batch,
                                            const uint8_t* const* rows) {
  for (int i = 0; i < batch.column_count; ++i) {
    for (int r = 0; r < RowBatchState<Unit>::kRows; ++r) {
      const uint8_t* left = rows[r] + batch.left_offset[i];
      batch.transposed[2 * i][r] = load<Unit>(left);
      batch.transposed[2 * i + 1][r] = load<Unit>(left + batch.right_offset);
    }
  }
}

// 128 times each value. A plain loop over bytes and 16-bit numbers would get vectors of 16 bytes
// also where the numbers fill one of 32.
KEL_NN_ALWAYS_INLINE void widen(const uint8_t* values, int16_t* __restrict wide) {
#if defined(__clang__) || __GNUC__ >= 9
  typedef uint8_t Bytes __attribute__((vector_size(kBlock)));
  typedef int16_t Numbers __attribute__((vector_size(kBlock * sizeof(int16_t))));
  Bytes bytes;
  std::memcpy(&bytes, values, sizeof(bytes));
  const Numbers numbers = __builtin_convertvector(bytes, Numbers) << 7;
  std::memcpy(wide, &numbers, sizeof(numbers));
#else
  for (int r = 0; r < kBlock; ++r) wide[r] = static_cast<int16_t>(values[r] << 7);
#endif
}

// 128 * near + (far - near) * weight / 16, rounded down, for a far sample of that weight. 16 bits
// are enough: the upper half of a product with -32 times the weight, which may be 1024.
KEL_NN_ALWAYS_INLINE void scale_column(const uint8_t* near, const uint8_t* far,
                                       const int16_t* weights, int16_t* __restrict scaled) {
  alignas(32) int16_t wide_near[kBlock], wide_far[kBlock];
  widen(near, wide_near);
  widen(far, wide_far);
  KEL_NN_KEEP_LOOP
  for (int r = 0; r < kBlock; ++r) {
    const int16_t difference = static_cast<int16_t>(wide_near[r] - wide_far[r]);
    scaled[r] =
        static_cast<int16_t>(wide_near[r] + static_cast<int16_t>((difference * weights[r]) >> 16));
  }
}

// The same where near weighs 2049 - weight: one more near / 16.
KEL_NN_ALWAYS_INLINE void scale_heavy_column(const uint8_t* near, const uint8_t* far, int weight,
                                             int16_t* __restrict scaled) {
  const int16_t high = static_cast<int16_t>(weight >> 4);
  const int16_t low = static_cast<int16_t>(weight & 15);
  KEL_NN_KEEP_LOOP
  for (int r = 0; r < kBlock; ++r) {
    const int16_t difference = static_cast<int16_t>(far[r] - near[r]);
    const int16_t whole = static_cast<int16_t>((near[r] << 7) + difference * high);
    const int16_t rest = static_cast<int16_t>(difference * low + near[r]);
    scaled[r] = static_cast<int16_t>(whole + (rest >> 4));
  }
}

template <typename Unit>
KEL_NN_ALWAYS_INLINE void scale_batch(RowBatchState<Unit>& batch, const uint8_t* const* rows) {
  constexpr int kRows = RowBatchState<Unit>::kRows;
  constexpr int kValues = static_cast<int>(sizeof(Unit));
  if (batch.span > 0) {
    transpose(rows, batch.begin, batch.span, batch.transposed[0]);
  } else {
    transpose_columns(batch, rows);
  }
  const uint8_t* const samples = reinterpret_cast<const uint8_t*>(batch.transposed);
  const uint16_t* heavy = batch.heavy;
  const uint16_t* const heavy_end = heavy + batch.heavy_count;
  for (int first = 0, block = 0; first < batch.column_count; first += kRows, ++block) {
    alignas(32) int16_t by_column[kRows][kBlock];
    for (int i = 0; i < kRows; ++i) {
      const typename RowBatchState<Unit>::Column& column = batch.columns[first + i];
      scale_column(samples + column.near * kBlock, samples + column.far * kBlock,
                   batch.weights[first + i], by_column[i]);
    }
    for (; heavy != heavy_end && *heavy < first + kRows; ++heavy) {
      const typename RowBatchState<Unit>::Column& column = batch.columns[*heavy];
      scale_heavy_column(samples + column.near * kBlock, samples + column.far * kBlock,
                         batch.weights[*heavy][0] / -32, by_column[*heavy - first]);
    }
    int16_t* __restrict by_row = batch.scaled[block][1];
    for (int r = 0; r < kRows; ++r) {
      for (int i = 0; i < kRows; ++i) {
        std::memcpy(by_row + r * kBlock + i * kValues, &by_column[i][r * kValues],
                    kValues * sizeof(int16_t));
      }
    }
  }
}

KEL_NN_TARGET_CLONES void scale_batch_of(RowBatchState<uint8_t>& batch,
                                         const uint8_t* const* rows) {
  scale_batch(batch, rows);
}
KEL_NN_TARGET_CLONES void scale_batch_of(RowBatchState<uint16_t>& batch,
                                         const uint8_t* const* rows) {
  scale_batch(batch, rows);
}

template <int kChannels>
class RowBatch {
 public:
  static void resize(const Source& source, const Axis& columns, const Axis& rows,
                     const Destination& to) {
    RowBatch batch;
    for (int y = 0, rows_left = to.height; rows_left > 0;) {
      const int height = std::min(rows_left, int{kTileHeight});
      batch.rows_.fill(rows, y, height);
      for (int x = 0, left = to.width; left > 0; x += batch.width_, left -= batch.width_) {
        batch.plan(source, columns, x, std::min(left, int{kTileWidth}));
        batch.resize_tile(source, to, x, y, height);
      }
      y += height;
      rows_left -= height;
    }
  }

 private:
  using Unit = std::conditional_t<kChannels == 2, uint16_t, uint8_t>;
  using State = RowBatchState<Unit>;
  static constexpr int kPixelUnits = kChannels / static_cast<int>(sizeof(Unit));
  // Whole blocks also where a pixel is three units.
  static constexpr int kTileWidth = State::kMaxColumns / kPixelUnits / kBlock * kBlock;
  static constexpr int kTileHeight = 512;

  void plan(const Source& source, const Axis& axis, int x, int width) {
    width_ = width;
    const ptrdiff_t row_units = static_cast<ptrdiff_t>(source.width) * kPixelUnits;
    TapTable<kTileWidth> taps;
    taps.fill(axis, x, width);
    const ptrdiff_t first = static_cast<ptrdiff_t>(taps[0].first) * kPixelUnits;
    const ptrdiff_t end = (static_cast<ptrdiff_t>(taps[width - 1].first) + 2) * kPixelUnits;
    // Whole vectors where the row is long enough, so that no column is transposed one by one.
    ptrdiff_t span = (end - first + 31) / 32 * 32;
    if (span > row_units) span = row_units;
    const bool dense = span <= State::kMaxSpan;
    state_.begin = std::min(first, row_units - span);
    state_.span = dense ? static_cast<int>(span) : 0;
    state_.right_offset = kChannels;

    state_.heavy_count = 0;
    int i = 0;
    for (int pixel = 0; pixel < width; ++pixel) {
      const Tap tap = taps[pixel];
      for (int k = 0; k < kPixelUnits; ++k, ++i) {
        const ptrdiff_t unit = static_cast<ptrdiff_t>(tap.first) * kPixelUnits + k;
        const int left = dense ? static_cast<int>(unit - state_.begin) : 2 * i;
        plan_column(i, tap, left, left + (dense ? kPixelUnits : 1));
        state_.left_offset[i] = unit * ptrdiff_t{sizeof(Unit)};
      }
    }
    for (; i % State::kRows != 0; ++i) plan_padding(i);
    state_.column_count = i;
  }

  void plan_column(int i, const Tap& tap, int left, int right) {
    const bool left_is_near = tap.weight0 >= tap.weight1;
    const int far_weight = left_is_near ? tap.weight1 : tap.weight0;
    state_.columns[i] = {static_cast<uint16_t>(left_is_near ? left : right),
                         static_cast<uint16_t>(left_is_near ? right : left)};
    if (tap.weight0 + tap.weight1 != kOne) {
      state_.heavy[state_.heavy_count++] = static_cast<uint16_t>(i);
    }
    for (int16_t& weight : state_.weights[i]) weight = static_cast<int16_t>(-32 * far_weight);
  }

  // Fills the last block up: nothing reads what comes out.
  void plan_padding(int i) {
    state_.columns[i] = state_.columns[i - 1];
    state_.left_offset[i] = state_.left_offset[i - 1];
    std::memcpy(state_.weights[i], state_.weights[i - 1], sizeof(state_.weights[i]));
  }

  // How many of the two source rows of a tap have not been scaled yet, if `newest` is the last one
  // that has been. Taps never go back.
  static int missing_rows(const Tap& tap, int newest) {
    return tap.first + 1 - std::max(newest, tap.first - 1);
  }

  // Destination rows y to y + height, which rows_ is about.
  void resize_tile(const Source& source, const Destination& to, int x, int y, int height) {
    int newest = -1, newest_slot = 0;
    for (int row = 0; row < height;) {
      // As many as need no more than kRows fresh source rows; the next needs at least one more.
      if (row > 0) keep(newest_slot);
      const uint8_t* fresh[State::kRows];
      std::fill(fresh, fresh + State::kRows, source.row(rows_[row].first));  // where fewer are left
      int fresh_count = 0, end = row;
      for (int scaled = newest; end < height; ++end) {
        const Tap tap = rows_[end];
        const int missing = missing_rows(tap, scaled);
        if (fresh_count + missing > State::kRows) break;
        if (missing == 2) fresh[fresh_count++] = source.row(tap.first);
        if (missing >= 1) fresh[fresh_count++] = source.row(tap.first + 1);
        scaled = tap.first + 1;
      }
      scale_batch_of(state_, fresh);
      for (newest_slot = 0; row < end; ++row) {
        const Tap tap = rows_[row];
        newest_slot += missing_rows(tap, newest);
        newest = tap.first + 1;
        blend(newest_slot, tap, to.row(y + row) + static_cast<ptrdiff_t>(x) * kChannels);
      }
    }
  }

  // Moves a scaled row to the front.
  void keep(int slot) {
    for (int block = 0; block < state_.column_count / State::kRows; ++block) {
      std::memcpy(state_.scaled[block][0], state_.scaled[block][slot],
                  sizeof(state_.scaled[block][0]));
    }
  }

  // The upper row is in the slot before.
  void blend(int lower_slot, const Tap& tap, uint8_t* row) {
    const ptrdiff_t block_step = State::kSlots * kBlock;
    const int16_t* upper = state_.scaled[0][lower_slot - 1];
    const int16_t* lower = state_.scaled[0][lower_slot];
    blend_row(upper, lower, block_step, tap.weight0, tap.weight1, row, width_ * kChannels);
  }

  int width_ = 0;
  TapTable<kTileHeight> rows_;
  State state_;
};

// On a PC, four channels get here from sources of two or three columns alone.
template <int kChannels>
using Rows = std::conditional_t<kChannels == 4, RowPair<4>, RowBatch<kChannels>>;

#else

template <int kChannels>
using Rows = RowPair<kChannels>;

#endif

// ----- One image ---------------------------------------------------------------------------------

bool can_resize(const Source& source, const Destination& to) {
  return source.pixels && to.pixels && source.width >= 2 && source.width <= kMaxSourceSize &&
         source.height >= 2 && source.height <= kMaxSourceSize && to.width > 0 && to.height > 0;
}

template <int kChannels>
void resize(const Source& source, const Destination& to) {
  if (!can_resize(source, to)) return;
  const Axis columns(source.width, to.width), rows(source.height, to.height);
  if (columns.only_picks() && rows.only_picks()) {
    pick<kChannels>(source, columns, rows, to);
  } else if (!resize_by_windows<kChannels>(source, columns, rows, to)) {
    Rows<kChannels>::resize(source, columns, rows, to);
  }
}

}  // namespace
}  // namespace kelnn

using kelnn::resize;

void resize_bilinear_c1(const uint8_t* src, int srcw, int srch, int srcstride, uint8_t* dst, int w,
                        int h, int stride) {
  resize<1>({src, srcw, srch, srcstride}, {dst, w, h, stride});
}

void resize_bilinear_c2(const uint8_t* src, int srcw, int srch, int srcstride, uint8_t* dst, int w,
                        int h, int stride) {
  resize<2>({src, srcw, srch, srcstride}, {dst, w, h, stride});
}

void resize_bilinear_c3(const uint8_t* src, int srcw, int srch, int srcstride, uint8_t* dst, int w,
                        int h, int stride) {
  resize<3>({src, srcw, srch, srcstride}, {dst, w, h, stride});
}

void resize_bilinear_c4(const uint8_t* src, int srcw, int srch, int srcstride, uint8_t* dst, int w,
                        int h, int stride) {
  resize<4>({src, srcw, srch, srcstride}, {dst, w, h, stride});
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
  const int max_width = std::numeric_limits<int>::max() / 4;  // a stride must be an int
  if (srcw < 0 || srcw > max_width || w < 0 || w > max_width) return -1;
  switch (channels) {
    case 1:
      resize_bilinear_c1(src, srcw, srch, srcw, dst, w, h, w);
      break;
    case 2:
      resize_bilinear_c2(src, srcw, srch, srcw * 2, dst, w, h, w * 2);
      break;
    case 3:
      resize_bilinear_c3(src, srcw, srch, srcw * 3, dst, w, h, w * 3);
      break;
    case 4:
      resize_bilinear_c4(src, srcw, srch, srcw * 4, dst, w, h, w * 4);
      break;
    default:
      break;
  }
  return -1;  // after a successful resize too: the interface says so
}

int kel_nn_pixel_resize_bilinear_nv12(const uint8_t* src, int srcw, int srch, uint8_t* dst, int w,
                                      int h) {
  resize_bilinear_yuv420sp(src, srcw, srch, dst, w, h);
  return 0;
}
