// SPDX-License-Identifier: Apache-2.0
// Boxes in tests: compared bit for bit, shown with their floats also in hexadecimal.
#ifndef KEL_NN_TESTS_BOX_MATCHERS_H_
#define KEL_NN_TESTS_BOX_MATCHERS_H_

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "kel_nn.h"

namespace kelnn_test {

inline std::string to_text(const kel_nn_box_t& box) {
  std::string text;
  for (float value : {box.cx, box.cy, box.w, box.h, box.score}) {
    char number[64];
    std::snprintf(number, sizeof(number), "%.9g (%a) ", value, value);
    text += number;
  }
  return text + "class " + std::to_string(box.class_id);
}

// NaN equals NaN of any kind.
inline bool same_box(const kel_nn_box_t& a, const kel_nn_box_t& b) {
  const auto same = [](float x, float y) {
    return std::memcmp(&x, &y, sizeof(x)) == 0 || (x != x && y != y);
  };
  return same(a.cx, b.cx) && same(a.cy, b.cy) && same(a.w, b.w) && same(a.h, b.h) &&
         same(a.score, b.score) && a.class_id == b.class_id;
}

inline ::testing::AssertionResult same_boxes(const std::vector<kel_nn_box_t>& actual,
                                             const std::vector<kel_nn_box_t>& expected) {
  if (actual.size() != expected.size()) {
    return ::testing::AssertionFailure()
           << actual.size() << " boxes instead of " << expected.size();
  }
  for (size_t i = 0; i < actual.size(); ++i) {
    if (same_box(actual[i], expected[i])) continue;
    return ::testing::AssertionFailure() << "box " << i << " is\n  " << to_text(actual[i])
                                         << "\ninstead of\n  " << to_text(expected[i]);
  }
  return ::testing::AssertionSuccess();
}

}  // namespace kelnn_test

#endif  // KEL_NN_TESTS_BOX_MATCHERS_H_
