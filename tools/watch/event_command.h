// SPDX-License-Identifier: Apache-2.0
// A command of the user's that is given each event, a line on its standard input: one event after the other, in a thread, so
// that no frame waits for it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kelnn_cli {

class EventCommand {
 public:
  struct Limits {
    std::chrono::milliseconds patience{
        10000};                 // for one event, and for all that are left at the end
    size_t most_waiting = 100;  // events; what comes then is left out
  };

  // For a shell. It is ended, with what it started, when it takes too long.
  explicit EventCommand(const std::string& command) : EventCommand(command, Limits()) {}
  EventCommand(const std::string& command, const Limits& limits);
  ~EventCommand();
  EventCommand(const EventCommand&) = delete;
  EventCommand& operator=(const EventCommand&) = delete;

  void give(const std::string& line);   // at once
  std::vector<std::string> problems();  // since it was asked last: the first of each kind
  // Waits for what has been given. What is wrong with it all in all; none: all of it has been taken.
  std::string finish();

 private:
  using Clock = std::chrono::steady_clock;
  enum Fate { kTaken, kFailed, kTooSlow, kLeftOut, kFates };

  void work();
  Fate run(const std::string& line, std::string* problem);
  bool is_waited_for(Clock::time_point since);
  void note(Fate fate, const std::string& problem);  // the lock is held

  std::string command_;
  Limits limits_;
  std::mutex lock_;  // of what follows
  std::condition_variable changed_;
  std::deque<std::string> waiting_;
  bool is_over_ = false;
  Clock::time_point end_;  // when nothing is waited for any more
  size_t fates_[kFates] = {};
  std::vector<std::string> problems_;
  std::thread thread_;
};

}  // namespace kelnn_cli
