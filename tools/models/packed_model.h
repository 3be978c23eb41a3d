// SPDX-License-Identifier: Apache-2.0
// Model files: a scrambled container around an ONNX network.
#ifndef KEL_NN_TOOLS_PACKED_MODEL_H_
#define KEL_NN_TOOLS_PACKED_MODEL_H_

#include "files.h"

namespace kelnn_cli {

// The bytes of a model file.
Bytes pack_network(const Bytes& onnx);

// The network in a model file. The Failure tells a newcomer what is wrong with the file.
Bytes unpack_network(const std::string& path);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_PACKED_MODEL_H_
