// SPDX-License-Identifier: Apache-2.0
// Bilinear resizing.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <random>
#include <utility>
#include <vector>

#include "kel_nn.h"
#include "kel_nn_resize.h"
#include "support/plain_resize.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Resize = void (*)(const uint8_t*, int, int, int, uint8_t*, int, int, int);

// Indexed by the number of channels.
const Resize kResize[] = {nullptr, resize_bilinear_c1, resize_bilinear_c2, resize_bilinear_c3,
                          resize_bilinear_c4};

constexpr uint8_t kUntouched = 0xA5;

Bytes noise(size_t size, unsigned seed) {
  std::minstd_rand generator(seed + 1);
  Bytes bytes(size);
  // Black and white are the values that a wrong width of an intermediate shows first.
  for (uint8_t& byte : bytes) {
    const unsigned value = static_cast<unsigned>(generator()) >> 8;
    byte = static_cast<uint8_t>(seed % 3 == 0 ? (value & 1) * 255 : seed % 3 == 1 ? 255 : value);
  }
  return bytes;
}

// An image, `start` bytes in, with `padding` bytes after each row but the last.
struct Picture {
  Picture(int channels, kel_nn_size_t size, int padding, int start)
      : width(size.w),
        height(size.h),
        stride(width * channels + padding),
        start(start),
        bytes(start + stride * height - padding, kUntouched) {}
  uint8_t* pixels() { return bytes.data() + start; }

  int width, height, stride, start;
  Bytes bytes;
};

