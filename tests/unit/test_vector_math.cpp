// SPDX-License-Identifier: Apache-2.0
// Norms, softmax, inner product and logistic function.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "kel_nn.h"

namespace {

// 1e-5 as a double lies between these two floats; the lower one is the nearest.
const float kInsideBand = 1e-5f;
const float kOutsideBand = std::nextafter(1e-5f, 1.0f);

TEST(Norms, LeaveAlmostNothingAlone) {
  const struct {
    const char* name;
    float (*norm)(float*, uint32_t);
    std::vector<float> data;
    bool normalised;
  } cases[] = {
      {"l1 of the float nearest to the limit", kel_nn_l1norm, {-kInsideBand}, false},
      {"l1 just above the limit", kel_nn_l1norm, {-kOutsideBand}, true},
      {"l1 of one that cancels", kel_nn_l1norm, {1.0f, -1.0f}, true},
      {"l2 longer than the limit, its square shorter", kel_nn_l2norm, {0.002f, 0.002f}, false},
      {"l2 with a square above the limit", kel_nn_l2norm, {0.004f}, true},
      {"l1 of infinity", kel_nn_l1norm, {INFINITY}, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<float> data = c.data;
    const float norm = c.norm(data.data(), static_cast<uint32_t>(data.size()));
    EXPECT_EQ(norm != 0.0f, c.normalised);
    EXPECT_EQ(data != c.data, c.normalised);
  }
}

// Every length around the vector width and every alignment: each element is one true division.
TEST(Norms, DivideEveryElementAndNoOther) {
  std::vector<float> two = {3.0f, 4.0f};
  EXPECT_EQ(kel_nn_l2norm(two.data(), 2), 5.0f);
  EXPECT_EQ(two, (std::vector<float>{3.0f / 5.0f, 4.0f / 5.0f}));
  for (uint32_t n = 1; n <= 67; ++n) {
    for (uint32_t start = 0; start < 4; ++start) {
      std::vector<float> data(n + 8, 7.0f), expected(data);
      float sum = 0.0f;
      for (uint32_t i = 0; i < n; ++i) {
        data[start + i] = 0.1f + 0.3f * static_cast<float>(i % 11) * (i % 3 == 0 ? -1 : 1);
        sum += std::fabs(data[start + i]);
      }
      for (uint32_t i = 0; i < n; ++i) expected[start + i] = data[start + i] / sum;
      ASSERT_EQ(kel_nn_l1norm(data.data() + start, n), sum);
      ASSERT_EQ(data, expected) << "n " << n << ", start " << start;
    }
  }
}

// In single precision the small addend is lost each time; a wider or a pairwise sum would keep it.
TEST(InnerProduct, SumsInOrderInSinglePrecision) {
  std::vector<float> big_first(1000, 1.0f), ones(1000, 1.0f);
  big_first[0] = 16777216.0f;
  EXPECT_EQ(kel_nn_inner(big_first.data(), ones.data(), 1000), 16777216.0f);
  // (1 + 2^-12)^2 needs more bits than a float has: the product is rounded before it is added.
  const float a[] = {-1.0f, 1.0f + 1.0f / 4096.0f};
  const float b[] = {1.0f + 1.0f / 2048.0f, 1.0f + 1.0f / 4096.0f};
  EXPECT_EQ(kel_nn_inner(a, b, 2), 0.0f);
}

TEST(Softmax, IsTakenOfTheRawValues) {
  for (uint32_t n : {1u, 2u, 4u}) {
    std::vector<float> equal(n);
    kel_nn_softmax(equal.data(), n);
    EXPECT_EQ(equal, std::vector<float>(n, 1.0f / static_cast<float>(n)));
  }

  std::vector<float> v = {-1.0f, 0.5f, 2.0f};
  std::vector<float> expected = {std::exp(-1.0f), std::exp(0.5f), std::exp(2.0f)};
  const float sum = (expected[0] + expected[1]) + expected[2];
  for (float& e : expected) e /= sum;
  kel_nn_softmax(v.data(), 3);
  EXPECT_EQ(v, expected);

  // 1 / 0, 0 / infinity and 0 / 0: no guard
  std::vector<float> overflow = {1000.0f, 0.0f}, underflow = {-1000.0f, -1000.0f};
  kel_nn_softmax(overflow.data(), 2);
  kel_nn_softmax(underflow.data(), 2);
  EXPECT_TRUE(std::isnan(overflow[0]) && std::isnan(underflow[0]));
  EXPECT_EQ(overflow[1], 0.0f);
}

TEST(Sigmoid, IsTheLogisticFunction) {
  EXPECT_EQ(kel_nn_sigmoid(0.0f), 0.5f);
  EXPECT_EQ(kel_nn_sigmoid(2.0f), 1.0f / (std::exp(-2.0f) + 1.0f));
  EXPECT_EQ(kel_nn_sigmoid(-INFINITY), 0.0f);
  EXPECT_EQ(kel_nn_sigmoid(INFINITY), 1.0f);
}

TEST(VectorMath, IgnoresNothingToDo) {
  float one[] = {2.0f};
  for (const auto norm : {kel_nn_l1norm, kel_nn_l2norm}) {
    EXPECT_EQ(norm(nullptr, 1), 0.0f);
    EXPECT_EQ(norm(one, 0), 0.0f);
  }
  EXPECT_EQ(kel_nn_inner(nullptr, one, 1), 0.0f);
  EXPECT_EQ(kel_nn_inner(one, nullptr, 1), 0.0f);
  EXPECT_EQ(kel_nn_inner(one, one, 0), 0.0f);
  kel_nn_softmax(nullptr, 1);
  kel_nn_softmax(one, 0);
  EXPECT_EQ(one[0], 2.0f);
}

}  // namespace
