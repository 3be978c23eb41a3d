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

float CryDetector::of(const std::vector<int16_t>& window) {
  float probability = 0;
  task_.check(kel_nn_crydet_process(task_.handle(), window.data(),
                                    static_cast<uint32_t>(window.size()), &probability));
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
