// SPDX-License-Identifier: Apache-2.0
// What the fuzzers have in common: their input taken apart, and what must hold.
#ifndef KEL_NN_FUZZ_INPUT_H_
#define KEL_NN_FUZZ_INPUT_H_

#include <fuzzer/FuzzedDataProvider.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "kel_nn.h"

namespace kelnn_fuzz {

// Ends the run where the library has not kept its word.
#define EXPECT(condition)                                                  \
  do {                                                                     \
    if (!(condition)) {                                                    \
      std::fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                        \
    }                                                                      \
  } while (0)

class Input : public FuzzedDataProvider {
 public:
  using FuzzedDataProvider::FuzzedDataProvider;

  template <class Number>
  Number number(Number low, Number high) {
    return ConsumeIntegralInRange<Number>(low, high);
  }
  bool yes() { return ConsumeBool(); }
  // Of a picture: most are small, so that many are tried, and some are as long as they may be.
  int side(int most) { return number(1, number(0, 7) == 0 ? most : 24); }
  // Any bits: huge ones, infinities and what is not a number among them.
  float any_float() {
    const uint32_t bits = ConsumeIntegral<uint32_t>();
    float value;
    std::memcpy(&value, &bits, sizeof(value));
    return value;
  }
  // What networks give, mostly.
  float usual_float() { return yes() ? ConsumeFloatingPointInRange(-8.0f, 8.0f) : any_float(); }

  // `count` values in a block of exactly that size. The input's come again where it is too short for all of them.
  template <class Value>
  std::vector<Value> block(size_t count, std::vector<Value> pattern) {
    if (pattern.empty()) pattern.push_back(Value());
    std::vector<Value> values(count);
    for (size_t i = 0; i < count; ++i) values[i] = pattern[i % pattern.size()];
    return values;
  }
  std::vector<uint8_t> bytes(size_t count) {
    return block(count, ConsumeBytes<uint8_t>(number<size_t>(1, 512)));
  }
  std::vector<float> floats(size_t count) {
    std::vector<float> pattern(number<size_t>(1, 64));
    for (float& value : pattern) value = usual_float();
    return block(count, std::move(pattern));
  }
};

// Bit for bit; what is not a number has no particular bits.
inline bool is_same(float a, float b) {
  return std::memcmp(&a, &b, sizeof(a)) == 0 || (std::isnan(a) && std::isnan(b));
}
inline bool is_same(const kel_nn_box_t& a, const kel_nn_box_t& b) {
  return is_same(a.cx, b.cx) && is_same(a.cy, b.cy) && is_same(a.w, b.w) && is_same(a.h, b.h) &&
         is_same(a.score, b.score) && a.class_id == b.class_id;
}

// What the library prints is not looked at. libFuzzer itself prints on standard error.
inline bool silence() {
  if (!std::freopen("/dev/null", "w", stdout)) std::abort();
  return true;
}
inline const bool kIsSilent = silence();

}  // namespace kelnn_fuzz

#endif  // KEL_NN_FUZZ_INPUT_H_
