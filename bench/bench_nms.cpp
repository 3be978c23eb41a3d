// SPDX-License-Identifier: Apache-2.0
// Non-maximum suppression of clustered boxes, beside OpenCV's and the plain loops. A detector finds
// every object many times: each cluster is ten boxes around one object.
#include <benchmark/benchmark.h>

#include <opencv2/dnn.hpp>
#include <random>
#include <string>
#include <vector>

#include "kel_nn.h"
#include "support/plain_boxes.h"

namespace {

using Boxes = std::vector<kel_nn_box_t>;

constexpr float kIouThreshold = 0.4f;
constexpr int kBoxesPerObject = 10;

Boxes clustered_boxes(int count) {
  std::mt19937 random(7);
  const auto between = [&random](float low, float high) {
    return std::uniform_real_distribution<float>(low, high)(random);
  };
  Boxes boxes;
  kel_nn_box_t object = {};
  for (int i = 0; i < count; ++i) {
    if (i % kBoxesPerObject == 0) {
      object = {between(0, 1920), between(0, 1080), between(20, 200), between(20, 200), 0, 0};
    }
    kel_nn_box_t box = object;
    box.cx += between(-0.1f, 0.1f) * object.w;
    box.cy += between(-0.1f, 0.1f) * object.h;
    box.w *= between(0.9f, 1.1f);
    box.h *= between(0.9f, 1.1f);
    box.score = between(0.3f, 1.0f);
    boxes.push_back(box);
  }
  std::shuffle(boxes.begin(), boxes.end(), random);
  return boxes;
}

// Works on a fresh copy each time, as both change the list.
template <typename Operation>
void in_place(benchmark::State& state, int count, Operation operation) {
  const Boxes source = clustered_boxes(count);
  Boxes boxes(source);
  int kept = 0;
  for (auto _ : state) {
    boxes = source;
    kept = operation(boxes.data());
    benchmark::DoNotOptimize(boxes.data());
    benchmark::ClobberMemory();
  }
  state.counters["kept"] = kept;
}

void opencv(benchmark::State& state, int count) {
  std::vector<cv::Rect2d> rectangles;
  std::vector<float> scores;
  for (const kel_nn_box_t& box : clustered_boxes(count)) {
    rectangles.emplace_back(box.cx - box.w / 2, box.cy - box.h / 2, box.w, box.h);
    scores.push_back(box.score);
  }
  std::vector<int> kept;
  for (auto _ : state) {
    cv::dnn::NMSBoxes(rectangles, scores, 0.0f, kIouThreshold, kept);
    benchmark::DoNotOptimize(kept.data());
  }
  state.counters["kept"] = static_cast<double>(kept.size());
}

const int kRegistered = [] {
  for (const int count : {100, 500, 2000}) {
    const std::string name = "nms/" + std::to_string(count) + " clustered boxes/";
    benchmark::RegisterBenchmark((name + "kelnn").c_str(), [count](benchmark::State& s) {
      in_place(s, count, [count](kel_nn_box_t* boxes) {
        return kel_nn_nms(boxes, count, kIouThreshold, KEL_NN_NMS_HARD);
      });
    });
    benchmark::RegisterBenchmark((name + "plain").c_str(), [count](benchmark::State& s) {
      in_place(s, count, [count](kel_nn_box_t* boxes) {
        return kelnn_test::plain_nms(boxes, count, kIouThreshold, /*weighted=*/false);
      });
    });
    benchmark::RegisterBenchmark((name + "opencv").c_str(),
                                 [count](benchmark::State& s) { opencv(s, count); });
  }
  return 0;
}();

}  // namespace
