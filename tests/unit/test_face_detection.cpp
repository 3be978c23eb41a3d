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

TEST_F(FaceDetection, PutsAnchorsIntoTheFrame) {
  init(640, 480);
  EXPECT_TRUE(detect(FaceNetwork()).empty());
  EXPECT_NE(result_.boxes, nullptr);
  EXPECT_EQ(result_.reserved, 77u);
  FaceNetwork network;
  network.set_face(3, 59);  // the last of all: higher than the frame
  const auto boxes = detect(network);
  ASSERT_EQ(boxes.size(), 1u);
  const float found[] = {boxes[0].cx, boxes[0].cy, boxes[0].w, boxes[0].h, boxes[0].score};
  const float expected[] = {576, 420, 512, 480, std::exp(10.0f) / (1.0f + std::exp(10.0f))};
  EXPECT_THAT(found, testing::Pointwise(testing::FloatEq(), expected));
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

// Faces on one level or on all, few or many; some regressions are beyond all limits.
TEST_F(FaceDetection, EqualsThePlainLoopsBitForBit) {
  std::mt19937 random(5);
  std::normal_distribution<float> normal;
  const auto anchors = plain_face_anchors();
  init(1920, 1080);
  for (int round = 0; round < 5 * 4; ++round) {
    SCOPED_TRACE(round);
    FaceNetwork network;
    float* scores[4];
    const float* regressions[4];
    for (int l = 0; l < 4; ++l) {
      const float bias = round % 5 == l || round % 5 == 4 ? 2.0f * (round / 5) - 4 : -20.0f;
      for (float& value : network.scores(l)) value = 2 * normal(random);
      for (int k = 0; k < kFaceAnchorCounts[l]; ++k) network.scores(l)[2 * k + 1] += bias;
      for (float& value : network.outputs[2 * l + 1])
        value = normal(random) * (random() % 20 ? 3 : 1e30f);
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
