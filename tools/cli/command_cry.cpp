// kelnn cry: how likely a baby cries, for every 3 seconds of a sound.
#include <fmt/format.h>

#include <memory>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "progress_bar.h"
#include "report.h"
#include "sound_window.h"

namespace kelnn_cli {
namespace {

struct Window {
  const std::string& sound;
  uint64_t index;
  float loudness;
  bool is_loud_enough;
  float probability;

  uint64_t start() const { return index * kWindowSeconds; }  // in seconds, like the end
  uint64_t end() const { return start() + kWindowSeconds; }
};

std::string text_of(const Window& window) {
  return fmt::format("{} {} - {} s: cry {:.5f}, loudness {:.0f}{}\n", window.sound, window.start(),
                     window.end(), window.probability, window.loudness,
                     window.is_loud_enough ? "" : ", too quiet for the gate");
}

Json json_of(const Window& window) {
  return {{"input", window.sound},
          {"window", window.index},
          {"start", window.start()},
          {"end", window.end()},
          {"loudness", window.loudness},
          {"gate_passed", window.is_loud_enough},
          {"probability", window.probability}};
}

// At the sound's end.
struct Rest {
  const std::string& sound;
  double seconds;
};

std::string text_of(const Rest& rest) {
  return fmt::format("{}: {:.3f} s left over, too short for a window of 3 s\n", rest.sound,
                     rest.seconds);
}

Json json_of(const Rest& rest) { return {{"input", rest.sound}, {"left_over", rest.seconds}}; }

}  // namespace

bool cry(const CryOptions& options, Reporter* reporter) {
  const std::unique_ptr<Sound> sound = open_sound(options.sound);
  kel_nn::CryDetector detector(kel_nn::Library(options.root), options.threshold);
  ProgressBar progress(options.sound, static_cast<int64_t>(sound->expected_samples() / kSoundRate),
                       "s of sound", options.wants_progress);
  std::vector<int16_t> samples = next_window(sound.get());
  uint64_t index = 0;
  for (; samples.size() == kWindowSamples; samples = next_window(sound.get()), ++index) {
    const float probability = cry_probability(samples, &detector);
    const Window window = {options.sound, index, loudness(samples),
                           is_loud_enough(samples, options.threshold), probability};
    progress.hide();
    reporter->report_one(window);
    progress.show(static_cast<int64_t>(window.end()));
  }
  progress.hide();
  if (!samples.empty()) {
    reporter->report_one(Rest{options.sound, static_cast<double>(samples.size()) / kSoundRate});
  }
  if (index == 0) throw Failure(options.sound, "shorter than a window of 3 s");
  return true;
}

}  // namespace kelnn_cli
