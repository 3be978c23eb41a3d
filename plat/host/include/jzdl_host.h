// SPDX-License-Identifier: Apache-2.0
// What the PC's runtime tells beyond what the chip's does.
#ifndef KEL_NN_HOST_JZDL_HOST_H_
#define KEL_NN_HOST_JZDL_HOST_H_

#include "jzdl.h"

namespace jzdl_host {

// What load_model() of the network that was created last has returned; 0 as long as it was not
// called.
JZDL_API int last_load_error();

}  // namespace jzdl_host

#endif  // KEL_NN_HOST_JZDL_HOST_H_
