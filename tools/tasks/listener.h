// SPDX-License-Identifier: Apache-2.0
// The sound beside a picture, of the same file or stream, as far as the picture has come: how loud it is, and crying.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kel_nn.hpp"
#include "sound_file.h"

namespace kelnn_cli {

struct Heard {
  double level = 0;  // dB of full scale, of all that was heard: 0 is the most, kSilence the least
  std::vector<float> crying = {};  // the probability of each window that ended, of 3 s
};
constexpr double kSilence = -96;

class Listener {
 public:
  using Note = std::function<void(const std::string&)>;

  // `note` is told when there is no model for crying, and when a live sound is lost for good.
  Listener(const std::string& root, const Note& note);
  ~Listener();

  // Another input. One without sound, or whose sound cannot be read, is silent. `is_live`: it is read as it comes, in a thread,
  // for nobody knows how long it takes.
  void begin(const std::string& input, bool is_live, const InputSettings& settings);
  // What came until that time of the picture; none: there is no sound.
  std::optional<Heard> hear(double seconds);
  // At the end of a recording: objects to a sound that was damaged.
  void finish();

 private:
  class LiveSound;

  std::vector<int16_t> recorded_until(double seconds);

  kel_nn::Library library_;
  Note note_;
  bool is_told_ = false;
  std::string input_, problem_;  // what was wrong with it
  InputSettings settings_;
  std::unique_ptr<Sound> recording_;  // one of the two, or none
  std::unique_ptr<LiveSound> live_;
  uint64_t taken_ = 0;  // samples of the recording
  std::optional<kel_nn::CryDetector> detector_;
};

}  // namespace kelnn_cli
