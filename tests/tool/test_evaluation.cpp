// The figures of kelnn eval, beside values worked out by hand.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "figures.h"

namespace {

using namespace kelnn_cli;
using ::testing::ElementsAre;

constexpr double kTolerance = 1e-12;

// ----- Detection

TEST(AveragePrecision, IsTheAreaUnderTheBestPrecisions) {
  struct Case {
    const char* name;
    std::vector<ScoredDetection> found;
    size_t truths;
    double expected;
  };
  const Case cases[] = {
      {"all right", {{0.9f, true}, {0.8f, true}}, 2, 1},
      {"one missed", {{0.9f, true}}, 2, 1 / 2.},
      {"nothing found", {}, 2, 0},
      {"nothing right", {{0.9f, false}}, 2, 0},
      {"false ones after the last right one cost nothing", {{0.9f, true}, {0.5f, false}}, 1, 1},
      {"a false one first", {{0.9f, false}, {0.8f, true}}, 1, 1 / 2.},
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
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_NEAR(average_precision(c.found, c.truths), c.expected, kTolerance);
  }
  EXPECT_TRUE(std::isnan(average_precision({{0.9f, false}}, 0)));
}

TEST(Matching, GivesEachTruthToTheBestScoreThatOverlapsItEnough) {
  const cv::Rect box(100, 100, 60, 40), beside(400, 100, 60, 40);
  struct Case {
    const char* name;
    std::vector<Truth> truths;
    std::vector<Detection> found;
    std::vector<double> ious;
  };
  const Case cases[] = {
      {"exact", {{box, 0}}, {{box, 0.9f, 0}}, {1}},
      {"another class", {{box, 1}}, {{box, 0.9f, 0}}, {0}},
      {"elsewhere", {{beside, 0}}, {{box, 0.9f, 0}}, {0}},
      // 40 of 60 columns: 40 / (60 + 60 - 40) is just enough, 39 / 81 is not.
      {"half", {{box, 0}}, {{{120, 100, 60, 40}, 0.9f, 0}}, {0.5}},
      {"less than half", {{box, 0}}, {{{121, 100, 60, 40}, 0.9f, 0}}, {0}},
      {"parts of pixels", {{{100.0, 100, 60, 40}, 0}}, {{{100, 100, 60, 50}, 0.9f, 0}}, {0.8}},
      {"twice", {{box, 0}}, {{box, 0.8f, 0}, {{100, 100, 60, 50}, 0.9f, 0}}, {0, 0.8}},
      // The better score takes the truth that fits best and leaves the other one.
      {"two of two",
       {{{100, 100, 60, 50}, 0}, {box, 0}},
       {{{100, 100, 60, 50}, 0.8f, 0}, {box, 0.9f, 0}},
       {1, 1}},
      // The best fit is gone, the other one is still near enough.
      {"second choice",
       {{{100, 100, 60, 50}, 0}, {box, 0}},
       {{box, 0.9f, 0}, {box, 0.8f, 0}},
       {1, 0.8}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::vector<double> ious = match({c.truths, c.found});
    ASSERT_EQ(ious.size(), c.ious.size());
    for (size_t i = 0; i < ious.size(); ++i) EXPECT_NEAR(ious[i], c.ious[i], kTolerance);
  }
}

TEST(DetectionFigures, AreOfEachClassAndOfAll) {
  const cv::Rect a(0, 0, 10, 10), b(100, 0, 10, 10), c(200, 0, 10, 10), wide(200, 0, 10, 16);
  const std::vector<DetectedPicture> pictures = {
      {{{a, 0}, {b, 2}}, {{a, 0.9f, 0}, {b, 0.8f, 0}, {b, 0.7f, 2}}},
      {{{c, 2}}, {{wide, 0.95f, 2}, {a, 0.6f, 1}}},
      {{}, {}},
      {{{b, 0}}, {}},
  };
  const DetectionEvaluation evaluation = evaluate_detections(pictures, 4);
  ASSERT_EQ(evaluation.classes.size(), 4u);
  struct Expected {
    size_t truths, found, matches;
    double average_precision, precision, recall, mean_iou;
  };
  const Expected expected[] = {
      {2, 2, 1, 1 / 2., 1 / 2., 1 / 2., 1},
      {0, 1, 0, NAN, 0, NAN, NAN},
      {2, 2, 2, 1, 1, 1, (1 + 100 / 160.) / 2},
      {0, 0, 0, NAN, NAN, NAN, NAN},
      {4, 5, 3, (1 / 2. + 1) / 2, 3 / 5., 3 / 4., (2 + 100 / 160.) / 3},
  };
  for (size_t i = 0; i < 5; ++i) {
    SCOPED_TRACE(i);
    const DetectionFigures& figures = i < 4 ? evaluation.classes[i] : evaluation.all;
    EXPECT_EQ(figures.truths, expected[i].truths);
    EXPECT_EQ(figures.found, expected[i].found);
    EXPECT_EQ(figures.matches, expected[i].matches);
    const auto is = [](double value) {
      return ::testing::NanSensitiveDoubleNear(value, kTolerance);
    };
    EXPECT_THAT(figures.average_precision, is(expected[i].average_precision));
    EXPECT_THAT(figures.precision, is(expected[i].precision));
    EXPECT_THAT(figures.recall, is(expected[i].recall));
    EXPECT_THAT(figures.mean_iou, is(expected[i].mean_iou));
  }
  EXPECT_NEAR(evaluation.false_detections_per_picture, 2 / 4., kTolerance);
}

// ----- Similarity

TEST(SimilarityFigures, OfSmallSets) {
  struct Case {
    const char* name;
    std::vector<float> same, different;
    double equal_error_rate, threshold, true_accept_rate;
  };
  const Case cases[] = {
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
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const SimilarityFigures figures = similarity_figures(c.same, c.different);
    EXPECT_NEAR(figures.equal_error_rate, c.equal_error_rate, kTolerance);
    EXPECT_NEAR(figures.equal_error_threshold, c.threshold, kTolerance);
    EXPECT_NEAR(figures.true_accept_rate, c.true_accept_rate, kTolerance);
  }
  const SimilarityFigures means = similarity_figures(cases[1].same, cases[1].different);
  EXPECT_NEAR(means.mean_same, 3.125 / 4, kTolerance);
  EXPECT_NEAR(means.mean_different, 1.375 / 4, kTolerance);
}

TEST(SimilarityFigures, AcceptOneFalsePairInAHundred) {
  std::vector<float> different(100, 0.0f);
  different[7] = 0.75f;  // above some of the same
  EXPECT_EQ(similarity_figures({0.5f, 0.625f, 1.0f}, different).true_accept_rate, 1);
  different[8] = 0.75f;
  EXPECT_NEAR(similarity_figures({0.5f, 0.625f, 1.0f}, different).true_accept_rate, 1 / 3.,
              kTolerance);
}

TEST(SimilarityFigures, AreUndefinedWithoutPairsOfAKind) {
  const SimilarityFigures figures = similarity_figures({}, {0.25f});
  EXPECT_TRUE(std::isnan(figures.equal_error_rate));
  EXPECT_TRUE(std::isnan(figures.equal_error_threshold));
  EXPECT_TRUE(std::isnan(figures.true_accept_rate));
  EXPECT_TRUE(std::isnan(figures.mean_same));
  EXPECT_EQ(figures.mean_different, 0.25);
}

// ----- Classes

TEST(Confusion, CountsWhatWasFoundOfEachClass) {
  ConfusionMatrix confusion(3);
  for (const auto& [truth, found] : {std::pair(0, 0), {0, 0}, {0, 2}, {0, 0}, {2, 0}, {2, 2}}) {
    confusion.add(truth, found);
  }
  EXPECT_THAT(confusion.rows(),
              ElementsAre(ElementsAre(3, 0, 1), ElementsAre(0, 0, 0), ElementsAre(1, 0, 1)));
  EXPECT_EQ(confusion.count(), 6u);
  EXPECT_EQ(confusion.recall(0), 3 / 4.);
  EXPECT_TRUE(std::isnan(confusion.recall(1)));
  EXPECT_EQ(confusion.recall(2), 1 / 2.);
  EXPECT_NEAR(confusion.accuracy(), 4 / 6., kTolerance);
}

// ----- Landmarks

TEST(LandmarkFigures, AreMeansOverFaces) {
  const std::vector<FaceErrors> faces = {
      {{0.01, 0.02, 0.03, 0.04, 0.05}, {-3, 4, 0}, true},
      {{0.03, 0.02, 0.01, 0.00, 0.09}, {1, -6, 0}, true},
      {{0.02, 0.02, 0.02, 0.02, 0.02}, {99, 99, 99}, false},
  };
  const LandmarkFigures figures = landmark_figures(faces);
  EXPECT_NEAR(figures.mean, 0.40 / 15, kTolerance);
  const double points[] = {0.06 / 3, 0.06 / 3, 0.06 / 3, 0.06 / 3, 0.16 / 3};
  for (size_t i = 0; i < 5; ++i) EXPECT_NEAR(figures.points[i], points[i], kTolerance);
  EXPECT_EQ(figures.percentile_95, 0.09);  // 14.25 of 15 values: the last
  EXPECT_THAT(figures.pose, ElementsAre(2, 5, 0));
  EXPECT_TRUE(std::isnan(landmark_figures({faces[2]}).pose[0]));
}

TEST(Percentile, IsTheNearestRank) {
  std::vector<double> twenty;
  for (int i = 20; i > 0; --i) twenty.push_back(i);
  EXPECT_EQ(percentile(twenty, 0.95), 19);
  EXPECT_EQ(percentile(twenty, 0.951), 20);
  EXPECT_EQ(percentile(twenty, 1), 20);
  EXPECT_EQ(percentile(twenty, 0), 1);
  EXPECT_TRUE(std::isnan(percentile({}, 0.95)));
}

TEST(Angles, AreTheShortWayRound) {
  EXPECT_EQ(angle_between(10, 25), 15);
  EXPECT_EQ(angle_between(25, 10), -15);
  EXPECT_EQ(angle_between(-175, 170), -15);
  EXPECT_EQ(angle_between(0, 725), 5);
}

}  // namespace
