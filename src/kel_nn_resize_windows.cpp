// A scaled row's values come in blocks of 16, whose samples, two each, lie within a few windows of
// the source row. Where each byte of a window goes is the same in every row: with AVX2, one shuffle
// puts all samples of a window of 16 bytes where they are multiplied. Without, that is done for
// pixels of 4 channels, whose two samples are the halves of a window of 8 bytes. No plain loop is
// compiled to these instructions: hence the intrinsics.
#include "kel_nn_resize_windows.h"

#include "kel_nn_compiler.h"
#include "kel_nn_resize_blend.h"

#ifdef KEL_NN_CHOOSES_TARGETS
#include <immintrin.h>
#elif defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace kelnn {

#ifdef __SSE2__

namespace {

constexpr int kHalf = 8;  // values: what one half of a 32-byte vector holds

// A half's samples come from up to kParts windows.
template <int kParts>
struct Block {
  alignas(32) uint8_t order[kParts][4 * kHalf];  // the byte of its window that goes there
  alignas(32) int16_t weights[2][kBlock];  // of each half's first four values' samples, last four's
  ptrdiff_t begin[kParts][2];              // of the windows of the two halves
};

constexpr uint8_t kNoByte = 0x80;  // in Block::order: zero goes there

// Four channels: each pixel has a window, itself and its right neighbour.
struct PixelPairs {
  static constexpr int kBytes = 8;
  static constexpr bool kShuffles = false;  // the order is always the same

  static __m128i scaled_pixel(const uint8_t* source, const int16_t* weights) {
    const __m128i pair = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(source));
    const __m128i samples = _mm_unpacklo_epi8(pair, _mm_shuffle_epi32(pair, 1));
    const __m128i wide = _mm_unpacklo_epi8(samples, _mm_setzero_si128());
    const __m128i sums =
        _mm_madd_epi16(wide, _mm_load_si128(reinterpret_cast<const __m128i*>(weights)));
    return _mm_srai_epi32(sums, 4);
  }

  static void scale_row(const uint8_t* source, const Block<2>* blocks, int block_count,
                        int16_t* scaled) {
    for (int i = 0; i < block_count; ++i) {
      const Block<2>& block = blocks[i];
      for (int half = 0; half < 2; ++half, scaled += kHalf) {
        const __m128i first =
            scaled_pixel(source + block.begin[0][half], block.weights[0] + half * kHalf);
        const __m128i second =
            scaled_pixel(source + block.begin[1][half], block.weights[1] + half * kHalf);
        _mm_store_si128(reinterpret_cast<__m128i*>(scaled), _mm_packs_epi32(first, second));
      }
    }
  }
};

#ifdef KEL_NN_CHOOSES_TARGETS

template <int kParts>
__attribute__((target("avx2"))) inline __m256i samples_of(const uint8_t* source,
                                                          const Block<kParts>& block, int part) {
  const auto* low = reinterpret_cast<const __m128i*>(source + block.begin[part][0]);
  const auto* high = reinterpret_cast<const __m128i*>(source + block.begin[part][1]);
  const __m256i windows = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(low)),
                                                  _mm_loadu_si128(high), 1);
  const auto* order = reinterpret_cast<const __m256i*>(block.order[part]);
  return _mm256_shuffle_epi8(windows, _mm256_load_si256(order));
}

template <int kParts>
struct ShuffledWindows {
  static constexpr int kBytes = 16;
  static constexpr bool kShuffles = true;

  __attribute__((target("avx2"))) static void scale_row(const uint8_t* source,
                                                        const Block<kParts>* blocks,
                                                        int block_count, int16_t* scaled) {
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
      _mm256_store_si256(
          reinterpret_cast<__m256i*>(scaled + i * kBlock),
          _mm256_packs_epi32(_mm256_srai_epi32(first, 4), _mm256_srai_epi32(last, 4)));
    }
  }
};

#endif

