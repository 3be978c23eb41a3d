// SPDX-License-Identifier: Apache-2.0
// Files, read whole and written whole.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kelnn_cli {

using Bytes = std::vector<uint8_t>;

// Both throw a Failure that names the path.
Bytes read_file(const std::string& path);

// Tells where results go when file descriptor 1 leads elsewhere: to be written to as /dev/stdout.
void set_standard_output(int descriptor);

constexpr char kTemporaryPrefix[] = ".kelnn-";  // of files in the making

// An output in the making. A file is written beside the one whose place it is going to take, and vanishes when it does
// not: it is there whole or, after a Failure, as it was before. It keeps its permissions, and links to it stay links.
// Directories on the way are made, and vanish too. What is no file, as a device, a pipe or standard output, is written to itself.
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
  void remove_directories() const;

  std::string path_, target_, own_path_;  // as it was named, behind links, what is open
  std::optional<struct stat> before_;     // none: there was no file
  int descriptor_ = -1;
  bool is_temporary_ = false;
  std::vector<std::string> made_;  // directories, the innermost first
};
void write_file(const std::string& path, const Bytes& bytes);

// False, and errno says why: not all of it.
bool write_all(int descriptor, const void* data, size_t size);

// Does what is written to the path come out where results do? Then nothing else is to be written there.
bool is_standard_output(const std::string& path);

// A UsageError where an output would take the place of an input, by whatever names. "-" is standard input.
void check_outputs(const std::vector<std::string>& outputs, const std::vector<std::string>& inputs);

// Of every Successor, and their directories; for signal handlers before the process ends.
void remove_temporary_files();

// A directory as users type it, made a root that file names can be appended to.
std::string with_slash(const std::string& directory);

// As a shell reads it back: in quotation marks if need be.
std::string quoted(const std::string& word);

// Where this program lies, behind links; empty if that is not known.
std::string program_directory();

}  // namespace kelnn_cli
