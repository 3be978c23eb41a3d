// SPDX-License-Identifier: Apache-2.0
// A scaled row's values come in blocks of 16, whose samples, two each, lie within a few windows of
// the source row. Where each byte of a window goes is the same in every row: one shuffle puts all
// samples of a window of 16 bytes where they are multiplied. No plain loop is compiled to these
// instructions: hence the intrinsics.
#include <cstring>

#include "kel_nn_compiler.h"
#include "kel_nn_resize.h"

#ifdef KEL_NN_CHOOSES_TARGETS

#include <immintrin.h>

#define KEL_NN_AVX2 __attribute__((target("avx2")))

namespace kelnn {
namespace {

constexpr int kBlock = 16;         // values that are scaled and blended at once
constexpr int kHalf = 8;           // values: what one half of a 32-byte vector holds
constexpr int kWindow = 16;        // bytes
constexpr uint8_t kNoByte = 0x80;  // in Block::order: zero goes there

// A half's samples come from up to kParts windows. A window that is not needed is read, too.
template <int kParts>
struct Block {
  alignas(32) uint8_t order[kParts][4 * kHalf];  // the byte of its window that goes there
  alignas(32) int16_t weights[2][kBlock];  // of each half's first four values' samples, last four's
  ptrdiff_t begin[kParts][2];              // of the windows of the two halves

  void clear() {
    std::memset(order, kNoByte, sizeof(order));
    std::memset(begin, 0, sizeof(begin));
  }

  void set(int value, int part, ptrdiff_t left, ptrdiff_t right, const Tap& tap) {
    const ptrdiff_t window = begin[part][value / kHalf];
    order[part][2 * value] = static_cast<uint8_t>(left - window);
    order[part][2 * value + 1] = static_cast<uint8_t>(right - window);
    int16_t* pair = &weights[value % kHalf / 4][value / kHalf * kHalf + value % 4 * 2];
    pair[0] = tap.weight0;
    pair[1] = tap.weight1;
  }
};

template <int kParts>
KEL_NN_AVX2 inline __m256i samples_of(const uint8_t* source, const Block<kParts>& block, int part) {
  const auto* low = reinterpret_cast<const __m128i*>(source + block.begin[part][0]);
  const auto* high = reinterpret_cast<const __m128i*>(source + block.begin[part][1]);
  const __m256i windows = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(low)),
                                                  _mm_loadu_si128(high), 1);
  const auto* order = reinterpret_cast<const __m256i*>(block.order[part]);
  return _mm256_shuffle_epi8(windows, _mm256_load_si256(order));
}

template <int kParts>
KEL_NN_AVX2 void scale_row(const uint8_t* source, const Block<kParts>* blocks, int block_count,
                           int16_t* scaled) {
  const __m256i zero = _mm256_setzero_si256();
  for (int i = 0; i < block_count; ++i) {
    const Block<kParts>& block = blocks[i];
    __m256i samples = samples_of(source, block, 0);
    for (int part = 1; part < kParts; ++part) {
      samples = _mm256_or_si256(samples, samples_of(source, block, part));
    }
    const auto* weights = reinterpret_cast<const __m256i*>(block.weights);
    const __m256i first = _mm256_madd_epi16(_mm256_unpacklo_epi8(samples, zero), weights[0]);
    const __m256i last = _mm256_madd_epi16(_mm256_unpackhi_epi8(samples, zero), weights[1]);
    _mm256_store_si256(reinterpret_cast<__m256i*>(scaled + i * kBlock),
                       _mm256_packs_epi32(_mm256_srai_epi32(first, 4), _mm256_srai_epi32(last, 4)));
  }
}

// The int16_t in between is what makes the compiler multiply 16 bits by 16.
KEL_NN_AVX2 void blend_blocks(const int16_t* scaled0, const int16_t* scaled1, int16_t b0,
                              int16_t b1, uint8_t* __restrict row, int block_count) {
  for (; block_count > 0; --block_count, scaled0 += kBlock, scaled1 += kBlock, row += kBlock) {
    for (int i = 0; i < kBlock; ++i) {
      const int16_t upper = static_cast<int16_t>((scaled0[i] * b0) >> 16);
      const int16_t lower = static_cast<int16_t>((scaled1[i] * b1) >> 16);
      row[i] = static_cast<uint8_t>((upper + lower + 2) >> 2);
    }
  }
}

// Scaled rows hold whole blocks, destination rows do not.
void blend_row(const int16_t* scaled0, const int16_t* scaled1, const Tap& tap, uint8_t* row,
               int count) {
  const int rest = count % kBlock, whole = count - rest;
  blend_blocks(scaled0, scaled1, tap.weight0, tap.weight1, row, whole / kBlock);
  if (rest == 0) return;
  uint8_t last[kBlock];
  blend_blocks(scaled0 + whole, scaled1 + whole, tap.weight0, tap.weight1, last, 1);
  std::memcpy(row + whole, last, static_cast<size_t>(rest));
}

