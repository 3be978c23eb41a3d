// SPDX-License-Identifier: Apache-2.0
#include "progress_bar.h"

#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace kelnn_cli {
namespace {

constexpr int kWidth = 30;
constexpr int64_t kLong = 100;  // frames, files or seconds of sound
constexpr std::chrono::milliseconds kPause(100);

}  // namespace

ProgressBar::ProgressBar(const std::string& label, int64_t total, const char* unit, bool is_wanted)
    : label_(label),
      unit_(unit),
      total_(is_wanted || (total > kLong && isatty(STDERR_FILENO)) ? total : 0),
      start_(Clock::now()),
      last_(start_ - kPause) {}

void ProgressBar::show(int64_t done) {
  const Clock::time_point now = Clock::now();
  if (total_ <= 0 || now - last_ < kPause) return;
  last_ = now;
  const double part = std::min(1.0, static_cast<double>(done) / static_cast<double>(total_));
  const double seconds = std::chrono::duration<double>(now - start_).count();
  const std::string bar(static_cast<size_t>(part * kWidth), '#');
  fmt::print(stderr, "\r\033[K{} [{:{}}] {:3.0f}%  {:.1f} {}/s", label_, bar, kWidth, 100 * part,
             seconds > 0 ? static_cast<double>(done) / seconds : 0, unit_);
  std::fflush(stderr);
  is_visible_ = true;
}

void ProgressBar::hide() {
  if (!is_visible_) return;
  std::fputs("\r\033[K", stderr);
  std::fflush(stderr);
  is_visible_ = false;
}

}  // namespace kelnn_cli
