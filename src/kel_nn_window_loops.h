// SPDX-License-Identifier: Apache-2.0
// The steps of the filter-bank front end that go over a whole window: where its time goes, beside
// the batches of frames.
#ifndef KEL_NN_WINDOW_LOOPS_H_
#define KEL_NN_WINDOW_LOOPS_H_

#include <cstdint>

namespace kelnn {

void widen(const int16_t* pcm, float* samples, int32_t count);

// The gate: every tenth sample's magnitude, added up.
bool is_loud_enough(const float* samples, int32_t count, float threshold);

// Takes its mean over the window off each channel. Rows have kChannels values; a count of rows
// below 1 is none.
void subtract_means(float* features, int32_t row_count);

// Clips the features of all rows, and makes bytes of them.
void quantise(float* features, int32_t row_count, uint8_t* bytes);

}  // namespace kelnn

#endif  // KEL_NN_WINDOW_LOOPS_H_