// A copy at one end of memory: a step beyond it is a crash.
const uint8_t* guarded(const Bytes& bytes, bool at_end) {
  constexpr size_t kSize = 1 << 22, kPage = 1 << 16;  // at least what any machine calls a page
  static uint8_t* const memory = [] {
    void* const all =
        mmap(nullptr, kSize + 2 * kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    uint8_t* const first = static_cast<uint8_t*>(all) + kPage;
    mprotect(first, kSize, PROT_READ | PROT_WRITE);
    return first;
  }();
  uint8_t* const copy = at_end ? memory + kSize - bytes.size() : memory;
  std::copy(bytes.begin(), bytes.end(), copy);
  return copy;
}

// Compares all bytes of the destination, so padding too.
void expect_same_as_plain(int channels, kel_nn_size_t from, kel_nn_size_t to, int padding,
                          int start, unsigned seed) {
  const int stride = from.w * channels + padding;
  const uint8_t* const source = guarded(noise(stride * from.h - padding, seed), seed / 4 % 2);
  Picture actual(channels, to, padding, start), expected(channels, to, padding, start);
  kResize[channels](source, from.w, from.h, stride, actual.pixels(), to.w, to.h, actual.stride);
  kelnn_test::plain_resize(channels, source, from.w, from.h, stride, expected.pixels(), to.w, to.h,
                           expected.stride);
  const auto differs =
      std::mismatch(expected.bytes.begin(), expected.bytes.end(), actual.bytes.begin());
  ASSERT_EQ(differs.first, expected.bytes.end())
      << channels << " channels, " << from.w << " x " << from.h << " to " << to.w << " x " << to.h
      << ", padding " << padding << ", start " << start << ", first at "
      << differs.first - expected.bytes.begin() << ": " << int{*differs.second} << " instead of "
      << int{*differs.first};
}

TEST(Resize, HandCalculated) {
  // 255 * 1024 >> 4 = 16320 twice, * 1024 >> 16 = 255 twice, (510 + 2) >> 2 = 128.
  const Bytes edge = {255, 0, 255, 0}, upwards = {1, 2, 3, 4, 5, 6};
  Bytes result(6);
  resize_bilinear_c1(edge.data(), 2, 2, 2, result.data(), 1, 1, 1);
  EXPECT_EQ(result[0], 128);
  resize_bilinear_c1(&upwards[4], 2, 3, -2, result.data(), 2, 3, 2);  // the last row first
  EXPECT_EQ(result, (Bytes{5, 6, 3, 4, 1, 2}));
}

// The first column that is just less than half a step of the weights to the right of the first pixel's centre.
TEST(Resize, WeightsAreRoundedInDoublePrecision) {
  EXPECT_EQ(kelnn::Axis(11191639, 11186177).tap(0).weight1, 0);
}

// Every width with a size up, a size down, a small and a large scale; sizes of note; random ones.
TEST(Resize, GivesTheBitsOfThePlainLoops) {
  std::vector<std::pair<kel_nn_size_t, kel_nn_size_t>> cases = {
      {{640, 360}, {416, 234}},  // several tiles, several batches of rows
      {{64, 64}, {112, 112}},
      {{1920, 12}, {416, 3}},  // neighbours far apart
      {{2, 2}, {3, 500}},      // more rows from one pair than are planned at once
      {{2, 2}, {1100, 3}},
      {{3000, 5}, {700, 3}},  // far right, half of the weights add up to 2049
      {{5000, 4}, {4999, 4}},
      {{4001, 2}, {16, 2}},
      {{60, 45}, {20, 9}},  // odd scales pick pixels
      {{90, 45}, {18, 45}},
      {{90, 45}, {90, 45}},
      {{91, 45}, {91, 15}},
      {{91, 44}, {13, 11}},  // odd across, even down
  };
  for (int width = 1; width <= 67; ++width) {
    for (const kel_nn_size_t from :
         {kel_nn_size_t{2, 3}, kel_nn_size_t{width + 5, 9}, kel_nn_size_t{width * 3 / 2 + 2, 21},
          kel_nn_size_t{width * 5 + 2, 12}, kel_nn_size_t{width / 3 + 2, 2}}) {
      cases.push_back({from, {width, 7}});
      cases.push_back({{from.h, from.w}, {7, width}});
    }
  }
  std::minstd_rand generator(7);
  const auto up_to = [&](int limit) { return static_cast<int>(generator() >> 8) % limit; };
  for (int i = 0; i < 100; ++i) {
    const int limit = i % 10 == 0 ? 1500 : 120;
    cases.push_back({{2 + up_to(limit), 2 + up_to(50)}, {1 + up_to(limit), 1 + up_to(50)}});
  }
  unsigned seed = 0;
  for (const auto& [from, to] : cases) {
    for (int channels = 1; channels <= 4; ++channels) {
      expect_same_as_plain(channels, from, to, up_to(5), up_to(33), seed++);
      if (HasFatalFailure()) return;
    }
  }
}

// ----- Limits ------------------------------------------------------------------------------------

// How deep a painted stack is after `function` has run on it.
size_t stack_used(const std::function<void()>& function) {
  constexpr size_t kSize = 256 * 1024;
  alignas(64) static uint8_t stack[kSize];
  std::fill(stack, stack + kSize, kUntouched);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstack(&attributes, stack, kSize);
  pthread_t thread;
  const auto start = [](void* called) -> void* {
    (*static_cast<std::function<void()>*>(called))();
    return nullptr;
  };
  std::function<void()> called = function;
  EXPECT_EQ(pthread_create(&thread, &attributes, start, &called), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
  return stack + kSize -
         std::find_if(stack, stack + kSize, [](uint8_t b) { return b != kUntouched; });
}

TEST(Resize, TakesNoMoreStackThanItSays) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizer has a stack of its own";
#endif
  const size_t most = (sizeof(void*) == 4 ? 13 : 40) * 1024;  // without AVX2, and with it
  // One window for each half a vector, two, four; pixel by pixel; picked.
  const std::pair<kel_nn_size_t, kel_nn_size_t> cases[] = {{{2200, 4}, {2000, 3}},
                                                           {{4000, 4}, {2000, 3}},
                                                           {{6000, 4}, {1700, 3}},
                                                           {{20000, 4}, {1100, 3}},
                                                           {{3300, 9}, {1100, 3}}};
  for (const auto& [size, wanted] : cases) {
    for (int channels = 1; channels <= 4; ++channels) {
      Picture from(channels, size, 0, 0), to(channels, wanted, 0, 0);
      const auto resize = [&] {
        kResize[channels](from.pixels(), from.width, from.height, from.stride, to.pixels(),
                          to.width, to.height, to.stride);
      };
      resize();  // finds what it calls
      const size_t without = stack_used([] {});
      EXPECT_LE(stack_used(resize) - without, most)
          << size.w << " to " << wanted.w << ", " << channels;
    }
  }
}

// A row of more than 2^29 pixels, of which two are read: memory that nothing is ever stored in.
TEST(Resize, WidthsReachBeyondWhatAnIntHoldsInBytes) {
  const int width = (1 << 29) + 2;
  const size_t size = size_t{2} * static_cast<size_t>(width);
  void* const pixels =
      mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (pixels == MAP_FAILED) GTEST_SKIP() << "no address space for it";
  uint8_t result = kUntouched;
  EXPECT_EQ(kel_nn_pixel_resize_bilinear(static_cast<uint8_t*>(pixels), width, 2, &result, 1, 1, 1),
            -1);
  EXPECT_EQ(result, 0);
  munmap(pixels, size);
}

TEST(PixelResize, AlwaysReturnsMinus1AndUnusableArgumentsWriteNothing) {
  const Bytes source(64, 7), untouched(64, kUntouched);
  Bytes result = untouched;
  const kel_nn_size_t good = {4, 4};
  const uint8_t* const in = source.data();
  uint8_t* const out = result.data();
  const struct {
    const char* name;
    const uint8_t* source;
    uint8_t* destination;
    kel_nn_size_t from, to;
  } cases[] = {
      {"no source", nullptr, out, good, good},
      {"no destination", in, nullptr, good, good},
      {"source of one column", in, out, {1, 4}, good},
      {"source of one row", in, out, {4, 1}, good},
      {"negative source", in, out, {-4, -4}, good},
      {"no columns", in, out, good, {0, 4}},
      {"no rows", in, out, good, {4, 0}},
      {"negative sizes", in, out, good, {INT_MIN, INT_MIN}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const int w = c.from.w, h = c.from.h;
    for (int channels = 1; channels <= 4; ++channels) {
      kResize[channels](c.source, w, h, 16, c.destination, c.to.w, c.to.h, 16);
      kel_nn_pixel_resize_bilinear(c.source, w, h, c.destination, c.to.w, c.to.h, channels);
    }
    EXPECT_EQ(kel_nn_pixel_resize_bilinear_nv12(c.source, w, h, c.destination, c.to.w, c.to.h), 0);
    EXPECT_EQ(result, untouched);
  }
  const Bytes noisy = noise(64, 2);
  for (int channels : {1, 2, 3, 4, 0, 5, -1}) {  // -1 whether it resized or not
    Bytes pixels(64, kUntouched), expected(pixels);
    if (channels >= 1 && channels <= 4) {
      kelnn_test::plain_resize(channels, noisy.data(), 4, 4, 4 * channels, expected.data(), 3, 5,
                               3 * channels);
    }
    EXPECT_EQ(kel_nn_pixel_resize_bilinear(noisy.data(), 4, 4, pixels.data(), 3, 5, channels), -1);
    EXPECT_EQ(pixels, expected) << channels;
  }
  EXPECT_EQ(kel_nn_pixel_resize_bilinear(in, INT_MAX, 2, out, 2, 2, 4), -1);
  EXPECT_EQ(kel_nn_pixel_resize_bilinear(in, 2, 2, out, INT_MAX, 2, 4), -1);
  EXPECT_EQ(result, untouched);
}

TEST(Nv12Resize, ScalesLumaAndChromaOnTheirOwn) {
  const struct {
    const char* name;
    kel_nn_size_t from, to;
  } cases[] = {
      {"even", {16, 8}, {12, 10}},
      {"odd sizes", {17, 9}, {11, 7}},  // the last byte of each chroma row stays
      {"to one chroma pair", {9, 9}, {3, 2}},
      {"no chroma wanted", {8, 8}, {1, 5}},
      {"too little chroma", {3, 8}, {4, 4}},
      {"large", {640, 360}, {417, 235}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const kel_nn_size_t from = c.from, to = c.to;
    const size_t source_luma = static_cast<size_t>(from.w * from.h);
    const size_t luma = static_cast<size_t>(to.w * to.h);
    const Bytes source = noise(source_luma * 3 / 2 + 2, 2);
    Bytes result(luma * 3 / 2 + 2, kUntouched), expected(result), same(result);
    EXPECT_EQ(
        kel_nn_pixel_resize_bilinear_nv12(source.data(), from.w, from.h, result.data(), to.w, to.h),
        0);
    kelnn_test::plain_resize(1, source.data(), from.w, from.h, from.w, expected.data(), to.w, to.h,
                             to.w);
    if (from.w >= 4 && from.h >= 4) {
      kelnn_test::plain_resize(2, source.data() + source_luma, from.w / 2, from.h / 2, from.w,
                               expected.data() + luma, to.w / 2, to.h / 2, to.w);
    }
    EXPECT_EQ(result, expected);
    resize_bilinear_yuv420sp(source.data(), from.w, from.h, same.data(), to.w, to.h);
    EXPECT_EQ(same, expected);
  }
}

}  // namespace
