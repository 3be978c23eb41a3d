// SPDX-License-Identifier: Apache-2.0
// Windows of sound for the audio tests. Every call gives the same samples.
#ifndef KEL_NN_TESTS_SOUNDS_H_
#define KEL_NN_TESTS_SOUNDS_H_

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

namespace kelnn_test {

struct Sound {
  std::string name;
  std::vector<int16_t> pcm;
};

template <typename Function>
Sound make_sound(const char* name, int n, Function sample) {
  Sound sound = {name, std::vector<int16_t>(n)};
  uint32_t noise = 1;
  for (int i = 0; i < n; ++i) {
    noise = noise * 1664525 + 1013904223;
    sound.pcm[i] = static_cast<int16_t>(sample(i, static_cast<int>(noise >> 16) - 32768));
  }
  return sound;
}

// `noise` runs from -32768 to 32767.
inline std::vector<Sound> sounds(int n) {
  return {
      make_sound("noise at full scale", n, [](int, int noise) { return noise; }),
      make_sound("faint noise", n, [](int, int noise) { return noise / 300; }),
      make_sound("tone", n, [](int i, int) { return 20000 * std::sin(i * 0.1); }),
      make_sound(
          "sliding tone over noise", n,
          [](int i, int noise) { return 8000 * std::sin(i * (0.1 + i * 2e-6)) + noise / 50; }),
      make_sound("square at both ends of the range", n,
                 [](int i, int) { return i / 37 % 2 ? 32767 : -32768; }),
      make_sound("constant", n, [](int, int) { return 1000; }),
      make_sound("silence with clicks", n, [](int i, int) { return i % 40 == 0 ? 30000 : 0; }),
      make_sound("sound after silence", n,
                 [n](int i, int noise) { return i < n / 2 ? 0 : noise / 3; }),
  };
}

}  // namespace kelnn_test

#endif  // KEL_NN_TESTS_SOUNDS_H_
