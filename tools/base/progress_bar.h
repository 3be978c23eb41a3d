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
  // Of all bars. At terminals they are shown from the program's third second on.
  static void set(ShowProgress when);
  static void hide();  // before something else is printed

  // `total` 0: not known.
  ProgressBar(const std::string& label, int64_t total, const char* unit);
  ~ProgressBar() { hide(); }
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  void show(int64_t done);  // as often as you like: it is drawn a few times a second

 private:
  using Clock = std::chrono::steady_clock;

  std::string label_;
  const char* unit_;
  int64_t total_;
  Clock::time_point start_, last_;
};

}  // namespace kelnn_cli
