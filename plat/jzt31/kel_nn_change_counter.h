// SPDX-License-Identifier: Apache-2.0
// Counts the pixels of a frame that differ from the frame before, where they had differed already.
//
// A frame is halved, smoothed and compared in one pass over its rows. One word for each pixel is
// kept for the next frame: the smoothed pixel, and a mark if it differed from the frame before. So
// every difference is taken once and no plane is copied.
//
// A word holds pixels in lanes of 16 bits, which is room for their sums; the same integer
// operations serve all lanes. A processor that works on many words at a time takes words of one
// lane, a plain 32-bit one takes two. Lane k of a row's words holds the k-th half of the row: the
// pixels beside a pixel are in the words beside its word.
#ifndef KEL_NN_CHANGE_COUNTER_H_
#define KEL_NN_CHANGE_COUNTER_H_

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "kel_nn_compiler.h"

namespace kelnn {

// Always inline: the row loops must be part of the function that is built for several targets.
template <typename Word>
class ChangeCounter {
 public:
  // Gets the memory for frames of that size, with a blank history. What cannot be had is missing
  // afterwards: everything for a frame of a negative size, or with more pixels than an int32_t can
  // count.
  void allocate(int32_t frame_width, int32_t frame_height) {
    release();
    if (frame_width < 0 || frame_height < 0) return;
    if (int64_t{frame_width} * frame_height > INT32_MAX) return;
    frame_width_ = static_cast<size_t>(frame_width);
    columns_ = static_cast<size_t>(frame_width / 2);
    rows_ = static_cast<size_t>(frame_height / 2);
    if (columns_ == 0 || rows_ == 0) columns_ = rows_ = 0;  // no pixels, but a frame
    words_ = (columns_ + kLanes - 1) / kLanes;
    stride_ = (words_ + 2 + kAlignment - 1) / kAlignment * kAlignment;
    history_.allocate(uint64_t{stride_} * rows_);
    row_buffers_.allocate(uint64_t{stride_} * 4 + kAlignment);
  }
  void release() {
    history_.release();
    row_buffers_.release();
  }
  bool has_history() const { return history_.words; }
  bool has_row_buffers() const { return row_buffers_.words; }

  // Takes the next frame. Needs the history and the row buffers.
  KEL_NN_ALWAYS_INLINE uint32_t count(const uint8_t* frame) {
    Word* const raw = row_buffers_.words + kAlignment;  // has a word before it, too
    Word* const nowhere = raw + stride_;
    // A border keeps its unsmoothed pixels; without an inside, all is border.
    const bool has_inside = rows_ >= 3 && columns_ >= 3;
    uint32_t changed = 0;
    for (size_t row = 0; row < rows_; ++row) {
      const uint8_t* const frame_row = frame + 2 * row * frame_width_;
      Word* const history = history_.words + row * stride_;
      halve(frame_row, raw);
      if (has_inside) {  // the row above; the first two rows only leave their sums
        Word* const above = row < 2 ? nowhere : history - stride_;
        const uint32_t changed_above = take_row<true>(raw, above);
        if (row >= 2) changed += changed_above + take_ends(frame_row - 2 * frame_width_, above);
      }
      if (!has_inside || row == 0 || row == rows_ - 1) changed += take_row<false>(raw, history);
    }
    return changed;
  }

 private:
  static constexpr size_t kLanes = sizeof(Word) / 2;
  static_assert(kLanes == 1 || kLanes == 2, "the last pixels of a row are in the last lane");
  static constexpr int kLastLane = 16 * (kLanes - 1);  // its lowest bit
  static constexpr size_t kAlignment = 64 / sizeof(Word);

  // What the history's lanes hold is kBase less the pixel, and the mark. With the new pixel added,
  // a lane is kBase and the difference, 0x400 to 0x428 if the pixel is unchanged. Flipping bit
  // 0x400 turns that into 0 to 40 and leaves everything else above 40; adding kCarry then carries
  // into the bit below the mark for all above 40. No step reaches the neighbouring lane.
  static constexpr unsigned kUnchanged = 20;  // the largest difference that is none
  static constexpr unsigned kBase = 0x400 + kUnchanged;
  static constexpr unsigned kMark = 0x8000;
  static constexpr unsigned kCarry = kMark / 2 - (2 * kUnchanged + 1);

  // Zero-filled words, aligned for whole vectors.
  struct Memory {
    void* block = nullptr;
    Word* words = nullptr;

    void allocate(uint64_t count) {
      if (count > (SIZE_MAX / 2 - 64) / sizeof(Word)) return;
      block = std::calloc(static_cast<size_t>(count) + kAlignment, sizeof(Word));
      if (!block) return;
      const uintptr_t address = reinterpret_cast<uintptr_t>(block);
      words = reinterpret_cast<Word*>((address + 63) / 64 * 64);
    }
    void release() {
      std::free(block);
      *this = Memory();
    }
  };

  static constexpr Word each(unsigned lane) {
    return static_cast<Word>(static_cast<Word>(~Word{0}) / 0xffff * lane);
  }