// Windows is one of the above.
template <int kChannels, int kParts, typename Windows>
class RowWindows {
 public:
  static bool resize(const Source& source, const Axis& columns, const Axis& rows,
                     const Destination& to) {
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
  bool plan(const Source& source, const Axis& axis, int x) {
    block_count_ = (width_ * kChannels + kBlock - 1) / kBlock;
    const ptrdiff_t last_begin = static_cast<ptrdiff_t>(source.width) * kChannels - Windows::kBytes;
    if (last_begin < 0) return false;
    TapTable<kTileWidth> taps;
    taps.fill(axis, x, width_);
    int pixel = 0, channel = 0, part = 0;
    for (int i = 0; i < block_count_; ++i) {
      Block<kParts>& block = blocks_[i];
      if (Windows::kShuffles) {  // a window that is not needed is read, too
        std::fill(block.order[0], block.order[0] + sizeof(block.order), kNoByte);
        std::fill(block.begin[0], block.begin[0] + 2 * kParts, ptrdiff_t{0});
      }
      for (int value = 0; value < kBlock; ++value) {
        const Tap tap = taps[pixel];
        const int half = value / kHalf, place = value % kHalf;
        const ptrdiff_t left = static_cast<ptrdiff_t>(tap.first) * kChannels + channel;
        const ptrdiff_t right = left + kChannels;
        const bool is_first = place == 0;
        if (is_first || (Windows::kShuffles ? right >= block.begin[part][half] + Windows::kBytes
                                            : channel == 0)) {
          part = is_first ? 0 : part + 1;
          if (part == kParts) return false;
          block.begin[part][half] = std::min(left - channel, last_begin);
        }
        if (Windows::kShuffles) {
          const ptrdiff_t begin = block.begin[part][half];
          uint8_t* order = &block.order[part][half * 2 * kHalf + place * 2];
          order[0] = static_cast<uint8_t>(left - begin);
          order[1] = static_cast<uint8_t>(right - begin);
        }
        int16_t* weights = &block.weights[place / 4][half * kHalf + place % 4 * 2];
        weights[0] = tap.weight0;
        weights[1] = tap.weight1;
        if (++channel < kChannels) continue;
        channel = 0;
        if (pixel + 1 < width_) ++pixel;  // nothing reads what fills up the last block
      }
    }
    return true;
  }

  // Source row y is scaled into scaled_[y % 2] and stays there until row y + 2 comes.
  void resize_tile(const Source& source, const Axis& rows, const Destination& to, int x) {
    TapTable<kTapCount> taps;
    int newest = -1;
    for (int y = 0; y < to.height; ++y) {
      if (y % kTapCount == 0) taps.fill(rows, y, std::min(to.height - y, int{kTapCount}));
      const Tap tap = taps[y % kTapCount];
      for (int row = std::max(tap.first, newest + 1); row <= tap.first + 1; ++row) {
        Windows::scale_row(source.row(row), blocks_, block_count_, scaled_[row % 2]);
      }
      newest = tap.first + 1;
      blend_row(scaled_[tap.first % 2], scaled_[1 - tap.first % 2], kBlock, tap.weight0,
                tap.weight1, to.row(y) + static_cast<ptrdiff_t>(x) * kChannels, width_ * kChannels);
    }
  }

  int width_ = 0, block_count_ = 0;
  alignas(32) int16_t scaled_[2][kMaxBlocks * kBlock];
  Block<kParts> blocks_[kMaxBlocks];
};

template <int kChannels>
struct WithoutShuffle {
  static bool resize(const Source&, const Axis&, const Axis&, const Destination&) { return false; }
};
template <>
struct WithoutShuffle<4> : RowWindows<4, 2, PixelPairs> {};

}  // namespace

template <int kChannels>
bool resize_by_windows(const Source& source, const Axis& columns, const Axis& rows,
                       const Destination& to) {
#ifdef KEL_NN_CHOOSES_TARGETS
  if (__builtin_cpu_supports("avx2")) {
    return RowWindows<kChannels, 1, ShuffledWindows<1>>::resize(source, columns, rows, to) ||
           RowWindows<kChannels, 2, ShuffledWindows<2>>::resize(source, columns, rows, to) ||
           RowWindows<kChannels, 4, ShuffledWindows<4>>::resize(source, columns, rows, to);
  }
#endif
  return WithoutShuffle<kChannels>::resize(source, columns, rows, to);
}

#else

template <int kChannels>
bool resize_by_windows(const Source&, const Axis&, const Axis&, const Destination&) {
  return false;
}

#endif

template bool resize_by_windows<1>(const Source&, const Axis&, const Axis&, const Destination&);
template bool resize_by_windows<2>(const Source&, const Axis&, const Axis&, const Destination&);
template bool resize_by_windows<3>(const Source&, const Axis&, const Axis&, const Destination&);
template bool resize_by_windows<4>(const Source&, const Axis&, const Axis&, const Destination&);

}  // namespace kelnn
