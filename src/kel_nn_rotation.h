// SPDX-License-Identifier: Apache-2.0
// Twiddle factors of the Fourier transforms: a unit vector that turns by the same angle step after
// step.
//
// They come from this recurrence and never from sines of their own angles: its rounding errors,
// different in every step, are in every feature that a model has been trained on. A table filled
// by the recurrence has the same bits.
#ifndef KEL_NN_ROTATION_H_
#define KEL_NN_ROTATION_H_

#include <cmath>
#include <cstdint>

namespace kelnn {

// As many digits as the interface has; they are not those of the nearest double.
constexpr double kPi = 3.14159265358979;
constexpr double kTwoPi = 6.28318530717959;

struct Twiddle {
  double re, im;
};

class Rotation {
 public:
  explicit Rotation(double angle) {
    const double half = std::sin(0.5 * angle);
    turn_.re = -2.0 * half * half;  // cos(angle) - 1, without its cancellation
    turn_.im = std::sin(angle);
  }
  const Twiddle& now() const { return now_; }
  void advance() {
    const double re = now_.re;
    now_.re = re * turn_.re - now_.im * turn_.im + re;
    now_.im = now_.im * turn_.re + re * turn_.im + now_.im;
  }

 private:
  Twiddle turn_;
  Twiddle now_ = {1.0, 0.0};
};

// The factors of a stage whose butterflies lie `span` floats, span / 2 complex numbers, apart.
inline Rotation stage_rotation(int32_t span, bool invert) {
  const double angle = kTwoPi / span;
  return Rotation(invert ? -angle : angle);
}

// The factors that take the transform of `points` complex numbers to that of twice as many real
// ones; the first in use is that after one advance().
inline Rotation split_rotation(int32_t points) { return Rotation(kPi / points); }

}  // namespace kelnn

#endif  // KEL_NN_ROTATION_H_
