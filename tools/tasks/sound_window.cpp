#include "sound_window.h"

#include "formatted.h"
#include "report.h"

namespace kelnn_cli {
namespace {

std::string seconds_text(uint64_t samples) {
  return formatted("%.2f s", static_cast<double>(samples) / kSoundRate);
}

std::vector<int16_t> read_window(Sound* sound, const std::string& name, uint64_t index) {
  std::vector<int16_t> window(kWindowSamples);
  uint64_t total = 0;
  for (uint64_t i = 0; i <= index; ++i) {
    const size_t n = sound->read(window.data(), window.size());
    total += n;
    if (n < window.size()) {
      throw Failure(name, "window " + std::to_string(index) + " ends at " +
                              seconds_text((index + 1) * kWindowSamples) + ", the sound at " +
                              seconds_text(total));
    }
  }
  return window;
}

}  // namespace

kel_nn::SoundFeatures window_features(Sound* sound, const std::string& name, uint64_t index) {
  const std::vector<int16_t> window = read_window(sound, name, index);
  kel_nn::SoundFeatures features;
  if (!features.of(window.data())) {
    throw Failure(name, "window " + std::to_string(index) +
                            " is too quiet to have features: its loudness is " +
                            formatted("%.0f", double{loudness(window)}) + ", the gate is at " +
                            formatted("%.0f", double{kLowestGate}));
  }
  return features;
}

}  // namespace kelnn_cli
