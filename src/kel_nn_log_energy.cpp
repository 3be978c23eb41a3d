// SPDX-License-Identifier: Apache-2.0
// 19 thousand logarithms a window are a good part of its time, so most do not call log(): a short
// polynomial, good to 2^-37.7 of its value, is rounded to float from both ends of an interval 2^-37
// to either side. Where both give the same float, log(), which is good to far less than the
// interval, gives it too. One value in some five thousand is too close to the middle between two
// floats and is left to log().
#include "kel_nn_log_energy.h"

#include <cfloat>
#include <cmath>
#include <cstring>

#include "kel_nn_compiler.h"
#include "kel_nn_float_rules.h"

namespace kelnn {
namespace {

constexpr int32_t kBlock = 64;
constexpr int32_t kBitsOfOne = 0x3f800000;
constexpr int32_t kBitsOfInfinity = 0x7f800000;
constexpr int32_t kBitsOfRootHalf = 0x3f3504f3;  // mantissas run from here to twice as much
constexpr double kLn2 = 0.69314718055994530942;
constexpr double kInterval = 1.0 / (1LL << 37);

struct Bounds {
  float value[kBlock];  // never below 1
  float low[kBlock], high[kBlock];
};

// Bounds of the logarithms of `count` values, at most kBlock. Returns 0 when each pair agrees.
KEL_NN_TARGET_CLONES
int32_t bound_logs(const float* values, int32_t count, Bounds* bounds) {
  int32_t open = 0;
  for (int32_t i = 0; i < count; ++i) {
    // As whole numbers, the bits of positive floats are in the order of the floats.
    int32_t bits;
    std::memcpy(&bits, values + i, sizeof(bits));
    const int32_t magnitude = bits & 0x7fffffff;
    bits = magnitude > kBitsOfInfinity ? magnitude : bits;  // NaN of either sign stays NaN
    bits = bits > kBitsOfOne ? bits : kBitsOfOne;
    const int32_t above = bits - kBitsOfRootHalf;
    const double exponent = above >> 23;
    const int32_t mantissa_bits = (above & 0x7fffff) + kBitsOfRootHalf;
    float mantissa;
    std::memcpy(&mantissa, &mantissa_bits, sizeof(mantissa));
    // ln m = 2 artanh r, and |r| is at most 0.1716. artanh r / r is a polynomial in r^2, the
    // interpolation at Chebyshev's nodes, off by less than 2^-37.7 of it.
    const double m_less_1 = mantissa - 1.0f;  // exact
    const double r = m_less_1 / (m_less_1 + 2.0);
    const double z = r * r;
    double twice = 2 * 0.11808187004999028;
    twice = twice * z + 2 * 0.14267525137300452;
    twice = twice * z + 2 * 0.20000192342239773;
    twice = twice * z + 2 * 0.33333332623712536;
    twice = twice * z + 2 * 1.00000000000418;
    const double log = exponent * kLn2 + r * twice;
    const float low = static_cast<float>(log * (1.0 - kInterval));
    const float high = static_cast<float>(log * (1.0 + kInterval));
    // Infinity and NaN have bits that mean nothing here.
    open += (low != high) + (bits >= kBitsOfInfinity);
    std::memcpy(bounds->value + i, &bits, sizeof(bits));
    bounds->low[i] = low;
    bounds->high[i] = high;
  }
  return open;
}

}  // namespace

void take_logs(float* values, int32_t count) {
  Bounds bounds;
  while (count > 0) {
    const int32_t block = count < kBlock ? count : kBlock;
    const int32_t open = bound_logs(values, block, &bounds);
    std::memcpy(values, bounds.low, static_cast<size_t>(block) * sizeof(float));
    for (int32_t i = 0; open && i < block; ++i) {
      const float value = bounds.value[i];
      if (bounds.low[i] == bounds.high[i] && value <= FLT_MAX) continue;
      values[i] = static_cast<float>(std::log(static_cast<double>(value)));
    }
    values += block;
    count -= block;
  }
}

}  // namespace kelnn
