// SPDX-License-Identifier: Apache-2.0
// The heap of the test program, where faults show: fresh memory is filled, blocks have guards at
// both ends, freed ones are overwritten. Counts what is taken from it with malloc(), calloc() and
// strdup(), not with `new`, by the objects of the program: the library's, the kit's and the tests'.
#ifndef KEL_NN_TESTS_ALLOCATIONS_H_
#define KEL_NN_TESTS_ALLOCATIONS_H_

#include <climits>

namespace kelnn_test {

long allocation_count();
long live_blocks();  // those less what was given back with free()

// While one lives, nothing is to be had, or only these are refused: the first request is number 1.
class NoMemory {
 public:
  explicit NoMemory(long first = 1, long last = LONG_MAX / 2);
  ~NoMemory();
  NoMemory(const NoMemory&) = delete;
  NoMemory& operator=(const NoMemory&) = delete;
};

// Called once, before the next request is answered.
void call_at_next_allocation(void (*call)());

}  // namespace kelnn_test

#endif  // KEL_NN_TESTS_ALLOCATIONS_H_
