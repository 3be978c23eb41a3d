// SPDX-License-Identifier: Apache-2.0
// Which inputs are meant by what was typed, and what may be said of them.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "report.h"

namespace kelnn_cli {

enum class InputKind { kPictures, kVideos, kPicturesAndVideos, kSounds };

// As it was typed.
struct InputList {
  std::vector<std::string> names;
  std::string glob;                // names to take of those in a directory; none: those of the kind
  bool is_null_separated = false;  // the names on standard input, which are inputs too then
};

// A directory's files, also of those in it, in order, and the names on standard input, a line each, for "-" where that
// is not an input itself. What cannot be listed stays, for check_readable() to tell of when it is opened.
struct Inputs {
  std::vector<std::string> names;
  std::vector<std::string> directories;  // that were looked through, each with a slash at its end
};
Inputs listed(const InputList& list, InputKind kind, bool is_dash_an_input);

// What an input is called among the outputs of all: its path below the directory that was named, else its own name.
std::string place_of(const std::string& input, const Inputs& inputs);

struct InputSettings {
  double start = 0, duration = 0;  // seconds; no duration: to the end
  std::string raw;  // of bare frames: FFmpeg's options of them; none: the file says what is in it
  bool is_lenient = false;
  std::function<void(const std::string&)> tell;  // what a user should know; none: nobody listens
  std::function<bool()> is_over;                 // asked by what waits: is the work to end?

  // Of what would mislead: a Failure, or told when that is to be taken too.
  void object(const std::string& input, const std::string& problem) const {
    if (!is_lenient) throw Failure(input, problem + "; --lenient goes on");
    if (tell) tell(input + ": " + problem);
  }
};

// The reason, where a file cannot be opened: decoders say the same about all that they do not know.
void check_readable(const std::string& path);

// Unless a file has that name.
inline bool is_url(const std::string& input) {
  std::error_code error;
  return input.find("://") != std::string::npos && !std::filesystem::exists(input, error);
}

}  // namespace kelnn_cli
