// SPDX-License-Identifier: Apache-2.0
// A way to stand between the library and its networks, for who replays recordings. Of libjzdl_host.so.
#ifndef KEL_NN_HOST_WRAP_NETWORKS_H_
#define KEL_NN_HOST_WRAP_NETWORKS_H_

#include <jzdl.h>

namespace kelnn_host {

// From here on jzdl::net_create() gives what `wrap` makes of a network of this runtime, which it then owns; null: that
// network itself again.
void wrap_networks(jzdl::BaseNet* (*wrap)(jzdl::BaseNet* own));

}  // namespace kelnn_host

#endif  // KEL_NN_HOST_WRAP_NETWORKS_H_
