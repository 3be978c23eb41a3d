// SPDX-License-Identifier: Apache-2.0
// What viewers are shown: put there by one thread, taken by many, of whom none holds up another.
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <opencv2/imgproc.hpp>

#include "live_page.h"

namespace kelnn_cli {

class Board {
 public:
  explicit Board(LivePage::EncodeJpeg encode) : encode_(encode) {}

  struct Shot {  // a frame that somebody asked for
    int64_t number = 0;
    std::string jpeg, state;
  };

  bool wants_frame() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const Clock::time_point now = Clock::now();
    return frames_ == 0 || now - shown_ >= (now - asked_ < kLooking ? kFresh : kUnseen);
  }

  void show(const cv::Mat& drawn_bgr, const std::string& state) {
    cv::Mat frame = drawn_bgr.clone();
    const std::lock_guard<std::mutex> lock(mutex_);
    std::swap(frame_, frame);
    state_ = state;
    ++frames_;
    shown_ = Clock::now();
    changed_.notify_all();
  }

  void tell(const std::string& event, const std::string& clip) {
    if (event.size() > kMaxEventSize) return;
    const std::lock_guard<std::mutex> lock(mutex_);
    events_.push_back({event, clip});
    if (events_.size() > kMaxEvents) events_.pop_front();
    ++told_;
    changed_.notify_all();
  }

  // The newest, which is encoded when it is asked for the first time. Waits for one after that number or for an event
  // after the other, but not for long; null: there was none yet.
  std::shared_ptr<const Shot> newest(int64_t after, int64_t told) {
    std::unique_lock<std::mutex> lock(mutex_);
    asked_ = Clock::now();
    const Clock::time_point deadline = asked_ + kPatience;
    for (;;) {
      if (!frame_.empty() && !is_encoding_) encode(&lock);
      const bool is_new = (shot_ && shot_->number > after) || told_ > told;
      if (is_new || is_closed_ || Clock::now() >= deadline) return shot_;
      changed_.wait_until(lock, deadline);
    }
  }

  std::string events_after(int64_t told) const {  // as JSON
    const std::lock_guard<std::mutex> lock(mutex_);
    const int64_t first = told_ - static_cast<int64_t>(events_.size()) + 1;
    std::string list;
    for (int64_t number = std::max(first, told + 1); number <= told_; ++number) {
      list += (list.empty() ? "{\"number\":" : ",{\"number\":") + std::to_string(number) +
              ",\"event\":" + events_[static_cast<size_t>(number - first)].json + "}";
    }
    return "[" + list + "]";
  }

  bool has_clip(const std::string& path) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::any_of(events_.begin(), events_.end(),
                       [&](const Event& event) { return event.clip == path; });
  }

  void close() {  // nobody waits any more
    const std::lock_guard<std::mutex> lock(mutex_);
    is_closed_ = true;
    changed_.notify_all();
  }

 private:
  using Clock = std::chrono::steady_clock;
  using Milliseconds = std::chrono::milliseconds;
  static constexpr Milliseconds kFresh{100}, kUnseen{1000};  // while somebody looks, or nobody
  static constexpr Milliseconds kLooking{5000};              // after the last question
  static constexpr Milliseconds kPatience{2000};             // until "nothing new" is the answer
  static constexpr size_t kMaxEvents = 50, kMaxEventSize = 16384;
  static constexpr int kMaxSide = 1280, kQuality = 80;  // what a telephone's line carries

  struct Event {
    std::string json, clip;
  };

  void encode(std::unique_lock<std::mutex>* lock) {
    cv::Mat frame;
    std::swap(frame, frame_);
    const auto shot = std::make_shared<Shot>(Shot{frames_, "", state_});
    is_encoding_ = true;
    lock->unlock();
    try {
      const double scale = double{kMaxSide} / std::max(frame.cols, frame.rows);
      if (scale < 1) cv::resize(frame, frame, {}, scale, scale, cv::INTER_AREA);
      const Bytes jpeg = encode_(frame, kQuality);
      shot->jpeg.assign(jpeg.begin(), jpeg.end());
    } catch (const std::exception&) {  // for want of memory: there is no picture
    }
    lock->lock();
    is_encoding_ = false;
    shot_ = shot;
    changed_.notify_all();
  }

  const LivePage::EncodeJpeg encode_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool is_closed_ = false, is_encoding_ = false;
  cv::Mat frame_;  // until somebody asks
  std::string state_;
  int64_t frames_ = 0, told_ = 0;  // so far
  Clock::time_point shown_, asked_;
  std::shared_ptr<const Shot> shot_;
  std::deque<Event> events_;  // the last ones
};

}  // namespace kelnn_cli
