// SPDX-License-Identifier: Apache-2.0
#include "read_ahead.h"

#include <utility>

namespace kelnn_cli {

void ReadAhead::stop() {
  {
    const std::lock_guard<std::mutex> guard(lock_);
    is_over_ = true;
  }
  is_other_.notify_all();
  if (thread_.joinable()) thread_.join();
}

const Frame* ReadAhead::next(const Tell& tell) {
  if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
  for (;;) {
    std::unique_lock<std::mutex> guard(lock_);
    is_other_.wait(guard, [this] { return !waiting_.empty(); });
    if (waiting_.front().is_end()) {  // and stays there
      if (waiting_.front().why) std::rethrow_exception(waiting_.front().why);
      return nullptr;
    }
    Item item = std::move(waiting_.front());
    waiting_.pop_front();
    if (item.note.empty()) used_.push_back(std::exchange(current_, std::move(item.frame)));
    guard.unlock();
    is_other_.notify_all();
    if (item.note.empty()) return &current_;
    tell(item.note);
  }
}

bool ReadAhead::is_over() const {
  const std::lock_guard<std::mutex> guard(lock_);
  return is_over_;
}

void ReadAhead::run() {
  Item last;
  try {
    for (;;) {
      Frame frame;
      {
        std::unique_lock<std::mutex> guard(lock_);
        is_other_.wait(guard, [this] { return is_over_ || waiting_.size() < kMostWaiting; });
        if (is_over_) return;
        if (!used_.empty()) {
          frame = std::move(used_.back());
          used_.pop_back();
        }
      }
      if (!read_(&frame)) break;
      put({std::move(frame), "", {}});
    }
  } catch (...) {
    last.why = std::current_exception();
  }
  put(std::move(last));
}

void ReadAhead::put(Item item) {
  {
    const std::lock_guard<std::mutex> guard(lock_);
    waiting_.push_back(std::move(item));
  }
  is_other_.notify_all();
}

}  // namespace kelnn_cli
