#include "cry_detector.h"

#include <algorithm>

#include "library_call.h"

namespace kelnn_cli {

CryDetector::CryDetector(const kel_nn::Library& library, float gate)
    : root_(library.directory()),
      task_(explained(root_, [&] { return kel_nn::CryDetector(library, gate); })),
      gate_(std::max(gate, kLowestGate)) {}

float CryDetector::of(const std::vector<int16_t>& window) {
  float probability = 0;
  explained(root_, [&] {
    task_.add(window.data(), window.size(), [&](float heard) { probability = heard; });
  });
  return probability;
}

bool CryDetector::is_loud_enough(const std::vector<int16_t>& window) const {
  return !(loudness(window) < gate_);
}

std::vector<int16_t> next_window(Sound* sound) {
  std::vector<int16_t> window(kWindowSamples);
  window.resize(sound->read(window.data(), window.size()));
  return window;
}

}  // namespace kelnn_cli
