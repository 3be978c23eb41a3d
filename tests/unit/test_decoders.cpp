// SPDX-License-Identifier: Apache-2.0

#include "support/box_matchers.h"
#include "support/library_test.h"
#include "support/plain_decoders.h"

namespace kelnn_test {
namespace {

using ::testing::IsEmpty;

constexpr char kDecodersSource[] = "src/kel_nn_postprocess.cpp";
constexpr kel_nn_box_t kNoBox = {-7, -7, -7, -7, -7, -7};

class Decoders : public LibraryTest {
 protected:
  auto IsWarning(const char* function, uint32_t boxes_num) {
    return IsLocatedLine("33", kDecodersSource, function,
                         "[Warning]The number of predict bounding boxes are more than "
                         "dest_boxes_num: " +
                             std::to_string(boxes_num) + ", early stoped, some boxes may missing.");
  }
  // Decodes into an array that ends behind `capacity` boxes, or behind one.
  int yolov3(const std::vector<float>& map, int stride, const kel_nn_yolov3_param_t& param,
             uint32_t capacity) {
    boxes.assign(capacity ? capacity : 1, kNoBox);
    return kel_nn_yolov3_postprocess(map.data(), stride, &param, boxes.data(), capacity);
  }
  int centernet(const std::vector<float>& map, int stride, const kel_nn_centernet_param_t& param,
                uint32_t capacity) {
    boxes.assign(capacity + 1, kNoBox);
    return kel_nn_centernet_postprocess(map.data(), stride, &param, boxes.data(), capacity);
  }
  std::vector<kel_nn_box_t> boxes;
};

const int32_t kAnchors[] = {32, 64, 16, 8, 5, 7};

TEST_F(Decoders, PlaceABoxInTheImage) {
  const auto box_near = [this](float cx, float cy, float w, float h, float score) {
    const float expected[] = {cx, cy, w, h, score};
    const float found[] = {boxes[0].cx, boxes[0].cy, boxes[0].w, boxes[0].h, boxes[0].score};
    EXPECT_THAT(found, ::testing::Pointwise(::testing::FloatNear(1e-3f), expected));
  };
  const float e = -100;  // empty
  // Two columns and one row of 32 pixels, two anchors; the last place holds the object. x is
  // 640 * 1.5 / 2, the width 640 * 1 * 16 / 64, the height 320 * 2 * 8 / 32. The score is
  // 1 / (1 + 1 * (1 + 1)), where a product of sigmoids would be 1 / 4.
  const std::vector<float> map = {0, 0, 0, 0, e, 0, 0, 0, 0, 0, 0,       e, 0, 0,
                                  0, 0, 0, 0, e, 0, 0, 0, 0, 0, logf(2), 0, 0, 0};
  ASSERT_EQ(yolov3(map, 32, {640, 320, 64, 32, 2, 2, kAnchors, 0.3f}, 2), 1);
  box_near(480, 160, 160, 160, 1.0f / 3);
  // The second of two cells of 16 pixels has its centre at (24, 8) of 32 x 16 pixels, which are a
  // half and a quarter of the image's. Equal bins are half of the largest distance.
  const std::vector<float> cells = {e, e, e, e, e, e, e, e, e, e, e, e, e,
                                    0, 1, 1, 1, 5, 5, 5, e, e, 0, 0, e, e};
  ASSERT_EQ(centernet(cells, 16, {64, 64, 32, 16, 2, 1, 0.4f}, 1), 1);
  box_near(40, 16, 48, 32, 0.5f);
  EXPECT_EQ(printed(), "");
}

// Two boxes: YOLOv3 warns when the array is full, CenterNet when a box is lost.
TEST_F(Decoders, WarnOfAnArrayThatIsTooShort) {
  const kel_nn_yolov3_param_t yolo = {64, 64, 64, 32, 1, 1, kAnchors, 0.3f};
  const kel_nn_centernet_param_t center = {64, 64, 64, 32, 0, 1, 0.3f};
  const struct {
    uint32_t capacity;
    int yolov3_count, centernet_count;
  } cases[] = {{3, 2, 2}, {2, 2, 2}, {1, 1, 1}, {0, 1, 0}};
  const auto expect_warning = [this](bool warns, const char* function, uint32_t capacity) {
    EXPECT_THAT(printed(), ::testing::Conditional(warns, IsWarning(function, capacity), IsEmpty()));
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.capacity);
    EXPECT_EQ(yolov3(std::vector<float>(12), 32, yolo, c.capacity), c.yolov3_count);
    EXPECT_EQ(boxes[c.yolov3_count - 1].cx, c.yolov3_count == 1 ? 16 : 48);
    expect_warning(c.capacity <= 2, "kel_nn_yolov3_postprocess", c.capacity);
    EXPECT_EQ(centernet(std::vector<float>(10), 32, center, c.capacity), c.centernet_count);
    EXPECT_EQ(boxes[c.centernet_count].class_id, kNoBox.class_id);
    expect_warning(c.capacity <= 1, "kel_nn_centernet_postprocess", c.capacity);
  }
}

// The score of logits of 0, and the floats beside it. Next to 1, too, where rounding is coarse.
TEST_F(Decoders, KeepsOrDropsAScoreEqualToTheThreshold) {
  for (const float logit : {0.0f, -60.0f, -3.0f, 3.0f, 7.0f, 12.0f, 16.0f}) {
    SCOPED_TRACE(logit);
    kel_nn_yolov3_param_t yolo = {64, 64, 32, 32, 1, 1, kAnchors, 0};
    const std::vector<float> place = {0, 0, 0, 0, logit, 100};
    const float yolo_score = 1.0f / (1.0f + expf(-logit) * (1.0f + expf(-100.0f)));
    yolo.score_threshold = yolo_score;
    EXPECT_EQ(yolov3(place, 32, yolo, 9), 1);
    yolo.score_threshold = std::nextafter(yolo_score, 2.0f);
    EXPECT_EQ(yolov3(place, 32, yolo, 9), 0);

    kel_nn_centernet_param_t center = {64, 64, 32, 32, 0, 1, 0};
    const std::vector<float> cell = {logit, 0, 0, 0, 0};
    const float center_score = 1.0f / (expf(-logit) + 1.0f);
    center.score_threshold = center_score;
    EXPECT_EQ(centernet(cell, 32, center, 9), 0);
    center.score_threshold = std::nextafter(center_score, -1.0f);
    EXPECT_EQ(centernet(cell, 32, center, 9), 1);
  }
}

TEST_F(Decoders, GiveNoBoxesForWhatCannotBe) {
  const std::vector<float> map(100, 1.0f);
  kel_nn_box_t box = kNoBox;
  const int low = INT32_MIN, high = INT32_MAX;
  const kel_nn_yolov3_param_t good = {64, 64, 32, 32, 1, 1, kAnchors, 0.1f};
  const struct {
    const char* name;
    int stride;
    kel_nn_yolov3_param_t param;
  } yolov3_cases[] = {
      {"no stride", 0, good},
      {"a stride beyond the input", 33, good},
      {"the most negative input by -1", -1, {64, 64, low, low, 1, 1, kAnchors, 0.1f}},
      {"no width", 8, {64, 64, 0, 32, 1, 1, kAnchors, 0.1f}},
      {"no classes", 32, {64, 64, 32, 32, 0, 1, kAnchors, 0.1f}},
      {"no anchors", 32, {64, 64, 32, 32, 1, 0, kAnchors, 0.1f}},
      {"negative anchors", 32, {64, 64, 32, 32, 1, -1, kAnchors, 0.1f}},
      {"null anchors", 32, {64, 64, 32, 32, 1, 1, nullptr, 0.1f}},
      {"more than memory", 1, {64, 64, high, high, high, high, kAnchors, 0.1f}},
      {"with all anchors", 1, {64, 64, 1 << 15, 1 << 15, 1 << 20, high, kAnchors, 0.1f}},
      {"a threshold above 1", 32, {64, 64, 32, 32, 1, 1, kAnchors, 1.5f}},
      {"a threshold that is not a number", 32, {64, 64, 32, 32, 1, 1, kAnchors, NAN}},
  };
  for (const auto& c : yolov3_cases) {
    EXPECT_EQ(kel_nn_yolov3_postprocess(map.data(), c.stride, &c.param, &box, 1), 0) << c.name;
  }
  EXPECT_EQ(kel_nn_yolov3_postprocess(nullptr, 32, &good, &box, 1), 0);
  EXPECT_EQ(kel_nn_yolov3_postprocess(map.data(), 32, nullptr, &box, 1), 0);
  EXPECT_EQ(kel_nn_yolov3_postprocess(map.data(), 32, &good, nullptr, 1), 0);

  const kel_nn_centernet_param_t fine = {64, 64, 32, 32, 1, 1, 0.1f};
  const struct {
    const char* name;
    int stride;
    kel_nn_centernet_param_t param;
  } centernet_cases[] = {
      {"no stride", 0, fine},
      {"no classes", 32, {64, 64, 32, 32, 1, 0, 0.1f}},
      {"negative bins", 32, {64, 64, 32, 32, -1, 1, 0.1f}},
      {"the fewest bins", 32, {64, 64, 32, 32, low, 1, 0.1f}},
      {"more than memory", 1, {64, 64, high, high, high, high, 0.1f}},
      {"with all bins", 1, {64, 64, 1 << 15, 1 << 15, high, 1, 0.1f}},
      {"a threshold of 1", 32, {64, 64, 32, 32, 1, 1, 1.0f}},
      {"a threshold that is not a number", 32, {64, 64, 32, 32, 1, 1, NAN}},
  };
  for (const auto& c : centernet_cases) {
    EXPECT_EQ(kel_nn_centernet_postprocess(map.data(), c.stride, &c.param, &box, 1), 0) << c.name;
  }
  EXPECT_EQ(kel_nn_centernet_postprocess(nullptr, 32, &fine, &box, 1), 0);
  EXPECT_EQ(kel_nn_centernet_postprocess(map.data(), 32, nullptr, &box, 1), 0);
  EXPECT_EQ(kel_nn_centernet_postprocess(map.data(), 32, &fine, nullptr, 1), 0);
  EXPECT_TRUE(same_box(box, kNoBox));
  EXPECT_EQ(printed(), "");
}

// Logits around 0, some of them extreme or not a number; by turns whole numbers, many of them equal.
std::vector<float> random_logits(size_t count, std::mt19937* random) {
  const bool are_whole = (*random)() % 3 == 0;
  const float odd[] = {0.0f, -0.0f, 90.0f, -90.0f, 200.0f, -200.0f, INFINITY, -INFINITY, NAN};
  std::normal_distribution<float> spread(-1.0f, 3.0f);
  std::vector<float> logits(count);
  for (float& x : logits) {
    x = (*random)() % 200 == 0 ? odd[(*random)() % 9] : spread(*random);
    if (are_whole) x = std::floor(x);
  }
  return logits;
}

TEST_F(Decoders, AgreeWithThePlainOnesBitForBit) {
  std::mt19937 random(5);
  const float thresholds[] = {0.5f,  0.3f,   0.9f, 0.999f, 0.9995f, 1.0f,
                              1e-6f, 1e-31f, 0.0f, -1.0f,  0.05f,   0.7f};
  size_t box_count = 0;
  for (int round = 0; round < 240; ++round) {
    SCOPED_TRACE(round);
    const float threshold = thresholds[round % 12];
    const int stride = static_cast<int>(8 + random() % 25);
    const int input_w = stride * (1 + random() % 9) + random() % stride;
    const int input_h = stride * (1 + random() % 7) + random() % stride;
    const int class_num = 1 + random() % (round % 3 == 0 ? 90 : 9);
    const int img_w = 1 + random() % 2000, img_h = 1 + random() % 2000;
    const size_t cells = size_t(input_w / stride) * (input_h / stride);

    const int anchor_num = 1 + random() % 3;
    const kel_nn_yolov3_param_t yolo = {img_w,     img_h,      input_w,  input_h,
                                        class_num, anchor_num, kAnchors, threshold};
    std::vector<kel_nn_box_t> expected(cells * anchor_num);
    std::vector<float> map = random_logits(cells * anchor_num * (5 + class_num), &random);
    expected.resize(plain_yolov3(map.data(), stride, yolo, expected.data()));
    boxes.resize(yolov3(map, stride, yolo, static_cast<uint32_t>(cells * anchor_num + 1)));
    ASSERT_TRUE(same_boxes(boxes, expected));
    box_count += boxes.size();

    // Few bins, and more than a buffer of usual size has room for.
    const int reg_max = round % 7 == 0 ? 60 + random() % 200 : random() % 20;
    const kel_nn_centernet_param_t center = {img_w,   img_h,     input_w,  input_h,
                                             reg_max, class_num, threshold};
    const size_t bins = reg_max + 1, values = class_num + 4 * bins;
    map = random_logits(cells * values, &random);
    for (size_t i = 0; i < map.size() && bins > 60; ++i) {  // else all sides are beyond the edges
      const size_t bin = i % values - class_num;
      if (i % values >= size_t(class_num) && bin % bins == 0) map[i] += 14;
    }
    expected.resize(cells);
    expected.resize(plain_centernet(map.data(), stride, center, expected.data()));
    boxes.resize(centernet(map, stride, center, static_cast<uint32_t>(cells)));
    ASSERT_TRUE(same_boxes(boxes, expected));
    box_count += boxes.size();
  }
  EXPECT_GT(box_count, 5000u);
  EXPECT_THAT(printed_messages(), IsEmpty());
}

}  // namespace
}  // namespace kelnn_test
