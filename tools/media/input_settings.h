// SPDX-License-Identifier: Apache-2.0
// What may be said of an input besides its name.
#pragma once

#include <functional>
#include <string>

#include "report.h"

namespace kelnn_cli {

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

}  // namespace kelnn_cli
