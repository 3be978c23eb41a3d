// SPDX-License-Identifier: Apache-2.0
// The motion filter as one would first write it: four planes, one loop a step. What the library's
// has to agree with, and to beat.
#ifndef KEL_NN_TESTS_PLAIN_PIR_FILTER_H_
#define KEL_NN_TESTS_PLAIN_PIR_FILTER_H_

#include <cstdint>
#include <cstdlib>
#include <vector>

namespace kelnn_test {

class PlainPirFilter {
 public:
  PlainPirFilter(int width, int height)
      : width_(width),
        columns_(width / 2),
        rows_(height / 2),
        older_(size_t(columns_) * rows_),
        previous_(older_),
        smoothed_(older_),
        work_(older_) {}

  void process(const uint8_t* image, float ratio, int32_t period, int32_t* result) {
    for (int r = 0; r < rows_; ++r) {
      for (int c = 0; c < columns_; ++c) {
        work_[r * columns_ + c] = image[2 * r * width_ + 2 * c + 1];
      }
    }
    smooth();
    ++frame_;
    if (frame_ == 1) older_ = smoothed_;
    if (frame_ == 2) previous_ = smoothed_;
    if (frame_ < 3) return;
    changed_ = difference();
    const float product = float(columns_) * ratio * float(rows_);
    const int threshold = int(double(product) * 0.01);
    if (changed_ < threshold) {
      ++still_;
    } else {
      ++motion_;
    }
    if (frame_ % period == 0) {
      *result = still_ < motion_ ? 1 : 0;
      still_ = motion_ = 0;
    } else {
      *result = -1;
    }
    older_ = previous_;
    previous_ = smoothed_;
  }
  int changed() const { return changed_; }

 private:
  void smooth() {
    smoothed_ = work_;
    for (int r = 1; r < rows_ - 1; ++r) {
      for (int c = 1; c < columns_ - 1; ++c) {
        const uint8_t* above = &work_[(r - 1) * columns_ + c];
        const uint8_t* here = above + columns_;
        const uint8_t* below = here + columns_;
        smoothed_[r * columns_ + c] =
            uint8_t((above[-1] + 2 * above[0] + above[1] + 2 * here[-1] + 4 * here[0] +
                     2 * here[1] + below[-1] + 2 * below[0] + below[1]) >>
                    4);
      }
    }
  }
  int difference() {
    const size_t size = work_.size();
    for (size_t i = 0; i < size; ++i) {
      older_[i] = std::abs(older_[i] - previous_[i]) >= 21 ? 255 : 0;
    }
    for (size_t i = 0; i < size; ++i) {
      work_[i] = std::abs(previous_[i] - smoothed_[i]) >= 21 ? 255 : 0;
    }
    int changed = 0;
    for (size_t i = 0; i < size; ++i) {
      work_[i] = work_[i] == 255 && older_[i] == 255 ? 255 : 0;
      if (work_[i] == 255) ++changed;
    }
    return changed;
  }

  int width_, columns_, rows_;
  std::vector<uint8_t> older_, previous_, smoothed_, work_;
  int frame_ = 0, still_ = 0, motion_ = 0, changed_ = 0;
};

}  // namespace kelnn_test

#endif  // KEL_NN_TESTS_PLAIN_PIR_FILTER_H_
