// Bilinear resizing where a PC has instructions that gather what is multiplied.
#ifndef KEL_NN_RESIZE_WINDOWS_H_
#define KEL_NN_RESIZE_WINDOWS_H_

#include "kel_nn_resize_axis.h"

namespace kelnn {

// Returns false, whatever it has written, where the processor cannot or the samples of neighbouring
// columns lie too far apart.
template <int kChannels>
bool resize_by_windows(const Source& source, const Axis& columns, const Axis& rows,
                       const Destination& to);

}  // namespace kelnn

#endif  // KEL_NN_RESIZE_WINDOWS_H_
