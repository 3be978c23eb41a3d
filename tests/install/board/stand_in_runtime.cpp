// SPDX-License-Identifier: Apache-2.0
// What stands in for the chip's runtime where the way onto the camera is tried. A converted network is a line of
// numbers: width, height and channels of the input, then three shape values of each output, then "end". Its outputs follow
// from every byte of the image by whole numbers alone, so they are the same on a PC and on the camera.
#include <jzdl.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

class StandInNet : public jzdl::BaseNet {
 public:
  int load_model(const char* model, int from_memory) override {
    numbers_.clear();
    if (!from_memory || std::strncmp(model, "network ", 8) != 0) return 2;
    const char* at = model + 8;
    for (char* end = nullptr; std::strncmp(at, "end", 3) != 0; at = end + 1) {
      numbers_.push_back(static_cast<int>(std::strtol(at, &end, 10)));
      if (end == at) return 5;
    }
    return numbers_.size() >= 6 && numbers_.size() % 3 == 0 ? 0 : 7;
  }

  std::vector<int> input_shape() override { return {numbers_[0], numbers_[1], numbers_[2]}; }

  int input(jzdl::Mat<signed char>& image, int layer) override {
    if (image.empty() || layer != -999 ||
        std::vector<int>{image.w, image.h, image.c} != input_shape()) {
      return 22;
    }
    image_.assign(image.data, image.data + image.total());
    return 0;
  }

  int run(jzdl::Mat<float>& output, int layer) override {
    if (image_.empty() || layer != -999) return 24;
    uint32_t state = 1;
    for (const signed char byte : image_) state = state * 1664525u + static_cast<uint8_t>(byte);
    size_t count = 0;
    for (size_t i = 3; i < numbers_.size(); i += 3) {
      count += size_t(numbers_[i]) * size_t(numbers_[i + 1]) * size_t(numbers_[i + 2]);
    }
    output.create(static_cast<int>(count + numbers_.size() - 3 + 1), 1, 1);
    float* values = output.data;
    for (size_t i = 0; i < count; ++i) {  // from -4 to 4 in steps that a float holds
      state = state * 1664525u + 1013904223u;
      *values++ = static_cast<float>(static_cast<int>(state >> 21) - 1024) / 256.0f;
    }
    for (size_t i = 3; i < numbers_.size(); ++i) *values++ = static_cast<float>(numbers_[i]);
    *values = static_cast<float>(numbers_.size() / 3 - 1);
    return 0;
  }

 private:
  std::vector<int> numbers_;
  std::vector<signed char> image_;
};

jzdl::BaseNet* (*g_wrap)(jzdl::BaseNet*) = nullptr;

}  // namespace

// What else a PC's runtime is asked for.
namespace kelnn_host {
const char* last_refusal() { return ""; }
void wrap_networks(jzdl::BaseNet* (*wrap)(jzdl::BaseNet*)) { g_wrap = wrap; }
}  // namespace kelnn_host

namespace jzdl {

BaseNet* net_create() { return g_wrap ? g_wrap(new StandInNet) : new StandInNet; }
void net_destory(BaseNet* net) { delete net; }
void image_sub(Mat<unsigned char>& image, unsigned char value) {
  for (size_t i = 0; image.data && i < image.total(); ++i) {
    image.data[i] = static_cast<unsigned char>(image.data[i] - value);
  }
}

}  // namespace jzdl
