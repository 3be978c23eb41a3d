// SPDX-License-Identifier: Apache-2.0
// A server's stream without an end, when it ends nevertheless: it is asked for again, after waits that grow.
#pragma once

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "stream_reader.h"

namespace kelnn_cli {

class Reconnection {
 public:
  Reconnection(const std::string& url, const InputSettings& settings)
      : url_(url), settings_(settings) {}

  static bool is_needed_for(const StreamReader& reader) {
    return reader.is_of_server() && reader.input()->duration <= 0;
  }

  bool is_over() const { return settings_.is_over && settings_.is_over(); }
  void note_success() { wait_ = kFirstWait; }  // something came
  // Tells once of each time that it is dropped. Null: the server has not come back yet, or the work is over.
  std::unique_ptr<StreamReader> wait_and_open(AVMediaType type, const std::string& problem) {
    if (wait_ == kFirstWait && settings_.tell) {
      settings_.tell(url_ + ": the stream was dropped (" + problem +
                     "); it is asked for again until it is there");
    }
    const Clock::time_point end = Clock::now() + wait_;
    while (Clock::now() < end && !is_over()) std::this_thread::sleep_for(kNap);
    wait_ = std::min(2 * wait_, kLongestWait);
    std::string why_not;
    return is_over() ? nullptr : StreamReader::open(url_, type, settings_, &why_not);
  }

 private:
  using Clock = std::chrono::steady_clock;
  using Wait = std::chrono::milliseconds;
  static constexpr Wait kFirstWait{500}, kLongestWait{60000}, kNap{50};

  std::string url_;
  InputSettings settings_;
  Wait wait_ = kFirstWait;
};

}  // namespace kelnn_cli
