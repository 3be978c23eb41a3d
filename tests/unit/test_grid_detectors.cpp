// SPDX-License-Identifier: Apache-2.0
// Person and four-class detection over the scripted runtime. Most tests run with both.
#include <climits>

#include "kel_nn_grid_detector.h"
#include "kel_nn_handle.h"
#include "kel_nn_model_files.h"
#include "support/box_matchers.h"
#include "support/library_test.h"
#include "support/networks.h"
#include "support/plain_boxes.h"

namespace {

using namespace kelnn_test;
using ::testing::ElementsAre;

using Boxes = std::vector<kel_nn_box_t>;

// ----- Back into the frame -----------------------------------------------------------------------

TEST(GridDetector, MapsBoxesIntoTheFrame) {
  constexpr float kHuge = 1e30f;
  const struct {
    const char* name;
    float box[4], mapped[4];  // cx, cy, w, h
    kel_nn_size_t frame = {320, 320}, input = {320, 320};
  } cases[] = {
      // Scale 0.65, 11 rows or columns of padding.
      {"wide", {208, 128, 65, 117}, {320, 180, 100, 180}, {640, 360}, {416, 256}},
      {"high", {128, 208, 117, 65}, {180, 320, 180, 100}, {360, 640}, {256, 416}},
      {"in place", {100, 90, 40, 20}, {100, 90, 40, 20}},
      {"cut to whole pixels", {100.9f, 90.9f, 40.9f, 21.9f}, {100, 89, 40, 21}},
      {"the limit is pixel 1 on the left and top", {10, 10, 20, 20}, {10, 10, 19, 19}},
      {"beyond the left", {-50, 90, 40, 20}, {10, 90, 19, 20}},
      {"no width at the left edge", {0, 90, 0, 20}, {0, 90, -1, 20}},
      {"to the right and bottom edge", {310, 310, 20, 20}, {309, 309, 19, 19}},
      {"wider than the frame", {160, 90, 999, 20}, {160, 90, 318, 20}},
      {"outside", {400, 90, 20, 20}, {354, 90, -71, 20}},
      {"endless", {kHuge, -kHuge, kHuge, INFINITY}, {1073741952.0f, 80, -2147483136.0f, 159}},
      {"not a number", {NAN, 90, NAN, 20}, {0, 90, -1, 20}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const float *b = c.box, *m = c.mapped;
    const kel_nn_box_t box = {b[0], b[1], b[2], b[3], 0.9f, 2};
    Boxes mapped(1);
    kelnn::map_to_frame(&box, 1, c.frame, c.input, mapped.data());
    EXPECT_TRUE(same_boxes(mapped, {{m[0], m[1], m[2], m[3], 0.9f, 2}}));
  }
  // Into frames that are none: no particular result, only that there is one.
  const kel_nn_box_t boxes[] = {{208, 128, 65, 117, 1, 0}, {-INFINITY, NAN, kHuge, -kHuge, 1, 0}};
  for (const int w : {0, -1, INT_MIN, INT_MAX}) {
    for (const int h : {0, 1, 360, INT_MIN, INT_MAX}) {
      kel_nn_box_t mapped[2];
      kelnn::map_to_frame(boxes, 2, {w, h}, {416, 256}, mapped);
      EXPECT_EQ(mapped[0].score, 1.0f);
    }
  }
}

// ----- Both detectors ----------------------------------------------------------------------------

struct Detector {
  const char* name;
  int (*init)(kel_nn_handle_t, int, int);
  int (*deinit)(kel_nn_handle_t);
  int (*process)(kel_nn_handle_t, const void*, kel_nn_det_result_t*, const kel_nn_size_t*,
                 const kel_nn_size_t*);
  kel_nn_graph kel_nn_handle::*graph;
  const PlainGrid& plain;
  const char* models[3];  // landscape, square, portrait
};
const Detector kDetectors[] = {
    Detector{"persondet",
             kel_nn_persondet_init,
             kel_nn_persondet_deinit,
             kel_nn_persondet_process,
             &kel_nn_handle::graph_persondet,
             kPlainPersons,
             {kelnn::kPersonDetectionLandscapeModel, kelnn::kPersonDetectionSquareModel,
              kelnn::kPersonDetectionPortraitModel}},
    Detector{"4clsdet",
             kel_nn_4clsdet_init,
             kel_nn_4clsdet_deinit,
             kel_nn_4clsdet_process,
             &kel_nn_handle::graph_4clsdet,
             kPlainFourClasses,
             {kelnn::kFourClassLandscapeModel, kelnn::kFourClassSquareModel,
              kelnn::kFourClassPortraitModel}}};

constexpr kel_nn_size_t kLandscape = {416, 256}, kSquare = {320, 320}, kPortrait = {256, 416};

class GridDetection : public TaskTest, public testing::WithParamInterface<int> {
 protected:
  ~GridDetection() override { detector.deinit(handle); }

  int values() const { return detector.plain.values_per_anchor; }
  void play(const GridNetwork& network) {
    runtime.play({network.input.w, network.input.h, 3}, network.outputs);
  }
  void init(const kel_nn_size_t& frame, const GridNetwork& network) {
    play(network);
    ASSERT_EQ(detector.init(handle, frame.w, frame.h), 0);
    printed();
  }
  int process(const kel_nn_size_t& frame, const kel_nn_size_t& input) {
    image_.resize(416 * 320 * 3, 130);
    return detector.process(handle, image_.data(), &result_, &frame, &input);
  }
  Boxes detect(const GridNetwork& network, const kel_nn_size_t& frame) {
    play(network);
    EXPECT_EQ(process(frame, network.input), 0);
    return {result_.boxes, result_.boxes + result_.count};
  }
  // What the plain loops make of it with the grids of `grid`.
  Boxes plain_detect(const GridNetwork& network, const kel_nn_size_t& grid,
                     const kel_nn_size_t& frame) {
    Boxes boxes(detector.plain.max_boxes);
    const float* const outputs[2] = {network.outputs[0].data(), network.outputs[1].data()};
    int count = plain_decode_grids(detector.plain, grid, outputs, network.input, boxes.data());
    if (count > 0) count = plain_nms(boxes.data(), count, 0.4f, /*weighted=*/false);
    boxes.resize(count);
    for (auto& box : boxes) box = plain_map_to_frame(box, frame, network.input);
    return boxes;
  }
  GridNetwork random_network(const kel_nn_size_t& input, float bias, unsigned seed) {
    std::mt19937 random(seed);
    std::normal_distribution<float> normal;
    GridNetwork network(values(), input);
    network.for_each_anchor([&](float* values) {
      for (int i = 0; i < network.values_per_anchor; ++i) values[i] = normal(random);
      values[4] += bias;
      // Of classes many are equal, and some not a number.
      for (int i = 5; i < network.values_per_anchor; ++i)
        values[i] = random() % 9 ? std::floor(2 * values[i]) : NAN;
    });
    return network;
  }
  const Detector& detector = kDetectors[GetParam()];
  std::vector<unsigned char> image_;
  kel_nn_det_result_t result_ = {nullptr, -1};
};

INSTANTIATE_TEST_SUITE_P(, GridDetection, testing::Values(0, 1), [](const auto& info) {
  return std::string("Of_") + kDetectors[info.param].name;
});

TEST_P(GridDetection, ChoosesTheModelByOrientation) {
  const struct {
    int width, height;
    int model;
  } cases[] = {{640, 360, 0}, {480, 480, 1}, {360, 640, 2}, {1, 0, 0}, {-5, -5, 1}, {-1, 0, 2}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.width << " x " << c.height);
    const kel_nn_size_t inputs[] = {kLandscape, kSquare, kPortrait};
    const GridNetwork network(values(), inputs[c.model]);
    init({c.width, c.height}, network);
    EXPECT_EQ((handle->*detector.graph).model_path, models.with_slash() + detector.models[c.model]);
    EXPECT_TRUE(detect(network, {640, 360}).empty());
    EXPECT_NE(result_.boxes, nullptr);
    EXPECT_EQ(detector.deinit(handle), 0);
  }
  EXPECT_EQ(runtime.networks_alive, 0);
}

TEST_P(GridDetection, ACandidateMayScoreExactlyTheThreshold) {
  const auto score = [](float logit) {
    return static_cast<float>(1.0 / (1.0 + std::exp(-double{logit})));
  };
  float logit = -0.848f;
  while (score(logit) < 0.3f) logit = std::nextafter(logit, 0.0f);
  ASSERT_EQ(score(logit), 0.3f) << "no logit gives exactly the threshold here";
  GridNetwork network(values(), kSquare);
  init({480, 480}, network);
  network.anchor(1, 5, 5, 0)[4] = logit;
  EXPECT_EQ(detect(network, {480, 480}).size(), 1u);
  while (score(logit) >= 0.3f) logit = std::nextafter(logit, -1.0f);
  for (float below : {logit, -0.87f, -0.9f, -1.0f, -1e30f, -INFINITY, NAN}) {
    network.anchor(1, 5, 5, 0)[4] = below;
    EXPECT_EQ(detect(network, {480, 480}).size(), 0u) << below;
  }
}

TEST_P(GridDetection, EqualsThePlainLoopsBitForBit) {
  const kel_nn_size_t frames[] = {{1920, 1080}, {720, 720}, {360, 640}};
  const kel_nn_size_t inputs[] = {kLandscape, kSquare, kPortrait};
  for (int orientation = 0; orientation < 3; ++orientation) {
    init(frames[orientation], GridNetwork(values(), inputs[orientation]));
    for (float bias : {-6.0f, -3.0f, -1.0f, 1.0f}) {  // from few candidates to too many
      SCOPED_TRACE(testing::Message() << "orientation " << orientation << ", bias " << bias);
      const GridNetwork network = random_network(inputs[orientation], bias, 11);
      EXPECT_TRUE(same_boxes(detect(network, frames[orientation]),
                             plain_detect(network, inputs[orientation], frames[orientation])));
    }
    detector.deinit(handle);
  }
}

// The size is taken over before the graph refuses: the grids are the new ones, the model the old.
TEST_P(GridDetection, ARefusedInitChangesTheGrids) {
  const GridNetwork network = random_network(kLandscape, -2.0f, 12);
  init({640, 360}, network);
  const Boxes before = detect(network, {640, 360});
  for (const kel_nn_size_t& frame : {kSquare, kPortrait}) {
    EXPECT_EQ(detector.init(handle, frame.w, frame.h), -1);
    EXPECT_THAT(printed_messages(), ElementsAre("[Error]Graph has already been initialized."));
    const Boxes after = detect(network, {640, 360});
    EXPECT_TRUE(same_boxes(after, plain_detect(network, frame, {640, 360})));
    EXPECT_FALSE(same_boxes(after, before));
  }
  detector.deinit(handle);
  init({480, 480}, GridNetwork(values(), kSquare));
  EXPECT_EQ(detector.init(handle, 640, 360), -1);  // more cells than the outputs have
  printed();
  EXPECT_EQ(process({640, 360}, kSquare), 1);
  EXPECT_THAT(printed_messages(), ElementsAre("[Error]The outputs are smaller than the grids."));
}

TEST_P(GridDetection, SaysWhichCallOfTheEngineFailedWithTheEnginesCode) {
  init({640, 360}, GridNetwork(values(), kLandscape));
  runtime.fail_next_run = 7;
  for (const kel_nn_size_t& input :
       std::vector<kel_nn_size_t>{kPortrait, {0, 0}, {-416, -256}, kLandscape}) {
    EXPECT_EQ(process({640, 360}, input), 1);
    EXPECT_EQ(printed_messages().back(), input.w == kLandscape.w
                                             ? "[Error]kel_nne_run_graph error: -1"
                                             : "[Error]kel_nne_tensor_set_dim error: -1");
  }
}

// ----- What is special to each -------------------------------------------------------------------

class FourClassDetection : public GridDetection {};
INSTANTIATE_TEST_SUITE_P(, FourClassDetection, testing::Values(1));

// Candidates show the last bits, which whole pixels hide.
TEST_P(FourClassDetection, CandidatesHaveTheBitsOfThePlainLoops) {
  const kelnn::GridDetector table = {
      {{32, {{68, 52}, {74, 118}, {140, 155}}}, {16, {{24, 18}, {37, 36}, {41, 76}}}}, 9, 4, {}};
  const GridNetwork network = random_network(kLandscape, 0.0f, 6);
  const float* const outputs[2] = {network.outputs[0].data(), network.outputs[1].data()};
  for (const kel_nn_size_t& input : {kLandscape, kel_nn_size_t{419, 253}}) {
    Boxes boxes(500), expected(500);
    boxes.resize(kelnn::decode_grids(table, kelnn::Orientation::kLandscape,
                                     {{outputs[0], outputs[1]}}, input, 500, boxes.data()));
    expected.resize(
        plain_decode_grids(detector.plain, kLandscape, outputs, input, expected.data()));
    EXPECT_TRUE(same_boxes(boxes, expected));
  }
}

TEST_P(FourClassDetection, DoesNotDisturbPersonDetection) {
  GridNetwork mine(values(), kPortrait), persons(6, kLandscape);
  mine.anchor(0, 2, 2, 0)[4] = 3.0f;
  persons.anchor(0, 3, 5, 0)[4] = 2.0f;
  play(persons);
  ASSERT_EQ(kel_nn_persondet_init(handle, 640, 360), 0);
  init({360, 640}, mine);
  play(persons);
  kel_nn_det_result_t found;
  const kel_nn_size_t frame = {640, 360};
  image_.resize(416 * 320 * 3, 130);
  ASSERT_EQ(kel_nn_persondet_process(handle, image_.data(), &found, &frame, &kLandscape), 0);
  ASSERT_EQ(found.count, 1);
  const kel_nn_box_t person = found.boxes[0];
  ASSERT_EQ(detect(mine, {360, 640}).size(), 1u);
  EXPECT_TRUE(same_boxes({found.boxes[0]}, {person}));
  EXPECT_NE(result_.boxes, found.boxes);
  kel_nn_persondet_deinit(handle);
}

}  // namespace
