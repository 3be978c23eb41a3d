// SPDX-License-Identifier: Apache-2.0
#include "clips.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <vector>

#include "codecs.h"
#include "report.h"

namespace kelnn_cli {
namespace {

namespace fs = std::filesystem;

constexpr double kLongest = 60;  // seconds, unless an event comes when a clip should be over
constexpr size_t kMostKept = 256 << 20;         // bytes of JPEGs
constexpr size_t kPerFrame = 2;                 // pictures that are encoded for each that comes
constexpr std::chrono::minutes kAbandoned{10};  // after which a file in the making is nobody's

bool ends_with(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

void Clips::begin(const std::string& place, double frames_per_second) {
  place_ = place;
  frames_per_second_ = std::max(frames_per_second, 1.0);
  shots_.clear();
  bytes_ = 0;
}

std::string Clips::take(const Frame& frame) {
  std::string done;
  if (frame.pixels.size() != size_) {  // a video has one size
    done = finish();
    size_ = frame.pixels.size();
  }
  last_ = {{}, frame.seconds, frame.index};
  shots_.push_back({encode_jpeg(frame.pixels), frame.seconds, frame.index});
  bytes_ += shots_.back().jpeg.size();
  if (sink_) return write(kPerFrame, false);
  while (shots_.front().seconds < frame.seconds - settings_.before ||
         (bytes_ > kMostKept && shots_.size() > 1)) {
    bytes_ -= shots_.front().jpeg.size();
    shots_.pop_front();
  }
  return done;
}

std::string Clips::want() {
  const double end = last_.seconds + settings_.after;
  if (!sink_) {
    make_room();
    path_ = with_slash(settings_.directory) +
            fmt::format("{}-{:06}{}", place_, last_.index, kClipExtension);
    sink_ = make_video(path_, frames_per_second_);
    start_ = shots_.empty() ? last_.seconds : shots_.front().seconds;
    end_ = end;
  } else if (end < start_ + kLongest || last_.seconds > end_) {
    end_ = end;
  }
  return path_;
}

std::string Clips::finish() {
  const std::string done = sink_ ? write(shots_.size(), true) : "";
  shots_.clear();
  bytes_ = 0;
  return done;
}

// The next pictures of the clip. Gives the clip when it is complete.
std::string Clips::write(size_t count, bool is_last) {
  try {
    for (; count > 0 && !shots_.empty() && shots_.front().seconds <= end_; --count) {
      sink_->write(decode_jpeg(shots_.front().jpeg));
      bytes_ -= shots_.front().jpeg.size();
      shots_.pop_front();
    }
    if (!is_last && (shots_.empty() || shots_.front().seconds <= end_)) return "";
    sink_->finish();
    sink_.reset();
    make_room();
    is_told_ = false;
    return path_;
  } catch (const Failure& failure) {
    sink_.reset();
    if (!is_told_) {
      tell_(fmt::format("{}; clips are left out until they can be written", failure.what()));
    }
    is_told_ = true;
    return "";
  }
}

// Removes the oldest until the limit holds, and what a process left that was killed.
void Clips::make_room() const {
  struct Clip {
    fs::file_time_type time;
    fs::path path;
    int64_t bytes;
  };
  std::vector<Clip> clips;
  int64_t bytes = 0;
  std::error_code error;
  const auto now = fs::file_time_type::clock::now();
  for (fs::recursive_directory_iterator entry(settings_.directory, error), end;
       !error && entry != end; entry.increment(error)) {
    std::error_code gone;
    const std::string name = entry->path().filename();
    const fs::file_time_type time = entry->last_write_time(gone);
    if (gone || !entry->is_regular_file(gone)) continue;
    if (ends_with(name, kClipExtension)) {
      clips.push_back({time, entry->path(), static_cast<int64_t>(entry->file_size(gone))});
      bytes += clips.back().bytes;
    } else if (name.rfind(kTemporaryPrefix, 0) == 0 && time < now - kAbandoned) {
      fs::remove(entry->path(), gone);
    }
  }
  std::sort(clips.begin(), clips.end(), [](const Clip& a, const Clip& b) {
    return a.time != b.time ? a.time < b.time : a.path < b.path;
  });
  for (size_t i = 0; i + 1 < clips.size() && bytes > settings_.most_bytes; ++i) {
    if (fs::remove(clips[i].path, error)) bytes -= clips[i].bytes;
  }
}

}  // namespace kelnn_cli
