// SPDX-License-Identifier: Apache-2.0
// What every source with arithmetic relies on, checked by the compiler: each operation is rounded
// to the type that is written. See docs/numerics.md.
#ifndef KEL_NN_FLOAT_RULES_H_
#define KEL_NN_FLOAT_RULES_H_

#include <cfloat>

static_assert(FLT_EVAL_METHOD == 0, "floats must not be evaluated in a wider type");
#ifdef __FAST_MATH__
#error "-ffast-math changes results"
#endif

#endif  // KEL_NN_FLOAT_RULES_H_
