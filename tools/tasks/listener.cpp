// SPDX-License-Identifier: Apache-2.0
#include "listener.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <deque>
#include <mutex>
#include <thread>

#include "watcher.h"

namespace kelnn_cli {
namespace {

constexpr size_t kBlock = kSoundRate / 10;
constexpr size_t kMostBlocks = 100;  // while nobody listens, as when the picture is lost

double level_of(const std::vector<int16_t>& samples) {
  double sum = 0;
  for (const int16_t sample : samples) sum += static_cast<double>(sample) * sample;
  const double power = sum / static_cast<double>(samples.size()) / (32768.0 * 32768.0);
  const double level = power > 0 ? 10 * std::log10(power) : kSilence;
  return std::round(10 * std::max(level, kSilence)) / 10;
}

}  // namespace

class Listener::LiveSound {
 public:
  LiveSound(const std::string& input, InputSettings settings) {
    settings.tell = nullptr;  // the picture's reader tells that the stream was lost
    settings.is_over = [this, is_over = settings.is_over] {
      return is_over_ || (is_over && is_over());
    };
    thread_ = std::thread([this, input, settings] { read(input, settings); });
  }
  ~LiveSound() {
    is_over_ = true;
    thread_.join();
  }
  LiveSound(const LiveSound&) = delete;
  LiveSound& operator=(const LiveSound&) = delete;

  // What there is by now. `problem`: why there will be no more, told once.
  std::vector<int16_t> take(std::string* problem) {
    const std::lock_guard<std::mutex> lock(lock_);
    std::vector<int16_t> samples;
    for (const auto& block : blocks_) samples.insert(samples.end(), block.begin(), block.end());
    blocks_.clear();
    problem->swap(problem_);
    return samples;
  }

 private:
  void read(const std::string& input, const InputSettings& settings) {
    try {
      const std::unique_ptr<Sound> sound = open_sound(input, settings);
      for (std::vector<int16_t> block(kBlock); !settings.is_over(); block.resize(kBlock)) {
        block.resize(sound->read(block.data(), block.size()));
        if (block.empty()) return;
        const std::lock_guard<std::mutex> lock(lock_);
        if (blocks_.size() == kMostBlocks) blocks_.pop_front();
        blocks_.push_back(block);
      }
    } catch (const std::exception& error) {
      const std::lock_guard<std::mutex> lock(lock_);
      problem_ = error.what();
    }
  }

  std::atomic<bool> is_over_{false};
  std::mutex lock_;  // of what follows
  std::deque<std::vector<int16_t>> blocks_;
  std::string problem_;
  std::thread thread_;
};

Listener::Listener(const std::string& root, const Note& note) : library_(root), note_(note) {}

Listener::~Listener() = default;

void Listener::begin(const std::string& input, bool is_live, const InputSettings& settings) {
  input_ = input;
  settings_ = settings;
  problem_.clear();
  taken_ = 0;
  live_.reset();
  recording_.reset();
  detector_.reset();  // before there is another one
  if (!settings.raw.empty() || input.rfind("camera:", 0) == 0) return;
  if (is_live) {
    live_ = std::make_unique<LiveSound>(input, settings);
  } else {
    InputSettings silent = settings;
    silent.tell = nullptr;  // with what is wrong with the picture
    try {
      recording_ = open_sound(input, silent);
    } catch (const Failure&) {
      return;
    }
  }
  is_told_ = is_told_ || !has_model(library_, "cry-detection", "cries", note_);
  if (!is_told_) detector_.emplace(library_);
}

std::vector<int16_t> Listener::recorded_until(double seconds) {
  const auto end =
      static_cast<uint64_t>(std::max(0.0, std::round((seconds - settings_.start) * kSoundRate)));
  std::vector<int16_t> samples(end - std::min(end, taken_));
  try {
    samples.resize(recording_->read(samples.data(), samples.size()));
  } catch (const Failure& failure) {
    problem_ = failure.problem();
    recording_.reset();
    return {};
  }
  taken_ += samples.size();
  return samples;
}

std::optional<Heard> Listener::hear(double seconds) {
  if (!recording_ && !live_) return {};
  std::string problem;
  const std::vector<int16_t> samples = live_ ? live_->take(&problem) : recorded_until(seconds);
  if (!problem.empty()) note_("watched without sound: " + problem);
  if (samples.empty()) return {};
  Heard heard{level_of(samples)};
  if (detector_) {
    detector_->add(samples.data(), samples.size(),
                   [&](float probability) { heard.crying.push_back(probability); });
  }
  return heard;
}

void Listener::finish() {
  if (!problem_.empty()) settings_.object(input_, "the sound: " + problem_);
  live_.reset();
}

}  // namespace kelnn_cli
