// SPDX-License-Identifier: Apache-2.0
// Sound as the cry detector hears it, mono at 16 kHz, from a file of any kind or a pipe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "inputs.h"

namespace kelnn_cli {

constexpr int kSoundRate = 16000;

class Sound {
 public:
  virtual ~Sound() = default;

  // The next `count` samples, or as many as there are left. What comes does not depend on how it is
  // asked for. A Failure names the file.
  virtual size_t read(int16_t* samples, size_t count) = 0;
  // Samples a second as recorded: below kSoundRate, there is nothing in the upper channels.
  virtual int recorded_rate() const = 0;
  // About how many samples there are in all; 0 when nobody knows.
  virtual uint64_t expected_samples() const = 0;
};

// A sound as it was recorded.
class SoundTrack {
 public:
  virtual ~SoundTrack() = default;
  virtual int rate() const = 0;
  virtual int channels() const = 0;
  virtual int64_t frames() const = 0;  // a sample of each channel; 0: not known
  // How many of `count` frames there were, channels side by side.
  virtual size_t read(float* samples, size_t count) = 0;
  virtual std::string problem() const = 0;  // of what was read so far; none: it is fine
};

// A file, or a stream, that libsndfile or FFmpeg reads: its channels are averaged, and it is resampled if need be. "-" is
// standard input: bare 16-bit samples, low byte first, mono at 16 kHz.
std::unique_ptr<Sound> open_sound(const std::string& path, const InputSettings& settings = {});

}  // namespace kelnn_cli
