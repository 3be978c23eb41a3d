#include "cry_detector.h"

#include <algorithm>

#include "kel_nn.h"

namespace kelnn_cli {

CryDetector::CryDetector(const std::string& root, float gate)
    : task_(
          root, "cry-detection", "cry detection",
          [gate](kel_nn_handle_t handle) { return kel_nn_crydet_init(handle, kSoundRate, gate); },
          kel_nn_crydet_deinit),
      gate_(std::max(gate, kLowestGate)) {}

// The library drops what a window has no room for. So no chunk goes beyond the end of one, and the
// next window begins with the sample after it.
float CryDetector::of(const std::vector<int16_t>& window, uint32_t chunk) {
  float probability = 0;
  for (size_t start = 0; start < window.size(); start += chunk) {
    const size_t n = std::min<size_t>(chunk, window.size() - start);
    task_.check(kel_nn_crydet_process(task_.handle(), window.data() + start,
                                      static_cast<uint32_t>(n), &probability));
  }
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
