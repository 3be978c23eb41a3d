// SPDX-License-Identifier: Apache-2.0
// The decoders on maps as networks make them, with an object in one of a hundred places, beside the
// plain loops.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "kel_nn.h"
#include "support/plain_decoders.h"

namespace {

// `places` of `values` logits each. Those from `first` on are scores, high in few places.
std::vector<float> logits(int places, int values, int first_score, int score_count) {
  std::mt19937 random(1);
  std::normal_distribution<float> spread(0.0f, 1.0f);
  std::vector<float> map(size_t(places) * values);
  for (int place = 0; place < places; ++place) {
    const float level = random() % 100 == 0 ? 3.0f : -6.0f;
    for (int i = 0; i < values; ++i) {
      const bool is_score = i >= first_score && i < first_score + score_count;
      map[size_t(place) * values + i] = spread(random) + (is_score ? level : 0.0f);
    }
  }
  return map;
}

template <typename Decode>
void add(const std::string& name, Decode decode) {
  benchmark::RegisterBenchmark(name.c_str(), [decode](benchmark::State& state) {
    std::vector<kel_nn_box_t> boxes(100000);
    for (auto _ : state) {
      benchmark::DoNotOptimize(decode(boxes.data(), static_cast<uint32_t>(boxes.size())));
      benchmark::ClobberMemory();
    }
  });
}

void add_yolov3(int columns, int rows, int class_num) {
  constexpr int kStride = 16;
  static const int32_t kAnchors[] = {10, 14, 23, 27, 37, 58};
  const kel_nn_yolov3_param_t param = {1920,      1080, columns * kStride, rows * kStride,
                                       class_num, 3,    kAnchors,          0.5f};
  const auto map = logits(columns * rows * 3, 5 + class_num, 4, 1 + class_num);
  const std::string name = "decode/yolov3 " + std::to_string(columns) + "x" + std::to_string(rows) +
                           "x3x" + std::to_string(5 + class_num) + "/";
  add(name + "kelnn", [=](kel_nn_box_t* boxes, uint32_t boxes_num) {
    return kel_nn_yolov3_postprocess(map.data(), kStride, &param, boxes, boxes_num);
  });
  add(name + "plain", [=](kel_nn_box_t* boxes, uint32_t) {
    return kelnn_test::plain_yolov3(map.data(), kStride, param, boxes);
  });
}

void add_centernet(int columns, int rows, int class_num, int reg_max) {
  constexpr int kStride = 8;
  const kel_nn_centernet_param_t param = {
      1920, 1080, columns * kStride, rows * kStride, reg_max, class_num, 0.5f};
  const auto map = logits(columns * rows, class_num + 4 * (reg_max + 1), 0, class_num);
  const std::string name = "decode/centernet " + std::to_string(columns) + "x" +
                           std::to_string(rows) + "x" +
                           std::to_string(class_num + 4 * (reg_max + 1)) + "/";
  add(name + "kelnn", [=](kel_nn_box_t* boxes, uint32_t boxes_num) {
    return kel_nn_centernet_postprocess(map.data(), kStride, &param, boxes, boxes_num);
  });
  add(name + "plain", [=](kel_nn_box_t* boxes, uint32_t) {
    return kelnn_test::plain_centernet(map.data(), kStride, param, boxes);
  });
}

const int kRegistered = [] {
  add_yolov3(26, 16, 4);
  add_yolov3(52, 52, 80);
  add_centernet(52, 32, 4, 7);
  add_centernet(40, 40, 80, 16);
  return 0;
}();

}  // namespace
