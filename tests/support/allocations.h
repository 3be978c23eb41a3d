// SPDX-License-Identifier: Apache-2.0
// Counts what is taken from the heap with malloc(), calloc() and realloc() by the objects of the
// test program: the library's, the kit's and the tests'.
#ifndef KEL_NN_TESTS_ALLOCATIONS_H_
#define KEL_NN_TESTS_ALLOCATIONS_H_

#include <climits>

namespace kelnn_test {

long allocation_count();

// Those less what was given back with free(): strdup()'s blocks count for one less than nothing.
long live_blocks();

// While one lives, nothing is to be had, or only these are refused: the first request is number 1.
class NoMemory {
 public:
  explicit NoMemory(long first = 1, long last = LONG_MAX / 2);
  ~NoMemory();
  NoMemory(const NoMemory&) = delete;
  NoMemory& operator=(const NoMemory&) = delete;
};

}  // namespace kelnn_test

#endif  // KEL_NN_TESTS_ALLOCATIONS_H_
