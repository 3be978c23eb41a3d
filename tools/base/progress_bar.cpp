// SPDX-License-Identifier: Apache-2.0
#include "progress_bar.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace kelnn_cli {
namespace {

constexpr int kWidth = 30;
constexpr std::chrono::milliseconds kPause(100);
constexpr std::chrono::seconds kPatience(2);

const auto g_start = std::chrono::steady_clock::now();
ShowProgress g_when = ShowProgress::kNever;
bool g_is_visible = false;

}  // namespace

void ProgressBar::set(ShowProgress when) {
  g_when =
      when == ShowProgress::kAtTerminals && !isatty(STDERR_FILENO) ? ShowProgress::kNever : when;
}

void ProgressBar::hide() {
  if (!g_is_visible) return;
  std::fputs("\r\033[K", stderr);
  std::fflush(stderr);
  g_is_visible = false;
}

ProgressBar::ProgressBar(const std::string& label, int64_t total, const char* unit)
    : label_(label), unit_(unit), total_(total), start_(Clock::now()), last_(start_ - kPause) {}

void ProgressBar::show(int64_t done) {
  const Clock::time_point now = Clock::now();
  if (g_when == ShowProgress::kNever || now - last_ < kPause) return;
  if (g_when == ShowProgress::kAtTerminals && now - g_start < kPatience) return;
  last_ = now;
  const double seconds = std::chrono::duration<double>(now - start_).count();
  const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
  std::string text = fmt::format("{}  {} {}", label_, done, unit_);
  if (total_ > 0) {
    const double part = std::min(1.0, static_cast<double>(done) / static_cast<double>(total_));
    const std::string bar(static_cast<size_t>(part * kWidth), '#');
    text = fmt::format("{} [{:{}}] {:3.0f}%", label_, bar, kWidth, 100 * part);
  }
  text += fmt::format("  {:.1f} {}/s", rate, unit_);
  if (done > 0 && done <= total_) {
    const auto left = static_cast<int64_t>(static_cast<double>(total_ - done) / rate + 0.5);
    text += fmt::format("  {}:{:02} left", left / 60, left % 60);
  }
  fmt::print(stderr, "\r\033[K{}", text);
  std::fflush(stderr);
  g_is_visible = true;
}

}  // namespace kelnn_cli
