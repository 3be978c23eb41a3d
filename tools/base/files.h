// SPDX-License-Identifier: Apache-2.0
// Files, read whole and written whole.
#ifndef KEL_NN_TOOLS_FILES_H_
#define KEL_NN_TOOLS_FILES_H_

#include <cstdint>
#include <string>
#include <vector>

namespace kelnn_cli {

using Bytes = std::vector<uint8_t>;

// Both throw a Failure that names the path.
Bytes read_file(const std::string& path);

// The file is there with all its bytes or, after a Failure, as it was before. Directories on the way
// are made.
void write_file(const std::string& path, const Bytes& bytes);

// A directory as users type it, made a root that file names can be appended to.
std::string with_slash(const std::string& directory);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_FILES_H_
