// SPDX-License-Identifier: Apache-2.0
#include "progress_bar.h"

#include <fmt/format.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "report.h"

namespace kelnn_cli {
namespace {

constexpr int kWidth = 30;
constexpr std::chrono::milliseconds kPause(100);
constexpr std::chrono::seconds kPatience(2);

const auto g_start = std::chrono::steady_clock::now();
ShowProgress g_when = ShowProgress::kNever;
std::atomic<bool> g_is_visible = {false};
std::mutex g_lock;                       // of the line, and of
std::vector<const ProgressBar*> g_bars;  // those that have something to show, the innermost last

void draw(const std::string& text) {
  fmt::print(stderr, "\r\033[K{}", text);
  std::fflush(stderr);
  g_is_visible = true;
}

// A line that is too long would not be erased.
size_t columns_of_terminal() {
  winsize size = {};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col - 1u
                                                                         : SIZE_MAX;
}

// As much of a path as there is room for: its end tells more.
std::string end_of(const std::string& path, size_t room) {
  constexpr char kGap[] = "...";
  if (path.size() <= room) return path;
  size_t begin = path.size() + std::strlen(kGap) - std::max(room, std::strlen(kGap));
  while (begin < path.size() && (path[begin] & 0xc0) == 0x80) ++begin;  // whole letters of UTF-8
  return kGap + path.substr(begin);
}

// Draws again and again at a terminal: works may take long without a word.
class Ticker {
 public:
  explicit Ticker(const std::string& work) : work_(work) {
    sigset_t all, before;  // signals are for the thread that works
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    thread_ = std::thread([this] { run(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }
  ~Ticker() {
    {
      const std::lock_guard<std::mutex> lock(g_lock);
      is_over_ = true;
    }
    end_.notify_one();
    thread_.join();
  }
  Ticker(const Ticker&) = delete;
  Ticker& operator=(const Ticker&) = delete;

 private:
  void run() {
    std::unique_lock<std::mutex> lock(g_lock);
    const auto is_over = [this] { return is_over_; };
    for (auto pause = std::chrono::milliseconds(kPatience); !end_.wait_for(lock, pause, is_over);
         pause = kPause) {
      const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - g_start;
      draw(g_bars.empty() ? fmt::format("{}  {:.0f} s", work_, seconds.count())
                          : g_bars.back()->text(columns_of_terminal()));
    }
  }

  std::string work_;
  bool is_over_ = false;
  std::condition_variable end_;
  std::thread thread_;
};
std::unique_ptr<Ticker> g_ticker;

}  // namespace

void ProgressBar::set(ShowProgress when, const std::string& work) {
  const bool is_terminal = isatty(STDERR_FILENO);
  g_when = when == ShowProgress::kAtTerminals && !is_terminal ? ShowProgress::kNever : when;
  if (g_when != ShowProgress::kNever && is_terminal) g_ticker = std::make_unique<Ticker>(work);
}

ProgressBar::Hidden::Hidden() {
  g_lock.lock();
  erase();
}

ProgressBar::Hidden::~Hidden() { g_lock.unlock(); }

void ProgressBar::erase() {
  if (g_is_visible.exchange(false)) g_is_visible = write(STDERR_FILENO, "\r\033[K", 4) < 0;
}

ProgressBar::ProgressBar(const std::string& label, int64_t total, const char* unit)
    : label_(harmless(label)),
      unit_(unit),
      total_(total),
      start_(Clock::now()),
      last_(start_ - kPause) {}

ProgressBar::~ProgressBar() {
  const Hidden hidden;
  g_bars.erase(std::remove(g_bars.begin(), g_bars.end(), this), g_bars.end());
}

void ProgressBar::show(int64_t done) {
  if (g_when == ShowProgress::kNever) return;
  const std::lock_guard<std::mutex> lock(g_lock);
  if (std::find(g_bars.begin(), g_bars.end(), this) == g_bars.end()) g_bars.push_back(this);
  done_ = done;
  const Clock::time_point now = Clock::now();
  if (g_when != ShowProgress::kAlways || now - last_ < kPause) return;
  last_ = now;
  draw(text(SIZE_MAX));
}

std::string ProgressBar::text(size_t columns) const {
  const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
  const double rate = seconds > 0 ? static_cast<double>(done_) / seconds : 0;
  std::string text = fmt::format("  {} {}", done_, unit_);
  if (total_ > 0) {
    const double part = std::min(1.0, static_cast<double>(done_) / static_cast<double>(total_));
    const std::string bar(static_cast<size_t>(part * kWidth), '#');
    text = fmt::format(" [{:{}}] {:3.0f}%", bar, kWidth, 100 * part);
  }
  text += fmt::format("  {:.1f} {}/s", rate, unit_);
  if (done_ > 0 && done_ <= total_) {
    const auto left = static_cast<int64_t>(static_cast<double>(total_ - done_) / rate + 0.5);
    text += fmt::format("  {}:{:02} left", left / 60, left % 60);
  }
  return end_of(label_, columns > text.size() ? columns - text.size() : 0) + text;
}

}  // namespace kelnn_cli
