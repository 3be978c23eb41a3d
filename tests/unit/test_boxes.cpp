// SPDX-License-Identifier: Apache-2.0
// Overlap of boxes and non-maximum suppression.

#include "support/box_matchers.h"
#include "support/library_test.h"
#include "support/plain_boxes.h"

namespace {

using namespace kelnn_test;

using Boxes = std::vector<kel_nn_box_t>;

int nms(Boxes* boxes, float iou_threshold, int type = KEL_NN_NMS_HARD) {
  return kel_nn_nms(boxes->data(), static_cast<int>(boxes->size()), iou_threshold, type);
}

// Clusters, some of them crowded. Two at a time have the same score: the first in the list comes first, except in long
// lists, where they differ.
Boxes random_boxes(int count, std::mt19937* random) {
  const auto below = [random](int n) { return static_cast<int>((*random)() % n); };
  Boxes boxes;
  for (int i = 0; i < count; ++i) {
    const auto tenths = [&below](int n) { return static_cast<float>(below(n)) / 10.0f; };
    boxes.push_back({static_cast<float>(below(1 + count / 8)) * 20.0f + tenths(100), tenths(160),
                     tenths(200), 10.0f + tenths(90),
                     static_cast<float>(count > 2048 ? i : i / 2) / static_cast<float>(count),
                     below(4)});
  }
  std::shuffle(boxes.begin(), boxes.end(), *random);
  return boxes;
}

TEST(Iou, IsSharedAreaOverCoveredArea) {
  const kel_nn_box_t box = {5, 5, 10, 10, 0, 0}, aside = {10, 5, 10, 10, 1, 3};
  EXPECT_EQ(nn_calcu_iou(&box, &box), 1.0f);
  EXPECT_EQ(nn_calcu_iou(&box, &aside), 50.0f / 150.0f);
  EXPECT_EQ(nn_calcu_iou(nullptr, &box), 0.0f);
  EXPECT_EQ(nn_calcu_iou(&box, nullptr), 0.0f);
  std::mt19937 random(2);
  Boxes boxes = random_boxes(60, &random);
  boxes.push_back({15, 5, 10, 10, 0, 0});  // touches the first
  // 2^23 - 0.5 + 0.5 and 2^23 + 0.5 + 0.5 are both 2^23 in float: no width is left.
  boxes.push_back({8388608, 5, 1, 4, 0, 0});
  boxes.push_back(box);
  for (const auto& a : boxes) {
    for (const auto& b : boxes) {
      const float overlap = plain_iou(a, b);
      ASSERT_EQ(nn_calcu_iou(&a, &b), overlap);
      Boxes pair = {a, b};  // the threshold itself is not exceeded: all is in single precision
      ASSERT_EQ(nms(&pair, overlap), 2);
    }
  }
}

class Nms : public LibraryTest {};

// By hand: b overlaps a and c by a third each. What sorting left behind the kept ones stays there.
TEST_F(Nms, KeepsTheBestBoxOfEachGroup) {
  const kel_nn_box_t a = {5, 5, 10, 10, 0.9f, 1}, b = {10, 5, 10, 10, 0.7f, 3},
                     c = {15, 5, 10, 10, 0.6f, 4};
  Boxes boxes = {c, b, a};
  EXPECT_EQ(nms(&boxes, 0.3f), 2);
  EXPECT_TRUE(same_boxes(boxes, {a, c, c}));
  EXPECT_EQ(printed(), "");
}

// The weight's score is that in the slot with the opener's index in the sorted list.
TEST_F(Nms, WeightedReadsWhatALargerGroupLeftInASlot) {
  Boxes boxes = {
      {10, 10, 8, 8, 0.9f, 1},
      {100, 10, 8, 8, 0.8f, 1},  // index 1, alone; slot 1 still holds the 0.7 of the first group
      {10, 10, 8, 8, 0.7f, 1},
  };
  ASSERT_EQ(nms(&boxes, 0.5f, KEL_NN_NMS_WEIGHTED), 2);
  EXPECT_EQ(boxes[1].cx, std::exp(0.7f) / std::exp(0.8f) * 100.0f);
}

TEST_F(Nms, ReportsAnUnknownTypeAndLeavesTheListSorted) {
  Boxes boxes = {{1, 1, 1, 1, 0.1f, 7}, {1, 1, 1, 1, 0.3f, 8}, {1, 1, 1, 1, 0.2f, 9}};
  EXPECT_EQ(nms(&boxes, 0.5f, 2), 0);
  expect_error("src/kel_nn_common.cpp", "kel_nn_nms", "Wrong type of nms: 2");
  EXPECT_TRUE(
      same_boxes(boxes, {{1, 1, 1, 1, 0.3f, 8}, {1, 1, 1, 1, 0.2f, 9}, {1, 1, 1, 1, 0.1f, 7}}));
  EXPECT_EQ(kel_nn_nms(boxes.data(), 0, 0.5f, 2), 0);
  EXPECT_EQ(kel_nn_nms(nullptr, 3, 0.5f, 2), 0);
  EXPECT_EQ(kel_nn_nms(boxes.data(), -1, 0.5f, KEL_NN_NMS_HARD), 0);
  EXPECT_EQ(printed(), "");
}

// Counts around the lengths at which the library changes its ways.
TEST_F(Nms, EqualsThePlainLoopsBitForBit) {
  std::mt19937 random(1);
  for (int count : {1, 2, 7, 8, 9, 16, 17, 31, 32, 33, 100, 257, 500, 2048, 2049}) {
    for (float threshold : {-0.5f, 0.0f, 0.3f, 1.0f, NAN}) {
      if (count > 500 && threshold != 0.3f) continue;  // the plain loops take their time
      const Boxes source = random_boxes(count, &random);
      for (int type : {KEL_NN_NMS_HARD, KEL_NN_NMS_WEIGHTED}) {
        SCOPED_TRACE(testing::Message() << count << " boxes, " << threshold << ", type " << type);
        Boxes boxes = source, expected = source;
        const int kept = plain_nms(expected.data(), count, threshold, type == KEL_NN_NMS_WEIGHTED);
        ASSERT_EQ(nms(&boxes, threshold, type), kept);
        ASSERT_TRUE(same_boxes(boxes, expected));
      }
    }
  }
}

// Hard suppression goes on when its scratch is full, weighted takes memory from the heap.
TEST_F(Nms, LongListsNeedMoreThanTheFastScratch) {
  Boxes boxes;  // 2500 places, the last 800 to be kept there again with scores below all others
  for (int i = 0; i < 3300; ++i) {
    boxes.push_back(
        {0, 20.0f * static_cast<float>(i < 800 ? i : i - 800), 10, 10, static_cast<float>(i), i});
  }
  EXPECT_EQ(nms(&boxes, 0.5f), 2500);
  for (int i = 0; i < 2500; ++i) ASSERT_EQ(boxes[i].class_id, 3299 - i);
  boxes.resize(2500);
  EXPECT_EQ(nms(&boxes, 0.0f), 2500);  // which the threshold is, and is not above
  for (int count : {100, 2048, 2049}) {
    boxes.assign(static_cast<size_t>(count), {5, 5, 1, 1, 0.1f, 0});
    boxes.back().score = 0.9f;
    const bool has_scratch = count <= 2048;
    {
      const NoMemory none;
      EXPECT_EQ(nms(&boxes, 0.5f, KEL_NN_NMS_WEIGHTED), has_scratch ? 1 : 0) << count;
    }
    EXPECT_EQ(printed_messages().empty(), has_scratch);
    EXPECT_TRUE(has_scratch || boxes[0].score == 0.9f);  // sorted
  }
}

TEST_F(Nms, SurvivesNumbersThatAreNone) {
  const float odd[] = {NAN, -NAN, INFINITY, -INFINITY, 1e38f, 1.0f, 0.5f};
  for (int count : {5, 50, 3000}) {
    Boxes boxes;
    for (int i = 0; i < count; ++i) {
      boxes.push_back({odd[i % 7], odd[i % 6], odd[i % 5], odd[i % 4], odd[(i + i / 7) % 7], i});
    }
    for (int type : {KEL_NN_NMS_HARD, KEL_NN_NMS_WEIGHTED}) {
      EXPECT_THAT(nms(&boxes, 0.5f, type), testing::AllOf(testing::Ge(1), testing::Le(count)));
    }
  }
  // Scores that are numbers are in order, however many.
  for (int count : {7, 280}) {
    Boxes boxes;
    const float scores[] = {0.0f, -1.0f, INFINITY, 1e-40f, -INFINITY, 2.0f, -1e-40f};
    for (int i = 0; i < count; ++i) boxes.push_back({0, 0, 0, 0, scores[i % 7], 0});
    ASSERT_EQ(nms(&boxes, 0.5f), count);
    for (int i = 1; i < count; ++i) ASSERT_GE(boxes[i - 1].score, boxes[i].score) << i;
  }
  // A box of NaN overlaps nothing: every comparison with it is false.
  Boxes boxes(20, {NAN, NAN, 10, 10, 0.5f, 0});
  for (float threshold : {0.0f, 0.5f, -1.0f}) EXPECT_EQ(nms(&boxes, threshold), 20);
}

}  // namespace
