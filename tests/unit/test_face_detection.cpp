// SPDX-License-Identifier: Apache-2.0
// Face detection over the scripted runtime: its boxes. What it shares with other tasks is tested in
// test_tasks.cpp.

#include "kel_nn_handle.h"
#include "support/box_matchers.h"
#include "support/library_test.h"
#include "support/networks.h"
#include "support/plain_boxes.h"

namespace {

using namespace kelnn_test;

class FaceDetection : public TaskTest {
 protected:
  ~FaceDetection() override { kel_nn_facedet_deinit(handle); }

  void play(const FaceNetwork& network) { runtime.play({320, 240, 3}, network.outputs); }
  void init(int width, int height) {
    play(FaceNetwork());
    ASSERT_EQ(kel_nn_facedet_init(handle, width, height), 0);
    printed();
  }
  int process() { return kel_nn_facedet_process(handle, image_.data(), &result_); }
  std::vector<kel_nn_box_t> detect(const FaceNetwork& network) {
    play(network);
    EXPECT_EQ(process(), 0);
    return {result_.boxes, result_.boxes + result_.count};
  }
  const float* output(int index) {
    return static_cast<float*>(handle->graph_facedet.outputs[index].buffer);
  }

  std::vector<uint8_t> image_ = std::vector<uint8_t>(320 * 240 * 3, 130);
  kel_nn_facedet_result_t result_ = {nullptr, 77, -1};
};

// Anchors are counted by row, column and size; the rows of levels 2 and 3 are 1/8 and 1/4 apart.
TEST_F(FaceDetection, PutsAnchorsIntoTheFrame) {
  const float kHuge = 1e30f;
  const struct {
    const char* name;
    int level, anchor;
    float regression[4];
    float cx, cy, w, h;  // in a frame of 640 x 480
  } cases[] = {
      {"first of all", 0, 0, {}, 8, 8, 20, 20},
      {"level 0, the second size", 0, 1, {}, 8, 8, 32, 32},
      {"level 0, the third", 0, 2, {}, 8, 8, 48, 48},
      {"level 1", 1, 0, {}, 16, 16, 64, 64},
      {"level 1, the second size", 1, 1, {}, 16, 16, 96, 96},
      {"level 2", 2, 0, {}, 32, 30, 128, 128},
      {"level 3", 3, 0, {}, 64, 60, 256, 256},
      {"level 3, the second size", 3, 1, {}, 64, 60, 384, 384},
      {"last of level 2", 2, 159, {}, 608, 450, 192, 192},
      {"last of level 3: higher than the frame", 3, 59, {}, 576, 420, 512, 480},
      {"moved to the centre of the frame", 3, 23, {0, 1.25f, 0, 0}, 320, 240, 512, 480},
      {"grown", 0, 126, {0, 0, 5, 10}, 40, 24, 20 * std::exp(1.0f), 20 * std::exp(2.0f)},
      {"beyond all limits", 0, 126, {kHuge, kHuge, kHuge, kHuge}, 640, 480, 640, 480},
      {"shrunk to nothing", 0, 126, {0, 0, -kHuge, -kHuge}, 40, 24, 0, 0},
  };
  init(640, 480);
  EXPECT_TRUE(detect(FaceNetwork()).empty());
  EXPECT_NE(result_.boxes, nullptr);
  EXPECT_EQ(result_.reserved, 77u);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    FaceNetwork network;
    network.set_face(c.level, c.anchor);
    std::copy(c.regression, c.regression + 4, network.regression(c.level, c.anchor));
    const auto boxes = detect(network);
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_FLOAT_EQ(boxes[0].cx, c.cx);
    EXPECT_FLOAT_EQ(boxes[0].cy, c.cy);
    EXPECT_FLOAT_EQ(boxes[0].w, c.w);
    EXPECT_FLOAT_EQ(boxes[0].h, c.h);
    EXPECT_FLOAT_EQ(boxes[0].score, std::exp(10.0f) / (1.0f + std::exp(10.0f)));
    EXPECT_EQ(boxes[0].class_id, 0);
  }
}

