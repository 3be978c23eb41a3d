// SPDX-License-Identifier: Apache-2.0
// Vector maths on a feature vector of 256 values, beside OpenCV.
#include <benchmark/benchmark.h>

#include <cmath>
#include <opencv2/core.hpp>
#include <vector>

#include "kel_nn.h"

namespace {

constexpr int kLength = 256;

std::vector<float> values() {
  std::vector<float> v(kLength);
  for (int i = 0; i < kLength; ++i) v[i] = static_cast<float>((i * 7919) % 1000) / 500.0f - 1.0f;
  return v;
}

// Every pass normalises a fresh copy; all contenders pay for it alike.
template <typename Operation>
void transform(benchmark::State& state, Operation operation) {
  const std::vector<float> source = values();
  std::vector<float> data(source);
  for (auto _ : state) {
    data = source;
    operation(data);
    benchmark::DoNotOptimize(data.data());
    benchmark::ClobberMemory();
  }
}

template <typename Operation>
void reduce(benchmark::State& state, Operation operation) {
  std::vector<float> a = values(), b(a.rbegin(), a.rend());
  for (auto _ : state) {
    benchmark::DoNotOptimize(a.data());
    benchmark::DoNotOptimize(operation(a, b));
  }
}

void plain_l2norm(std::vector<float>& v) {
  float sum = 0;
  for (float x : v) sum += x * x;
  const float length = std::sqrt(sum);
  for (float& x : v) x /= length;
}
void plain_softmax(std::vector<float>& v) {
  float sum = 0;
  for (float& x : v) sum += x = std::exp(x);
  for (float& x : v) x /= sum;
}
float plain_inner(const std::vector<float>& a, const std::vector<float>& b) {
  float sum = 0;
  for (size_t i = 0; i < a.size(); ++i) sum += a[i] * b[i];
  return sum;
}
void opencv_l2norm(std::vector<float>& v) { cv::normalize(v, v, 1.0, 0.0, cv::NORM_L2); }
void opencv_softmax(std::vector<float>& v) {
  cv::exp(v, v);
  cv::Mat view(v);
  view /= cv::sum(view)[0];
}
double opencv_inner(const std::vector<float>& a, const std::vector<float>& b) {
  return cv::Mat(a).dot(cv::Mat(b));
}

const int kRegistered = [] {
  using benchmark::RegisterBenchmark;
  using Vector = std::vector<float>;
  RegisterBenchmark("vector/l2norm 256/kelnn", [](benchmark::State& s) {
    transform(s, [](Vector& v) { kel_nn_l2norm(v.data(), kLength); });
  });
  RegisterBenchmark("vector/l2norm 256/plain",
                    [](benchmark::State& s) { transform(s, plain_l2norm); });
  RegisterBenchmark("vector/l2norm 256/opencv",
                    [](benchmark::State& s) { transform(s, opencv_l2norm); });
  RegisterBenchmark("vector/softmax 256/kelnn", [](benchmark::State& s) {
    transform(s, [](Vector& v) { kel_nn_softmax(v.data(), kLength); });
  });
  RegisterBenchmark("vector/softmax 256/plain",
                    [](benchmark::State& s) { transform(s, plain_softmax); });
  RegisterBenchmark("vector/softmax 256/opencv",
                    [](benchmark::State& s) { transform(s, opencv_softmax); });
  RegisterBenchmark("vector/inner 256/kelnn", [](benchmark::State& s) {
    reduce(s, [](const Vector& a, const Vector& b) {
      return kel_nn_inner(a.data(), b.data(), kLength);
    });
  });
  RegisterBenchmark("vector/inner 256/plain", [](benchmark::State& s) { reduce(s, plain_inner); });
  RegisterBenchmark("vector/inner 256/opencv",
                    [](benchmark::State& s) { reduce(s, opencv_inner); });
  return 0;
}();

}  // namespace
