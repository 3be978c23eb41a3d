// SPDX-License-Identifier: Apache-2.0
// From a network's outputs to candidate boxes, beside the plain loops: all anchors of an image in
// which most see nothing.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "kel_nn_grid_detector.h"
#include "kel_nn_ultraface.h"
#include "support/plain_detectors.h"

namespace {

using kelnn_test::plain_decode_faces;
using kelnn_test::plain_decode_grids;

std::vector<float> noise(size_t size, float mean, float deviation) {
  std::mt19937 random(3);
  std::normal_distribution<float> normal(mean, deviation);
  std::vector<float> values(size);
  for (float& value : values) value = normal(random);
  return values;
}

// ----- Faces: 4420 anchors; two faces, each seen by ten of them ----------------------------------

struct FaceOutputs {
  std::vector<float> scores[4], regressions[4];
  FaceOutputs() {
    for (int l = 0; l < 4; ++l) {
      const int anchors = kelnn_test::kFaceAnchorCounts[l];
      scores[l] = noise(2 * anchors, 0.0f, 0.5f);
      for (int k = 0; k < anchors; ++k) scores[l][2 * k] += k % 1600 >= 1590 ? -4.0f : 4.0f;
      regressions[l] = noise(4 * anchors, 0.0f, 1.0f);
    }
  }
};

// Scores become probabilities in place, so each pass begins with a fresh copy of them.
template <typename Decode>
void faces(benchmark::State& state, Decode decode) {
  const FaceOutputs source;
  FaceOutputs outputs(source);
  std::vector<kel_nn_box_t> boxes(kelnn::kMaxFaces);
  int count = 0;
  for (auto _ : state) {
    for (int l = 0; l < 4; ++l) outputs.scores[l] = source.scores[l];
    count = decode(outputs, boxes.data());
    benchmark::DoNotOptimize(boxes.data());
    benchmark::ClobberMemory();
  }
  state.counters["candidates"] = count;
}

void faces_kelnn(benchmark::State& state) {
  kelnn::FaceAnchors anchors[kelnn::kFaceLevels];
  kelnn::fill_face_anchors(anchors);
  faces(state, [&anchors](FaceOutputs& outputs, kel_nn_box_t* boxes) {
    kelnn::FaceLevelOutputs levels[4];
    for (int l = 0; l < 4; ++l) {
      levels[l] = {outputs.scores[l].data(), outputs.regressions[l].data()};
    }
    return kelnn::decode_faces(anchors, levels, 1920, 1080, boxes);
  });
}

void faces_plain(benchmark::State& state) {
  const auto anchors = kelnn_test::plain_face_anchors();
  faces(state, [&anchors](FaceOutputs& outputs, kel_nn_box_t* boxes) {
    float* scores[4];
    const float* regressions[4];
    for (int l = 0; l < 4; ++l) {
      scores[l] = outputs.scores[l].data();
      regressions[l] = outputs.regressions[l].data();
    }
    return plain_decode_faces(anchors, scores, regressions, 1920, 1080, boxes);
  });
}

// ----- Anchor grids: 1560 anchors, 20 of them candidates -----------------------------------------

constexpr kel_nn_size_t kInput = {416, 256};
constexpr int kAnchorCounts[2] = {8 * 13 * 3, 16 * 26 * 3};

struct GridOutputs {
  std::vector<float> values[2];
  explicit GridOutputs(int values_per_anchor) {
    for (int o = 0; o < 2; ++o) {
      values[o] = noise(kAnchorCounts[o] * values_per_anchor, 0.0f, 0.5f);
      for (int k = 0; k < kAnchorCounts[o]; ++k) {
        values[o][k * values_per_anchor + 4] += k % 78 == 39 ? 2.0f : -5.0f;
      }
    }
  }
};

void grids_kelnn(benchmark::State& state, const kelnn::GridDetector& detector, int max_boxes) {
  const GridOutputs source(detector.values_per_anchor);
  const kelnn::GridOutputs outputs = {{source.values[0].data(), source.values[1].data()}};
  std::vector<kel_nn_box_t> boxes(max_boxes);
  int count = 0;
  for (auto _ : state) {
    count = kelnn::decode_grids(detector, kelnn::Orientation::kLandscape, outputs, kInput,
                                max_boxes, boxes.data());
    benchmark::DoNotOptimize(boxes.data());
    benchmark::ClobberMemory();
  }
  state.counters["candidates"] = count;
}

void grids_plain(benchmark::State& state, const kelnn_test::PlainGrid& detector) {
  const GridOutputs source(detector.values_per_anchor);
  const float* const outputs[2] = {source.values[0].data(), source.values[1].data()};
  std::vector<kel_nn_box_t> boxes(detector.max_boxes);
  int count = 0;
  for (auto _ : state) {
    count = plain_decode_grids(detector, kInput, outputs, kInput, boxes.data());
    benchmark::DoNotOptimize(boxes.data());
    benchmark::ClobberMemory();
  }
  state.counters["candidates"] = count;
}

// The tables of the tasks are their own; these have the same shapes.
constexpr kelnn::GridDetector kPersons = {
    {{32, {{64, 187}, {123, 211}, {227, 264}}}, {16, {{7, 17}, {20, 50}, {45, 99}}}}, 6, 0, {}};
constexpr kelnn::GridDetector kFourClasses = {
    {{32, {{68, 52}, {74, 118}, {140, 155}}}, {16, {{24, 18}, {37, 36}, {41, 76}}}}, 9, 4, {}};

const int kRegistered = [] {
  using benchmark::RegisterBenchmark;
  using benchmark::State;
  RegisterBenchmark("decode/4420 face anchors/kelnn", faces_kelnn);
  RegisterBenchmark("decode/4420 face anchors/plain", faces_plain);
  RegisterBenchmark("decode/1560 person anchors/kelnn",
                    [](State& s) { grids_kelnn(s, kPersons, 100); });
  RegisterBenchmark("decode/1560 person anchors/plain",
                    [](State& s) { grids_plain(s, kelnn_test::kPlainPersons); });
  RegisterBenchmark("decode/1560 four-class anchors/kelnn",
                    [](State& s) { grids_kelnn(s, kFourClasses, 500); });
  RegisterBenchmark("decode/1560 four-class anchors/plain",
                    [](State& s) { grids_plain(s, kelnn_test::kPlainFourClasses); });
  return 0;
}();

}  // namespace