TEST_F(FaceDetection, AFaceScoresMoreThanTheThreshold) {
  // Logits around ln 4, beside a background logit of 0.
  const auto probability = [](float logit) {
    return std::exp(logit) / (std::exp(0.0f) + std::exp(logit));
  };
  float logit = 1.3862f;
  while (probability(logit) < 0.8f) logit = std::nextafter(logit, 2.0f);
  ASSERT_EQ(probability(logit), 0.8f) << "no logit gives exactly the threshold here";
  init(640, 480);
  FaceNetwork network;
  network.set_face(0, 5, logit);
  EXPECT_EQ(detect(network).size(), 0u);
  network.set_face(0, 100);  // a sure one in the same row
  EXPECT_EQ(detect(network).size(), 1u);
  while (probability(logit) <= 0.8f) logit = std::nextafter(logit, 2.0f);
  network.set_face(0, 5, logit);
  EXPECT_EQ(detect(network).size(), 2u);
  network.set_face(0, 5, NAN);
  EXPECT_EQ(detect(network).size(), 1u);
  FaceNetwork crowd;  // whole rows of nothing but faces
  for (int k = 0; k < kFaceAnchorCounts[3]; ++k) {
    crowd.set_face(3, k);
    std::fill_n(crowd.regression(3, k) + 2, 2, -50.0f);
  }
  EXPECT_GE(detect(crowd).size(), 20u);
}

TEST_F(FaceDetection, ScalesByTheFrameOfTheLastInit) {
  FaceNetwork network;
  network.set_face(0, 126);
  init(640, 480);
  EXPECT_EQ(kel_nn_facedet_init(handle, 1280, 240), -1);  // initialised already
  EXPECT_FLOAT_EQ(detect(network).at(0).cx, 80);
  EXPECT_FLOAT_EQ(detect(network).at(0).cy, 12);
  ASSERT_EQ(kel_nn_facedet_deinit(handle), 0);
  EXPECT_EQ(kel_nn_facedet_init(handle, 0, 0), 0);
  EXPECT_TRUE(same_boxes({detect(network).at(0)}, {{0, 0, 0, 0, result_.boxes[0].score, 0}}));
}

TEST_F(FaceDetection, EqualsThePlainLoopsBitForBit) {
  std::mt19937 random(5);
  std::normal_distribution<float> normal;
  const auto anchors = plain_face_anchors();
  init(1920, 1080);
  for (float bias : {-9.0f, -4.0f, -2.0f, 0.0f, 2.0f}) {  // from no face to many
    SCOPED_TRACE(bias);
    FaceNetwork network;
    float* scores[4];
    const float* regressions[4];
    for (int l = 0; l < 4; ++l) {
      for (float& value : network.scores(l)) value = 2 * normal(random);
      for (int k = 0; k < kFaceAnchorCounts[l]; ++k) network.scores(l)[2 * k + 1] += bias;
      for (float& value : network.outputs[2 * l + 1]) value = 3 * normal(random);
      scores[l] = network.scores(l).data();
      regressions[l] = network.regression(l, 0);
    }
    const auto boxes = detect(network);
    std::vector<kel_nn_box_t> expected(100);
    int count = plain_decode_faces(anchors, scores, regressions, 1920, 1080, expected.data());
    count = plain_nms(expected.data(), count, 0.3f, /*weighted=*/false);
    expected.resize(count);
    EXPECT_TRUE(same_boxes(boxes, expected));
    for (int i = 0; i < 8; i += 2) {  // the scores are probabilities now, here and there
      const std::vector<float>& plain = network.outputs[i];
      EXPECT_TRUE(std::equal(plain.begin(), plain.end(), output(i))) << "output " << i;
    }
  }
}

}  // namespace
