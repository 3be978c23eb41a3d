// SPDX-License-Identifier: Apache-2.0
// Vector maths, and boxes: overlap and non-maximum suppression. Sums run from the first element to
// the last in single precision, and a division is a division: a product with the reciprocal differs
// in the last bit. See docs/numerics.md.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "kel_nn.h"
#include "kel_nn_compiler.h"
#include "kel_nn_float_rules.h"
#include "kel_nn_log.h"

// ----- Vectors -----------------------------------------------------------------------------------

namespace {

// Too small to divide by. Compared in double, so the float nearest to 1e-5, which lies below it, is
// inside.
bool is_negligible(float sum) { return sum > -1e-5 && sum < 1e-5; }

void divide_all(float* data, uint32_t n, float divisor) {
  for (uint32_t i = 0; i < n; ++i) data[i] /= divisor;
}

}  // namespace

float kel_nn_l1norm(float* data, uint32_t n) {
  if (!data || n == 0) return 0.0f;
  float sum = 0.0f;
  for (uint32_t i = 0; i < n; ++i) sum += std::fabs(data[i]);
  if (is_negligible(sum)) return 0.0f;
  divide_all(data, n, sum);
  return sum;
}

float kel_nn_l2norm(float* data, uint32_t n) {
  const float sum_of_squares = kel_nn_inner(data, data, n);  // 0 of nothing
  if (is_negligible(sum_of_squares)) return 0.0f;  // the sum, not its root: the interface says so
  const float length = std::sqrt(sum_of_squares);
  divide_all(data, n, length);
  return length;
}

// The largest element is not subtracted: large inputs overflow, and callers rely on the same bits.
void kel_nn_softmax(float* data, uint32_t n) {
  if (!data || n == 0) return;
  float sum = 0.0f;
  for (uint32_t i = 0; i < n; ++i) {
    data[i] = std::exp(data[i]);
    sum += data[i];
  }
  divide_all(data, n, sum);
}

float kel_nn_inner(const float* a, const float* b, uint32_t n) {
  if (!a || !b || n == 0) return 0.0f;
  float sum = 0.0f;
  for (uint32_t i = 0; i < n; ++i) sum += a[i] * b[i];
  return sum;
}

float kel_nn_sigmoid(float x) { return 1.0f / (std::exp(-x) + 1.0f); }

// ----- Boxes -------------------------------------------------------------------------------------

namespace {

// Lists up to this length use scratch on the stack, 20 bytes a box at most. Longer ones get slower.
constexpr int kMaxFastCount = 2048;

struct Corners {
  float x1, y1, x2, y2, area;
};

Corners corners_of(const kel_nn_box_t& box) {
  // The last 0.5 cancels in exact arithmetic, not in float. Keep it.
  return {box.cx - box.w * 0.5f + 0.5f, box.cy - box.h * 0.5f + 0.5f, box.cx + box.w * 0.5f + 0.5f,
          box.cy + box.h * 0.5f + 0.5f, box.w * box.h};
}

inline float larger(float a, float b) { return a > b ? a : b; }
inline float smaller(float a, float b) { return a < b ? a : b; }

float iou(const Corners& a, const Corners& b) {
  const float height = smaller(a.y2, b.y2) - larger(a.y1, b.y1);
  if (height <= 0.0f) return 0.0f;
  const float width = smaller(a.x2, b.x2) - larger(a.x1, b.x1);
  if (width <= 0.0f) return 0.0f;
  const float intersection = height * width;
  return intersection / (a.area + b.area - intersection);
}

// ----- Sorting: best score first

// Ascends where the score descends. Total: NaN has a place too, at one of the ends.
uint32_t rank_of(float score) {
  uint32_t bits;
  std::memcpy(&bits, &score, sizeof(bits));
  return bits & 0x80000000u ? bits : bits ^ 0x7fffffffu;
}

// Quicksort of keys that all differ, and insertion where few are left. std::sort() is three times
// as much code, which is for longer lists: here are never more than kMaxFastCount keys.
void sort_keys(uint64_t* first, uint64_t* last) {
  constexpr int kFew = 16;
  while (last - first > kFew) {
    const uint64_t a = *first, b = first[(last - first) / 2], c = last[-1];
    const uint64_t pivot = std::max(std::min(a, b), std::min(std::max(a, b), c));  // the middle one
    uint64_t* split = std::partition(first, last, [pivot](uint64_t key) { return key < pivot; });
    // The shorter side is the one of the call, so that calls go no deeper than the logarithm.
    if (split - first < last - split) {
      sort_keys(first, split);
      first = split;
    } else {
      sort_keys(split, last);
      last = split;
    }
  }
  for (uint64_t* next = first; next < last; ++next) {
    const uint64_t key = *next;
    uint64_t* place = next;
    for (; place > first && key < place[-1]; --place) *place = place[-1];
    *place = key;
  }
}

// By the score, and equal scores by their place in the list (not in long ones: no scratch). What
// is sorted are numbers in a total order, not boxes, which are three times as large.
void sort_by_score(kel_nn_box_t* boxes, int count) {
  if (count > kMaxFastCount) {
    std::qsort(boxes, static_cast<size_t>(count), sizeof(*boxes), [](const void* a, const void* b) {
      const uint32_t rank_a = rank_of(static_cast<const kel_nn_box_t*>(a)->score);
      const uint32_t rank_b = rank_of(static_cast<const kel_nn_box_t*>(b)->score);
      return rank_a < rank_b ? -1 : static_cast<int>(rank_a > rank_b);
    });
    return;
  }
  uint64_t* keys = static_cast<uint64_t*>(__builtin_alloca(count * sizeof(uint64_t)));
  for (int i = 0; i < count; ++i) {
    keys[i] = uint64_t{rank_of(boxes[i].score)} << 32 | static_cast<uint32_t>(i);
  }
  sort_keys(keys, keys + count);
  // Every box moves once, into the place that the one before it has left: around a circle, whose
  // first box waits. A key whose place is filled names that place.
  for (int i = 0; i < count; ++i) {
    int place = i, from = static_cast<int>(keys[i]);
    if (from == i) continue;
    const kel_nn_box_t first = boxes[i];
    while (from != i) {
      boxes[place] = boxes[from];
      keys[place] = place;
      place = from;
      from = static_cast<int>(keys[place]);
    }
    boxes[place] = first;
    keys[place] = place;
  }
}

// ----- Hard suppression

// Corners of kept boxes, side by side. Unused lanes repeat the first.
struct KeptBlock {
  static constexpr int kLanes = KEL_NN_HAS_VECTORS ? 8 : 1;
  float x1[kLanes], y1[kLanes], x2[kLanes], y2[kLanes], area[kLanes];

