// What the cry detector's network sees of a window of sound.
#ifndef KEL_NN_TOOLS_FEATURE_MATRIX_H_
#define KEL_NN_TOOLS_FEATURE_MATRIX_H_

#include <cstdint>
#include <vector>

namespace kelnn_cli {

struct FeatureMatrix {
  int rows = 0, channels = 0;  // a row for every 10 ms
  std::vector<uint8_t> bytes;  // row after row, the lowest frequency first
  double mel_step = 0;         // from one channel's centre to the next, and from 0 to the first

  double centre_hz(int channel) const;  // from 0
  double channel_at(double hz) const;   // the inverse
};

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_FEATURE_MATRIX_H_
