// SPDX-License-Identifier: Apache-2.0
// How far a long video or sound is, on the last line of standard error.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace kelnn_cli {

class ProgressBar {
 public:
  // Nothing is shown when `total` is not known (0), nor, unless the bar is wanted expressly, of what is
  // over before a bar is read and where standard error is no terminal.
  ProgressBar(const std::string& label, int64_t total, const char* unit, bool is_wanted);
  ~ProgressBar() { hide(); }
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  void show(int64_t done);  // as often as you like: it is drawn a few times a second
  void hide();              // before something else is printed

 private:
  using Clock = std::chrono::steady_clock;

  std::string label_;
  const char* unit_;
  int64_t total_;
  bool is_visible_ = false;
  Clock::time_point start_, last_;
};

}  // namespace kelnn_cli
