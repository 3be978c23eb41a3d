// SPDX-License-Identifier: Apache-2.0
// Which inputs are meant by what was typed.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kelnn_cli {

enum class InputKind { kPictures, kVideos, kPicturesAndVideos, kSounds };

struct InputList {
  std::vector<std::string> names;
  std::string glob;                // names to take of those in a directory; none: those of the kind
  bool is_null_separated = false;  // the names on standard input, which are inputs too then
};

// A directory's files, also of those in it, in order, and the names on standard input, a line each, for "-" where that
// is not an input itself. What cannot be listed stays, for check_readable() to tell of when it is opened.
std::vector<std::string> listed(const InputList& list, InputKind kind, bool is_dash_an_input);

// The reason, where a file cannot be opened: decoders say the same about all that they do not know.
void check_readable(const std::string& path);

// Unless a file has that name.
inline bool is_url(const std::string& input) {
  std::error_code error;
  return input.find("://") != std::string::npos && !std::filesystem::exists(input, error);
}

}  // namespace kelnn_cli
