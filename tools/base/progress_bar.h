// SPDX-License-Identifier: Apache-2.0
// How far a long work is and how long it is going to take, on the last line of standard error.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace kelnn_cli {

enum class ShowProgress { kNever, kAtTerminals, kAlways };

class ProgressBar {
 public:
  // Of all bars. At terminals they are shown from the program's third second on, also while a step of the work takes
  // long; before the first one, how long `work` has taken.
  static void set(ShowProgress when, const std::string& work);

  // While it lives there is no bar, and something else can be printed.
  class Hidden {
   public:
    Hidden();
    ~Hidden();
    Hidden(const Hidden&) = delete;
    Hidden& operator=(const Hidden&) = delete;
  };
  static void erase();  // for signal handlers before the process ends

  // `total` 0: not known.
  ProgressBar(const std::string& label, int64_t total, const char* unit);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  void show(int64_t done);                 // as often as you like: it is drawn a few times a second
  std::string text(size_t columns) const;  // its label is shortened

 private:
  using Clock = std::chrono::steady_clock;

  std::string label_;
  const char* unit_;
  int64_t total_, done_ = 0;
  Clock::time_point start_, last_;
};

}  // namespace kelnn_cli
