// SPDX-License-Identifier: Apache-2.0
// kelnn cry: how likely a baby cries, for every 3 seconds of a sound.
#include <memory>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "progress_bar.h"
#include "sound_window.h"

namespace kelnn_cli {

bool cry(const CryOptions& options, Reporter* reporter) {
  const std::unique_ptr<Sound> sound = open_sound(options.sound);
  kel_nn::CryDetector detector(kel_nn::Library(options.root), options.threshold);
  ProgressBar progress(options.sound, static_cast<int64_t>(sound->expected_samples() / kSoundRate),
                       "s of sound", options.wants_progress);
  std::vector<int16_t> samples = next_window(sound.get());
  uint64_t index = 0;
  for (; samples.size() == kWindowSamples; samples = next_window(sound.get()), ++index) {
    const float probability = cry_probability(samples, &detector);
    const bool is_loud = is_loud_enough(samples, options.threshold);
    const uint64_t start = index * kWindowSeconds, end = start + kWindowSeconds;
    progress.hide();
    reporter->report_one(
        {{"input", options.sound},
         {"window", index},
         {"start", start},
         {"end", end},
         {"loudness", loudness(samples)},
         {"gate_passed", is_loud},
         {"probability", probability}},
        line(std::string("{input} {start} - {end} s: cry {probability:.5f}, loudness "
                         "{loudness:.0f}") +
             (is_loud ? "\n" : ", too quiet for the gate\n")));
    progress.show(static_cast<int64_t>(end));
  }
  progress.hide();
  if (!samples.empty()) {
    const double seconds = static_cast<double>(samples.size()) / kSoundRate;
    reporter->report_one(
        {{"input", options.sound}, {"left_over", seconds}},
        line("{input}: {left_over:.3f} s left over, too short for a window of 3 s\n"));
  }
  if (index == 0) throw Failure(options.sound, "shorter than a window of 3 s");
  return true;
}

}  // namespace kelnn_cli
