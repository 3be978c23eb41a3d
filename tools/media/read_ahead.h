// SPDX-License-Identifier: Apache-2.0
// Frames that a thread of its own reads while those before them are looked at.
#pragma once

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "frame_source.h"

namespace kelnn_cli {

class ReadAhead {
 public:
  using Read = std::function<bool(Frame*)>;
  using Tell = std::function<void(const std::string&)>;

  // `read` gives the next frame, or false when there is none left. Only the thread calls it, from the first next() on.
  explicit ReadAhead(const Read& read) : read_(read) {}
  ~ReadAhead() { stop(); }
  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;

  // The next frame, which holds until the one after it; null at the end. In their places what was noted is told, and what
  // was thrown is thrown.
  const Frame* next(const Tell& tell);

  void stop();  // nobody wants frames any more; waits for the one that is being read

  // For what reads.
  void note(const std::string& message) { put({{}, message, {}}); }
  bool is_over() const;  // stopped

 private:
  static constexpr size_t kMostWaiting = 2;

  struct Item {
    Frame frame;
    std::string note;        // none: no note
    std::exception_ptr why;  // of an end that is none

    bool is_end() const { return note.empty() && frame.pixels.empty(); }
  };

  void run();
  void put(Item item);

  Read read_;
  mutable std::mutex lock_;           // of what follows
  std::condition_variable is_other_;  // something of it
  std::deque<Item> waiting_;
  std::vector<Frame> used_;  // whose pixels have room for others
  bool is_over_ = false;

  Frame current_;
  std::thread thread_;
};

}  // namespace kelnn_cli
