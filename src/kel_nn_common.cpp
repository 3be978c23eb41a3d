// Vector maths. Sums run from the first element to the last in single precision, and a division is
// a division: a product with the reciprocal differs in the last bit. See docs/numerics.md.
#include <cmath>

#include "kel_nn.h"
#include "kel_nn_float_rules.h"

namespace {

// Too small to divide by. Compared in double, so the float nearest to 1e-5, which lies below it, is
// inside.
bool is_negligible(float sum) { return sum > -1e-5 && sum < 1e-5; }

void divide_all(float* data, uint32_t n, float divisor) {
  for (uint32_t i = 0; i < n; ++i) data[i] /= divisor;
}

}  // namespace

float kel_nn_l1norm(float* data, uint32_t n) {
  if (!data || n == 0) return 0.0f;
  float sum = 0.0f;
  for (uint32_t i = 0; i < n; ++i) sum += std::fabs(data[i]);
  if (is_negligible(sum)) return 0.0f;
  divide_all(data, n, sum);
  return sum;
}

float kel_nn_l2norm(float* data, uint32_t n) {
  if (!data || n == 0) return 0.0f;
  const float sum_of_squares = kel_nn_inner(data, data, n);
  if (is_negligible(sum_of_squares)) return 0.0f;  // the sum, not its root: the interface says so
  const float length = std::sqrt(sum_of_squares);
  divide_all(data, n, length);
  return length;
}

// The largest element is not subtracted: large inputs overflow, and callers rely on the same bits.
void kel_nn_softmax(float* data, uint32_t n) {
  if (!data || n == 0) return;
  float sum = 0.0f;
  for (uint32_t i = 0; i < n; ++i) {
    data[i] = std::exp(data[i]);
    sum += data[i];
  }
  divide_all(data, n, sum);
}

float kel_nn_inner(const float* a, const float* b, uint32_t n) {
  if (!a || !b || n == 0) return 0.0f;
  float sum = 0.0f;
  for (uint32_t i = 0; i < n; ++i) sum += a[i] * b[i];
  return sum;
}

float kel_nn_sigmoid(float x) { return 1.0f / (std::exp(-x) + 1.0f); }
