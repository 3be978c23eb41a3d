#include "progress_bar.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace kelnn_cli {
namespace {

constexpr std::chrono::milliseconds kPatience(500), kInterval(100);
constexpr uint64_t kWidth = 40;  // characters

}  // namespace

ProgressBar::ProgressBar(uint64_t total)
    : total_(isatty(STDERR_FILENO) ? total : 0), next_(Clock::now() + kPatience) {}

ProgressBar::~ProgressBar() { hide(); }

void ProgressBar::update(uint64_t done) {
  if (total_ == 0) return;
  const Clock::time_point now = Clock::now();
  if (now < next_) return;
  next_ = now + kInterval;
  const double share = std::min(1.0, static_cast<double>(done) / static_cast<double>(total_));
  std::string bar(kWidth, ' ');
  bar.replace(0, static_cast<size_t>(share * kWidth), static_cast<size_t>(share * kWidth), '#');
  std::fprintf(stderr, "\r[%s] %3.0f %%", bar.c_str(), share * 100.0);
  std::fflush(stderr);
  is_drawn_ = true;
}

void ProgressBar::hide() {
  if (!is_drawn_) return;
  std::fputs("\r\033[K", stderr);
  std::fflush(stderr);
  is_drawn_ = false;
}

}  // namespace kelnn_cli
