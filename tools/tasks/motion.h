// The library's motion filter, as the commands set it.
#ifndef KEL_NN_TOOLS_MOTION_H_
#define KEL_NN_TOOLS_MOTION_H_

#include "library_call.h"

namespace kelnn_cli {

struct MotionSettings {
  double ratio = 1;  // per cent
  int period = 25;   // frames
};

inline kel_nn::MotionFilter make_filter(const kel_nn::Library& library,
                                        const MotionSettings& settings) {
  return kel_nn::MotionFilter(library, static_cast<float>(settings.ratio), settings.period);
}

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_MOTION_H_
