// SPDX-License-Identifier: Apache-2.0
// The nearest of 100,000 faces: the index beside one comparison after the other, and OpenCV's product of a matrix.
#include <benchmark/benchmark.h>

#include <cmath>
#include <opencv2/core.hpp>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "feature_index.h"

namespace {

constexpr int kFaces = 100000;

const std::vector<kel_nn::Feature>& faces() {
  static const std::vector<kel_nn::Feature> all = [] {
    std::mt19937 random(1);
    std::normal_distribution<float> value(0, 0.0625f);  // of about unit length
    std::vector<kel_nn::Feature> made(kFaces);
    for (kel_nn::Feature& feature : made) {
      for (float& number : feature) number = value(random);
    }
    return made;
  }();
  return all;
}

void kelnn(benchmark::State& state) {
  kelnn_cli::FeatureIndex index;
  for (const kel_nn::Feature& face : faces()) index.add(face);
  for (auto _ : state) benchmark::DoNotOptimize(index.nearest(faces()[kFaces / 2]));
}

void plain(benchmark::State& state) {
  const kel_nn::Feature& asked = faces()[kFaces / 2];
  for (auto _ : state) {
    size_t best = 0;
    float most = -2;
    for (size_t i = 0; i < faces().size(); ++i) {
      const float similarity = kel_nn::similarity(asked, faces()[i]);
      if (similarity > most) {
        most = similarity;
        best = i;
      }
    }
    benchmark::DoNotOptimize(best);
  }
}

void opencv(benchmark::State& state) {
  const cv::Mat all(kFaces, 256, CV_32F, const_cast<kel_nn::Feature*>(faces().data()));
  const cv::Mat asked(256, 1, CV_32F, const_cast<float*>(faces()[kFaces / 2].data()));
  cv::setNumThreads(1);
  for (auto _ : state) {
    const cv::Mat similarities = all * asked;
    cv::Point best;
    cv::minMaxLoc(similarities, nullptr, nullptr, nullptr, &best);
    benchmark::DoNotOptimize(best);
  }
}

const int kRegistered = [] {
  const std::string name = "gallery/the nearest of 100,000 faces/";
  for (const auto& [who, run] : {std::pair("kelnn", kelnn), {"plain", plain}, {"opencv", opencv}}) {
    benchmark::RegisterBenchmark((name + who).c_str(), run)->Unit(benchmark::kMillisecond);
  }
  return 0;
}();

}  // namespace
