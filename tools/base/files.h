// SPDX-License-Identifier: Apache-2.0
// Files, read whole and written whole.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kelnn_cli {

using Bytes = std::vector<uint8_t>;

// Both throw a Failure that names the path.
Bytes read_file(const std::string& path);

// A file in the making, beside the one whose place it is going to take; it vanishes when it does not. So a file is there
// whole or, after a Failure, as it was before. Directories on the way are made.
class Successor {
 public:
  explicit Successor(const std::string& path);
  ~Successor();
  Successor(const Successor&) = delete;
  Successor& operator=(const Successor&) = delete;

  const std::string& path() const { return own_path_; }  // as long as it is in the making
  void write(const Bytes& bytes);
  void take_over();

 private:
  std::string path_, own_path_;
  int descriptor_;
};
void write_file(const std::string& path, const Bytes& bytes);

// A directory as users type it, made a root that file names can be appended to.
std::string with_slash(const std::string& directory);

// Where this program lies, behind links; empty if that is not known.
std::string program_directory();

}  // namespace kelnn_cli
