// Counted vectors: element 0 is the number of data elements, stored as a float; the data are
// elements 1 to n.
#ifndef KEL_NN_COUNTED_VECTOR_H_
#define KEL_NN_COUNTED_VECTOR_H_

#include <cstdint>

namespace kelnn {

constexpr float kTwoTo31 = 2147483648.0f;

// A float as an integer, truncated; the nearest end of the range when it does not fit, 0 for NaN.
inline int32_t to_int(float value) {
  if (value >= kTwoTo31) return INT32_MAX;
  if (value < -kTwoTo31) return INT32_MIN;
  return value == value ? static_cast<int32_t>(value) : 0;
}

// How many data elements a vector has: its element 0, which is below 1 for an empty vector.
inline int32_t count_of(const float* vector) { return to_int(vector[0]); }

}  // namespace kelnn

#endif  // KEL_NN_COUNTED_VECTOR_H_
