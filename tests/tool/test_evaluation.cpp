// SPDX-License-Identifier: Apache-2.0
// The figures of kelnn eval, beside values worked out by hand, where the command's own tests do not
// show them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "figures.h"

namespace kelnn_cli {
namespace {

using ::testing::ElementsAre;

constexpr double kTolerance = 1e-12;
auto is(double value) { return ::testing::NanSensitiveDoubleNear(value, kTolerance); }

TEST(AveragePrecision, IsTheAreaUnderTheBestPrecisions) {
  const struct {
    const char* name;
    std::vector<ScoredDetection> found;
    size_t truths;
    double expected;
  } cases[] = {
      {"all right, one missed", {{0.9f, true}}, 2, 1 / 2.},
      {"nothing found", {}, 2, 0},
      {"nothing to find", {{0.9f, false}}, 0, NAN},
      {"false ones after the last right one cost nothing", {{0.9f, true}, {0.5f, false}}, 1, 1},
      // Precision falls to 1/2 and rises to 2/3, which counts from recall 1/3 on; then 3/5.
      {"saw-tooth",
       {{0.9f, true}, {0.8f, false}, {0.7f, true}, {0.6f, false}, {0.5f, true}},
       3,
       (1 + 2 / 3. + 3 / 5.) / 3},
      // 1/2 at recall 1/4 is topped by 4/6 at recall 1.
      {"rising",
       {{0.9f, false}, {0.8f, true}, {0.7f, false}, {0.6f, true}, {0.5f, true}, {0.4f, true}},
       4,
       4 / 6.},
      {"in any order", {{0.7f, true}, {0.9f, true}, {0.8f, false}}, 2, (1 + 2 / 3.) / 2},
      {"equal scores, right one first", {{0.9f, true}, {0.9f, false}}, 1, 1 / 2.},
      {"equal scores, false one first", {{0.9f, false}, {0.9f, true}}, 1, 1 / 2.},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_THAT(average_precision(c.found, c.truths), is(c.expected));
  }
}

kel_nn::Detection found_at(const cv::Rect& box, float score, int class_id) {
  return {{box.x, box.y, box.width, box.height}, score, class_id};
}

TEST(Matching, GivesEachTruthToTheBestScoreThatOverlapsItEnough) {
  const cv::Rect box(100, 100, 60, 40), tall(100, 100, 60, 50);
  const struct {
    const char* name;
    std::vector<Truth> truths;
    std::vector<kel_nn::Detection> found;
    std::vector<double> ious;
  } cases[] = {
      {"another class", {{box, 1}}, {found_at(box, 0.9f, 0)}, {0}},
      {"elsewhere", {{{400, 100, 60, 40}, 0}}, {found_at(box, 0.9f, 0)}, {0}},
      // 40 of 60 columns: 40 / (60 + 60 - 40) is just enough, 39 / 81 is not.
      {"half", {{box, 0}}, {{{120, 100, 60, 40}, 0.9f, 0}}, {0.5}},
      {"less than half", {{box, 0}}, {{{121, 100, 60, 40}, 0.9f, 0}}, {0}},
      {"parts of pixels", {{{100.5, 100, 60, 40}, 0}}, {found_at(box, 0.9f, 0)}, {59.5 / 60.5}},
      {"twice", {{box, 0}}, {found_at(box, 0.8f, 0), found_at(tall, 0.9f, 0)}, {0, 0.8}},
      // The better score takes the truth that fits best and leaves the other one.
      {"two of two",
       {{tall, 0}, {box, 0}},
       {found_at(tall, 0.8f, 0), found_at(box, 0.9f, 0)},
       {1, 1}},
      // The best fit is gone, the other one is still near enough.
      {"second choice",
       {{tall, 0}, {box, 0}},
       {found_at(box, 0.9f, 0), found_at(box, 0.8f, 0)},
       {1, 0.8}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_THAT(match({c.truths, c.found}),
                ::testing::Pointwise(::testing::DoubleNear(kTolerance), c.ious));
  }
}

TEST(DetectionFigures, CountAPicturesClassesTogetherAndTheMeanOfTheirIous) {
  const cv::Rect a(0, 0, 10, 10), b(100, 0, 10, 10), wide(100, 0, 10, 16);
  const DetectionEvaluation evaluation = evaluate_detections(
      {{{{a, 0}, {b, 1}}, {found_at(a, 0.9f, 0), found_at(wide, 0.8f, 1), found_at(b, 0.7f, 0)}},
       {{}, {}}},
      2);
  EXPECT_EQ(evaluation.all.found, 3u);
  EXPECT_THAT(evaluation.all.mean_iou, is((1 + 100 / 160.) / 2));
  EXPECT_THAT(evaluation.classes[1].mean_iou, is(100 / 160.));
  EXPECT_EQ(evaluation.false_detections_per_picture, 1 / 2.);
}

TEST(SimilarityFigures, OfSmallSets) {
  std::vector<float> hundred(100, 0.0f), hundred_two(100, 0.0f);
  hundred[7] = hundred_two[7] = hundred_two[8] = 0.75f;  // above some of the same
  const struct {
    const char* name;
    std::vector<float> same, different;
    double equal_error_rate, threshold, true_accept_rate;
  } cases[] = {
      {"told apart", {0.75f, 0.875f}, {0.25f, 0.125f}, 0, 0.5, 1},
      // Between 0.5 and 0.625 one of four is wrong on both sides. No different pair may be accepted
      // where 1 % are 0.04 of a pair: above 0.75 two of the same are left.
      {"overlapping",
       {0.5f, 0.75f, 0.875f, 1.0f},
       {0.0f, 0.25f, 0.375f, 0.75f},
       1 / 4.,
       0.625,
       2 / 4.},
      // The rates never meet; between 0.25 and 0.5 they come closest.
      {"unequal numbers", {0.25f, 0.75f, 1.0f}, {0.5f, 0.0f}, (1 / 3. + 1 / 2.) / 2, 0.375, 2 / 3.},
      {"the wrong way round", {0.25f}, {0.75f}, 1, 0.5, 0},
      {"all equal", {0.5f, 0.5f}, {0.5f}, 1 / 2., -0.5, 0},
      {"a false pair in a hundred", {0.5f, 0.625f, 1.0f}, hundred, 0.005, 0.25, 1},
      {"two in a hundred", {0.5f, 0.625f, 1.0f}, hundred_two, 0.01, 0.25, 1 / 3.},
      {"no pairs of a kind", {}, {0.25f}, NAN, NAN, NAN},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const SimilarityFigures figures = similarity_figures(c.same, c.different);
    EXPECT_THAT(figures.equal_error_rate, is(c.equal_error_rate));
    EXPECT_THAT(figures.equal_error_threshold, is(c.threshold));
    EXPECT_THAT(figures.true_accept_rate, is(c.true_accept_rate));
  }
  EXPECT_THAT(similarity_figures({}, {0.25f}).mean_same, is(NAN));
}

TEST(LandmarkFigures, AreMeansOverFaces) {
  const std::vector<FaceErrors> faces = {
      {{0.01, 0.02, 0.03, 0.04, 0.05}, {-3, 4, 0}, true},
      {{0.03, 0.02, 0.01, 0.00, 0.09}, {1, -6, 0}, true},
      {{0.02, 0.02, 0.02, 0.02, 0.02}, {99, 99, 99}, false},
  };
  const LandmarkFigures figures = landmark_figures(faces);
  EXPECT_THAT(figures.mean, is(0.40 / 15));
  EXPECT_THAT(figures.points[0], is(0.06 / 3));
  EXPECT_THAT(figures.points[4], is(0.16 / 3));
  EXPECT_EQ(figures.percentile_95, 0.09);  // 14.25 of 15 values: the last
  EXPECT_THAT(figures.pose, ElementsAre(2, 5, 0));
  EXPECT_EQ(percentile({3, 1, 4, 2}, 0.5), 2);  // the nearest rank
  EXPECT_EQ(percentile({3, 1, 4, 2}, 0.51), 3);
  EXPECT_EQ(percentile({3, 1, 4, 2}, 0), 1);
  EXPECT_EQ(angle_between(10, 25), 15);  // the short way round
  EXPECT_EQ(angle_between(-175, 170), -15);
  EXPECT_EQ(angle_between(0, 725), 5);
}

}  // namespace
}  // namespace kelnn_cli
