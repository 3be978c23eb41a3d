// SPDX-License-Identifier: Apache-2.0
// A floating-point number as an integer.
#ifndef KEL_NN_TRUNCATED_H_
#define KEL_NN_TRUNCATED_H_

#include <cstdint>

namespace kelnn {

// Towards zero; the nearest end of the range when it does not fit, 0 for NaN.
template <typename Real>
inline int32_t truncated(Real value) {
  constexpr Real kTwoTo31 = 2147483648;
  if (value > -kTwoTo31 && value < kTwoTo31) return static_cast<int32_t>(value);
  if (value > 0) return INT32_MAX;
  return value < 0 ? INT32_MIN : 0;
}

}  // namespace kelnn

#endif  // KEL_NN_TRUNCATED_H_