  // Every second pixel: the odd columns.
  KEL_NN_ALWAYS_INLINE void halve(const uint8_t* __restrict__ frame_row,
                                  Word* __restrict__ raw) const {
    if (kLanes == 1) {
      for (size_t i = 0; i < words_; ++i) raw[i] = second_of(frame_row + 2 * i);
      return;
    }
    const size_t in_last_lane = columns_ - words_;
    for (size_t i = 0; i < in_last_lane; ++i) {
      const Word last = frame_row[2 * (words_ + i) + 1];
      raw[i] = static_cast<Word>(frame_row[2 * i + 1] | last << kLastLane);
    }
    if (in_last_lane < words_) raw[in_last_lane] = frame_row[2 * in_last_lane + 1];
    // The halves are neighbours where they meet.
    raw[-1] = static_cast<Word>(raw[words_ - 1] << kLastLane);
    raw[words_] = static_cast<Word>(raw[0] >> kLastLane);
  }

  // Both bytes are loaded, for a row of pairs is shifted faster than single bytes are gathered.
  static KEL_NN_ALWAYS_INLINE Word second_of(const uint8_t* pair) {
    uint16_t both;
    std::memcpy(&both, pair, sizeof(both));
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    return both >> 8;
#else
    return both & 0xff;
#endif
  }

  // Takes a row into its history and counts its pixels that are marked for the second time in
  // succession. The row is the one given or, smoothed, the one above it: 1 2 1 across and 1 2 1
  // down, over 16. Sums across of one row, and of two, wait for the next.
  template <bool smoothed>
  KEL_NN_ALWAYS_INLINE uint32_t take_row(const Word* __restrict__ raw,
                                         Word* __restrict__ history) const {
    constexpr size_t kMaxSpan = 0x8000;  // the counts stay in their lanes
    Word* const __restrict__ sums = row_buffers_.words + kAlignment + 2 * stride_;
    Word* const __restrict__ pair_sums = sums + stride_;
    uint32_t changed = 0;
    for (size_t begin = 0; begin < words_; begin += kMaxSpan) {
      const size_t end = words_ - begin < kMaxSpan ? words_ : begin + kMaxSpan;
      Word counts = 0;
      for (size_t i = begin; i < end; ++i) {
        Word pixels = raw[i];
        if (smoothed) {
          const Word sum = static_cast<Word>((raw - 1)[i] + 2 * raw[i] + raw[i + 1]);
          const Word pair_sum = static_cast<Word>(sums[i] + sum);
          pixels = static_cast<Word>(static_cast<Word>(pair_sums[i] + pair_sum) >> 4);
          if (kLanes > 1) pixels = static_cast<Word>(pixels & each(0xff));
          sums[i] = sum;
          pair_sums[i] = pair_sum;
        }
        counts = static_cast<Word>(counts + take(pixels, history[i]));
      }
      for (size_t lane = 0; lane < kLanes; ++lane) {
        changed += static_cast<uint16_t>(counts >> (16 * lane));
      }
    }
    return changed;
  }

  // A smoothed row's first and last pixel, which are not smoothed, have a history of their own
  // behind the row. In the row's history their lanes, and that of no pixel, lose their marks and so
  // count for nothing.
  KEL_NN_ALWAYS_INLINE uint32_t take_ends(const uint8_t* frame_row, Word* history) const {
    history[0] = static_cast<Word>(history[0] & ~Word{kMark});
    clear_mark_in_last_lane(columns_ - 1, history);
    if (columns_ < kLanes * words_) clear_mark_in_last_lane(columns_, history);
    Word* const ends = history + words_;
    const Word first = take(frame_row[1], ends[0]);
    const Word last = take(frame_row[2 * columns_ - 1], ends[1]);
    return static_cast<uint32_t>(first) + last;
  }
  KEL_NN_ALWAYS_INLINE void clear_mark_in_last_lane(size_t column, Word* history) const {
    Word& word = history[column - (kLanes - 1) * words_];
    word = static_cast<Word>(word & ~(Word{kMark} << kLastLane));
  }

  // Takes a word of pixels into the history; 1 in each lane that is marked for the second time.
  static KEL_NN_ALWAYS_INLINE Word take(Word pixels, Word& history) {
    const Word distances = static_cast<Word>(static_cast<Word>(pixels + history) ^ each(0x400));
    const Word old_marks =
        static_cast<Word>(distances + each(kCarry));  // the new ones: a bit lower
    const Word new_marks = static_cast<Word>(old_marks << 1 & each(kMark));
    history = static_cast<Word>((each(kBase) - pixels) | new_marks);
    return static_cast<Word>((old_marks & new_marks) >> 15);
  }

  size_t frame_width_ = 0;
  size_t columns_ = 0, rows_ = 0;  // of the halved frame
  size_t words_ = 0, stride_ = 0;  // in a row, and from row to row
  Memory history_;
  Memory row_buffers_;  // the newest row, a history that nobody reads, sums, sums of two rows
};

}  // namespace kelnn

#endif  // KEL_NN_CHANGE_COUNTER_H_
