// SPDX-License-Identifier: Apache-2.0
// Frames of one window side by side: the same steps, in the same arithmetic, as the routines for
// one frame, in the order of memory that lets a machine with vectors do several frames at once.
#ifndef KEL_NN_FRAME_BATCH_H_
#define KEL_NN_FRAME_BATCH_H_

#include "kel_nn.h"

namespace kelnn {

// Fills rows of `features` from row 0 on and moves `position` on as the routines for one frame do.
// Needs `samples` that are whole numbers of 16 bits.
//
// Returns the number of rows filled: at most `n_frames`, less what does not make a batch, and 0 for
// a geometry that is not the usual one.
int32_t fill_rows_in_batches(kel_nn_mfcc_t* m);

}  // namespace kelnn

#endif  // KEL_NN_FRAME_BATCH_H_
