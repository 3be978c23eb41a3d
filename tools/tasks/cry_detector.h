// The library's cry detection task, on whole windows of sound.
#ifndef KEL_NN_TOOLS_CRY_DETECTOR_H_
#define KEL_NN_TOOLS_CRY_DETECTOR_H_

#include <cstdint>
#include <string>
#include <vector>

#include "kel_nn.hpp"
#include "sound_window.h"

namespace kelnn_cli {

class CryDetector {
 public:
  // `gate`: the least loudness that is shown to the network; less than kLowestGate counts as that.
  // A Failure says why the model does not load.
  CryDetector(const kel_nn::Library& library, float gate);

  float of(const std::vector<int16_t>& window);  // the probability of crying in kWindowSamples

  bool is_loud_enough(const std::vector<int16_t>& window) const;

 private:
  std::string root_;
  kel_nn::CryDetector task_;
  float gate_;
};

// The sound's next window, or what is left of it at its end.
std::vector<int16_t> next_window(Sound* sound);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_CRY_DETECTOR_H_