  void set(int lane, const Corners& c) {
    x1[lane] = c.x1, y1[lane] = c.y1, x2[lane] = c.x2, y2[lane] = c.y2, area[lane] = c.area;
  }
  void fill(const Corners& c) {
    for (int lane = 0; lane < kLanes; ++lane) set(lane, c);
  }
};

// Whether `iou_threshold`, which is 0 or more, is less than the iou() of the box and any of the
// block. For vectors without a branch: instead of leaving at a side without overlap, it goes on with
// a side of 0 and a result of 0 or NaN. Without vectors, a branch costs less.
inline bool overlaps(const KeptBlock& kept, const Corners& box, float iou_threshold) {
#if KEL_NN_HAS_VECTORS
  int any = 0;
  for (int k = 0; k < KeptBlock::kLanes; ++k) {
    const float height = smaller(kept.y2[k], box.y2) - larger(kept.y1[k], box.y1);
    const float width = smaller(kept.x2[k], box.x2) - larger(kept.x1[k], box.x1);
    const float intersection = larger(height, 0.0f) * larger(width, 0.0f);
    any |= iou_threshold < intersection / (kept.area[k] + box.area - intersection);
  }
  return any;
#else
  const float height = smaller(kept.y2[0], box.y2) - larger(kept.y1[0], box.y1);
  if (height <= 0.0f) return false;
  const float width = smaller(kept.x2[0], box.x2) - larger(kept.x1[0], box.x1);
  if (width <= 0.0f) return false;
  const float intersection = height * width;
  return iou_threshold < intersection / (kept.area[0] + box.area - intersection);
#endif
}

inline bool overlaps_any(const KeptBlock* blocks, int block_count, const Corners& box,
                         float iou_threshold) {
  for (int b = 0; b < block_count; ++b) {
    if (overlaps(blocks[b], box, iou_threshold)) return true;
  }
  return false;
}

// A box is suppressed by the first kept box that overlaps it, so it is enough to compare each with
// those that were kept before. Kept boxes move forward onto boxes that have been dealt with.
KEL_NN_TARGET_CLONES
int suppress_hard(kel_nn_box_t* boxes, int count, float iou_threshold) {
  const int max_in_blocks = iou_threshold >= 0.0f ? std::min(count, kMaxFastCount) : 0;
  const int max_blocks = max_in_blocks / KeptBlock::kLanes + 1;
  KeptBlock* blocks = static_cast<KeptBlock*>(__builtin_alloca(max_blocks * sizeof(KeptBlock)));
  int block_count = 0, kept = 0;
  for (int i = 0; i < count; ++i) {
    const Corners corners = corners_of(boxes[i]);
    bool suppressed = overlaps_any(blocks, block_count, corners, iou_threshold);
    for (int k = max_in_blocks; k < kept && !suppressed; ++k) {
      suppressed = iou_threshold < iou(corners_of(boxes[k]), corners);
    }
    if (suppressed) continue;
    if (kept < max_in_blocks) {
      const int lane = kept % KeptBlock::kLanes;
      if (lane == 0) blocks[block_count++].fill(corners);
      blocks[block_count - 1].set(lane, corners);
    }
    boxes[kept++] = boxes[i];
  }
  return kept;
}

// ----- Weighted suppression

struct WeightedScratch {
  int32_t *waiting, *members;  // indices
  float* slot_scores;          // of the group's members by place; never cleared between groups
};

// One weight for the whole group, taken from the slot with the opener's index in the list, whatever
// group has left its score there. The interface says so.
KEL_NN_COLD kel_nn_box_t weighted_sum(const kel_nn_box_t* boxes, const int32_t* members, int size,
                                      const float* slot_scores) {
  float total = 0.0f;
  for (int s = 0; s < size; ++s) total += std::exp(slot_scores[s]);
  const float weight = std::exp(slot_scores[members[0]]) / total;
  kel_nn_box_t sum = {};
  for (int s = 0; s < size; ++s) {
    const kel_nn_box_t& member = boxes[members[s]];
    sum.cx += weight * member.cx;
    sum.cy += weight * member.cy;
    sum.w += weight * member.w;
    sum.h += weight * member.h;
    sum.score += weight * member.score;
  }
  return sum;
}

KEL_NN_COLD int suppress_weighted(kel_nn_box_t* boxes, int count, float iou_threshold,
                                  const WeightedScratch& scratch) {
  int32_t* waiting = scratch.waiting;
  for (int i = 0; i < count; ++i) waiting[i] = i;
  std::fill(scratch.slot_scores, scratch.slot_scores + count, 0.0f);
  int waiting_count = count, kept = 0;
  while (waiting_count > 0) {
    const Corners opener = corners_of(boxes[waiting[0]]);
    int size = 0, left = 0;
    scratch.members[size++] = waiting[0];
    for (int k = 1; k < waiting_count; ++k) {
      const int32_t j = waiting[k];
      const bool joins = iou_threshold < iou(opener, corners_of(boxes[j]));
      (joins ? scratch.members[size++] : waiting[left++]) = j;
    }
    waiting_count = left;
    for (int s = 0; s < size; ++s) scratch.slot_scores[s] = boxes[scratch.members[s]].score;
    boxes[kept++] = weighted_sum(boxes, scratch.members, size, scratch.slot_scores);
  }
  return kept;
}

// -1 when memory is short.
KEL_NN_COLD int suppress_weighted(kel_nn_box_t* boxes, int count, float iou_threshold) {
  constexpr size_t kBytesPerBox = 2 * sizeof(int32_t) + sizeof(float);
  const bool on_stack = count <= kMaxFastCount;
  const size_t size = count * kBytesPerBox;
  void* memory = on_stack ? __builtin_alloca(size) : std::calloc(count, kBytesPerBox);
  if (!memory) return -1;
  int32_t* indices = static_cast<int32_t*>(memory);
  const WeightedScratch scratch = {indices, indices + count,
                                   reinterpret_cast<float*>(indices + size_t{2} * count)};
  const int kept = suppress_weighted(boxes, count, iou_threshold, scratch);
  if (!on_stack) std::free(memory);
  return kept;
}

}  // namespace

float nn_calcu_iou(const kel_nn_box_t* a, const kel_nn_box_t* b) {
  if (!a || !b) return 0.0f;
  return iou(corners_of(*a), corners_of(*b));
}

int kel_nn_nms(kel_nn_box_t* boxes, int count, float iou_threshold, int nms_type) {
  if (!boxes || count <= 0) return 0;
  sort_by_score(boxes, count);
  if (nms_type == KEL_NN_NMS_HARD) return suppress_hard(boxes, count, iou_threshold);
  KEL_NN_FAIL_IF(nms_type != KEL_NN_NMS_WEIGHTED, 0, "Wrong type of nms: %d", nms_type);
  const int kept = suppress_weighted(boxes, count, iou_threshold);
  KEL_NN_FAIL_IF(kept < 0, 0, "Out of memory.");
  return kept;
}
