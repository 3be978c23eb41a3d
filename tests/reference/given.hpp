// SPDX-License-Identifier: Apache-2.0
// What the examples in C++ take for granted; each has one of these for itself.
#include "kel_nn.hpp"

struct Given {
  static inline int results = 0;
  std::vector<uint8_t> bytes = std::vector<uint8_t>(1920 * 1080 * 3 / 2, 90);
  std::vector<int16_t> sound = std::vector<int16_t>(kel_nn::kWindowSamples, 2000);
  const int16_t* window = sound.data();
  kel_nn::Library library{"models"};
  kel_nn::Frame frame = kel_nn::Frame::nv12(bytes.data(), 640, 360),
                other = kel_nn::Frame::grey(bytes.data(), 200, 100);
  kel_nn::Rect box = {100, 50, 150, 200};
  // There is one of each task, and it is an example's own.
  template <typename Task>
  struct Loaded {
    kel_nn::Library& library;
    auto of(const kel_nn::Image& image) { return Task(library).of(image); }
  };
  Loaded<kel_nn::FaceLandmarks> landmarks{library};
  Loaded<kel_nn::FaceFeatures> features{library};
  int frames_left = 3;
  size_t samples_left = 48000;

  const uint8_t* next_frame() { return frames_left-- > 0 ? bytes.data() : nullptr; }
  size_t record(int16_t* samples, size_t n) {
    n = n < samples_left ? n : samples_left;
    for (size_t i = 0; i < n; ++i) samples[i] = static_cast<int16_t>(i % 40 < 20 ? 8000 : -8000);
    samples_left -= n;
    return n;
  }
  void draw(kel_nn::Rect, float) {}
  void look(const kel_nn::Landmarks&, const kel_nn::Feature&) { ++results; }
  void show(const std::array<float, 10>&) { ++results; }
  void plot(const uint8_t* rows, int n, int channels) {
    results += rows && n == 297 && channels == 64;
  }
  void use(const float* values, size_t n) { results += values && n > 0; }
  void alarm() {}
  void open_door() {}
  void count_one_more() {}
  void wake_up() {}
};
