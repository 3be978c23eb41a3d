// SPDX-License-Identifier: Apache-2.0
// The logarithm of channel energies, many at a time.
#ifndef KEL_NN_LOG_ENERGY_H_
#define KEL_NN_LOG_ENERGY_H_

#include <cstdint>

namespace kelnn {

// Replaces each value by its natural logarithm, of 1 for a value below: the double that log() gives
// for it, rounded to float.
void take_logs(float* values, int32_t count);

}  // namespace kelnn

#endif  // KEL_NN_LOG_ENERGY_H_
