// SPDX-License-Identifier: Apache-2.0
// Counted vectors: element 0 is the number of data elements, stored as a float; the data are
// elements 1 to n.
#ifndef KEL_NN_COUNTED_VECTOR_H_
#define KEL_NN_COUNTED_VECTOR_H_

#include "kel_nn_truncated.h"

namespace kelnn {

// How many data elements a vector has: its element 0, which is below 1 for an empty vector.
inline int32_t count_of(const float* vector) { return truncated(vector[0]); }

}  // namespace kelnn

#endif  // KEL_NN_COUNTED_VECTOR_H_