template <int kChannels, int kParts>
class RowWindows {
 public:
  // Not part of its caller, which would need the memory of all of them at once.
  KEL_NN_NEVER_INLINE static bool resize(const Source& source, const Axis& columns,
                                         const Axis& rows, const Destination& to) {
    RowWindows windows;
    for (int x = 0, left = to.width; left > 0; x += windows.width_, left -= windows.width_) {
      windows.width_ = std::min(left, int{kTileWidth});
      if (!windows.plan(source, columns, x)) return false;
      windows.resize_tile(source, rows, to, x);
    }
    return true;
  }

 private:
  static constexpr int kMaxBlocks = kParts == 4 ? 78 : 108;  // whole pixels of 1 to 4 channels
  static constexpr int kTileWidth = kMaxBlocks * kBlock / kChannels;
  static constexpr int kTapCount = 128;  // rows that are planned at once

  // False if a half needs more windows.
  KEL_NN_NEVER_INLINE bool plan(const Source& source, const Axis& axis, int x) {
    block_count_ = (width_ * kChannels + kBlock - 1) / kBlock;
    const ptrdiff_t last_begin = static_cast<ptrdiff_t>(source.width) * kChannels - kWindow;
    if (last_begin < 0) return false;
    TapTable<kTileWidth> taps;
    taps.fill(axis, x, width_);
    int pixel = 0, channel = 0, part = 0;
    for (int i = 0; i < block_count_; ++i) {
      Block<kParts>& block = blocks_[i];
      block.clear();
      for (int value = 0; value < kBlock; ++value) {
        const Tap tap = taps[pixel];
        const ptrdiff_t left = static_cast<ptrdiff_t>(tap.first) * kChannels + channel;
        const ptrdiff_t right = left + kChannels;
        const int half = value / kHalf;
        const bool is_first = value % kHalf == 0;
        if (is_first || right >= block.begin[part][half] + kWindow) {
          part = is_first ? 0 : part + 1;
          if (part == kParts) return false;
          block.begin[part][half] = std::min(left - channel, last_begin);
        }
        block.set(value, part, left, right, tap);
        if (++channel < kChannels) continue;
        channel = 0;
        if (pixel + 1 < width_) ++pixel;  // nothing reads what fills up the last block
      }
    }
    return true;
  }

  // Source row y is scaled into scaled_[y % 2] and stays there until row y + 2 comes.
  KEL_NN_NEVER_INLINE void resize_tile(const Source& source, const Axis& rows,
                                       const Destination& to, int x) {
    TapTable<kTapCount> taps;
    int newest = -1;
    for (int y = 0; y < to.height; ++y) {
      if (y % kTapCount == 0) taps.fill(rows, y, std::min(to.height - y, int{kTapCount}));
      const Tap tap = taps[y % kTapCount];
      for (int row = std::max(tap.first, newest + 1); row <= tap.first + 1; ++row) {
        scale_row(source.row(row), blocks_, block_count_, scaled_[row % 2]);
      }
      newest = tap.first + 1;
      blend_row(scaled_[tap.first % 2], scaled_[1 - tap.first % 2], tap,
                to.row(y) + static_cast<ptrdiff_t>(x) * kChannels, width_ * kChannels);
    }
  }

  int width_ = 0, block_count_ = 0;
  alignas(32) int16_t scaled_[2][kMaxBlocks * kBlock];
  Block<kParts> blocks_[kMaxBlocks];
};

template <int kChannels>
bool resize_channels(const Source& source, const Axis& columns, const Axis& rows,
                     const Destination& to) {
  return RowWindows<kChannels, 1>::resize(source, columns, rows, to) ||
         RowWindows<kChannels, 2>::resize(source, columns, rows, to) ||
         RowWindows<kChannels, 4>::resize(source, columns, rows, to);
}

}  // namespace

bool resize_by_windows(int channels, const Source& source, const Axis& columns, const Axis& rows,
                       const Destination& to) {
  if (!__builtin_cpu_supports("avx2")) return false;
  const auto resize = channels == 1   ? resize_channels<1>
                      : channels == 2 ? resize_channels<2>
                      : channels == 3 ? resize_channels<3>
                                      : resize_channels<4>;
  return resize(source, columns, rows, to);
}

}  // namespace kelnn

#else

bool kelnn::resize_by_windows(int, const Source&, const Axis&, const Axis&, const Destination&) {
  return false;
}

#endif
