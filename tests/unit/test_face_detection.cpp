// Face detection over the scripted runtime: its boxes. What it shares with other tasks is tested in
// test_tasks.cpp.
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "kel_nn_handle.h"
#include "support/box_matchers.h"
#include "support/library_test.h"
#include "support/plain_boxes.h"
#include "support/plain_detectors.h"

namespace {

using kelnn_test::kFaceAnchorCounts;
using kelnn_test::same_boxes;
using kelnn_test::TaskTest;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

// The eight outputs, in level order: two scores, then four regression values for each anchor.
struct Network {
  std::vector<float> scores[4], regressions[4];

  Network() {
    for (int l = 0; l < 4; ++l) {
      scores[l].assign(2 * kFaceAnchorCounts[l], 0.0f);
      regressions[l].assign(4 * kFaceAnchorCounts[l], 0.0f);
    }
  }
  void set_face(int level, int anchor, float logit = 10.0f) {
    scores[level][2 * anchor + 1] = logit;
  }
  void set_regression(int level, int anchor, float dx, float dy, float dw, float dh) {
    const float values[] = {dx, dy, dw, dh};
    std::copy(values, values + 4, &regressions[level][4 * anchor]);
  }
};

class FaceDetection : public TaskTest {
 protected:
  FaceDetection() {
    runtime.input_shape = {320, 240, 3};
    play(Network());
  }
  ~FaceDetection() override { kel_nn_facedet_deinit(handle); }

  void play(const Network& network) {
    std::vector<kelnn_test::Output> outputs;
    for (int l = 0; l < 4; ++l) {
      const float anchors = static_cast<float>(kFaceAnchorCounts[l]);
      outputs.push_back({{1, anchors, 2}, network.scores[l]});
      outputs.push_back({{1, anchors, 4}, network.regressions[l]});
    }
    runtime.set_outputs(outputs);
  }
  void init(int width, int height) {
    ASSERT_EQ(kel_nn_facedet_init(handle, width, height), 0);
    printed();
  }
  int process() { return kel_nn_facedet_process(handle, image_.data(), &result_); }
  std::vector<kel_nn_box_t> detect(const Network& network) {
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
  struct Case {
    const char* name;
    int level, anchor;
    float regression[4];
    float cx, cy, w, h;  // in a frame of 640 x 480
  };
  const float kHuge = 1e30f;
  const Case cases[] = {
      {"first of all", 0, 0, {}, 8, 8, 20, 20},
      {"third size", 0, 2, {}, 8, 8, 48, 48},
      {"second cell", 0, 3, {}, 24, 8, 20, 20},
      {"second row", 0, 120, {}, 8, 24, 20, 20},
      {"last of level 0", 0, 3599, {}, 632, 472, 48, 48},
      {"last of level 1", 1, 599, {}, 624, 464, 96, 96},
      {"last of level 2", 2, 159, {}, 608, 450, 192, 192},
      {"second row of level 2", 2, 20, {}, 32, 90, 128, 128},
      {"last of level 3: higher than the frame", 3, 59, {}, 576, 420, 512, 480},
      {"moved to the centre of the frame", 3, 23, {0, 1.25f, 0, 0}, 320, 240, 512, 480},
      {"moved by a tenth of its size", 0, 126, {1, -1, 0, 0}, 42, 22, 20, 20},
      {"grown", 0, 126, {0, 0, 5, 10}, 40, 24, 20 * std::exp(1.0f), 20 * std::exp(2.0f)},
      {"beyond the left and top", 0, 126, {-100, -100, 0, 0}, 0, 0, 20, 20},
      {"beyond all limits", 0, 126, {kHuge, kHuge, kHuge, kHuge}, 640, 480, 640, 480},
      {"shrunk to nothing", 0, 126, {0, 0, -kHuge, -kHuge}, 40, 24, 0, 0},
  };
  init(640, 480);
  EXPECT_TRUE(detect(Network()).empty());
  EXPECT_NE(result_.boxes, nullptr);
  EXPECT_EQ(result_.reserved, 77u);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Network network;
    network.set_face(c.level, c.anchor);
    const float* r = c.regression;
    network.set_regression(c.level, c.anchor, r[0], r[1], r[2], r[3]);
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
  Network network;
  network.set_face(0, 5, logit);
  EXPECT_EQ(detect(network).size(), 0u);
  network.set_face(0, 100);  // a sure one in the same row
  EXPECT_EQ(detect(network).size(), 1u);
  while (probability(logit) <= 0.8f) logit = std::nextafter(logit, 2.0f);
  network.set_face(0, 5, logit);
  EXPECT_EQ(detect(network).size(), 2u);
  network.set_face(0, 5, kNan);
  EXPECT_EQ(detect(network).size(), 1u);
}

TEST_F(FaceDetection, ConsidersTheFirst100CandidatesLevelByLevel) {
  Network network;
  const float kTiny = -50.0f;  // e^-10 of the anchor's size, so that nothing overlaps
  const auto add = [&network, kTiny](int level, int first, int count, float logit) {
    for (int k = first; k < first + count; ++k) {
      const bool single_in_cell = level == 0 ? k % 3 == 0 : k % 2 == 0;
      if (!single_in_cell) continue;
      network.set_face(level, k, logit);
      network.set_regression(level, k, 0, 0, kTiny, kTiny);
    }
  };
  add(0, 0, 180, 3);    // 60
  add(1, 100, 200, 4);  // 100, of which 40 are taken
  add(2, 0, 160, 8);    // better ones, but too late
  init(640, 480);
  const auto boxes = detect(network);
  ASSERT_EQ(boxes.size(), 100u);
  const auto score = [](float logit) { return std::exp(logit) / (1.0f + std::exp(logit)); };
  EXPECT_EQ(boxes[0].score, score(4));
  EXPECT_EQ(boxes[39].score, score(4));
  EXPECT_EQ(boxes[40].score, score(3));
  // The scores of anchors that found no room have become probabilities all the same.
  EXPECT_EQ(output(4)[2 * 158 + 1], score(8));
  EXPECT_EQ(output(6)[2 * 59], 0.5f);
}

TEST_F(FaceDetection, ScalesByTheFrameOfTheLastInit) {
  Network network;
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
  const auto anchors = kelnn_test::plain_face_anchors();
  init(1920, 1080);
  for (float bias : {-9.0f, -4.0f, -2.0f, 0.0f, 2.0f}) {  // from no face to many
    SCOPED_TRACE(bias);
    Network network;
    float* scores[4];
    const float* regressions[4];
    for (int l = 0; l < 4; ++l) {
      for (float& value : network.scores[l]) value = 2 * normal(random);
      for (size_t k = 1; k < network.scores[l].size(); k += 2) network.scores[l][k] += bias;
      for (float& value : network.regressions[l]) value = 3 * normal(random);
      scores[l] = network.scores[l].data();
      regressions[l] = network.regressions[l].data();
    }
    const auto boxes = detect(network);
    std::vector<kel_nn_box_t> expected(100);
    int count =
        kelnn_test::plain_decode_faces(anchors, scores, regressions, 1920, 1080, expected.data());
    count = kelnn_test::plain_nms(expected.data(), count, 0.3f, /*weighted=*/false);
    expected.resize(count);
    EXPECT_TRUE(same_boxes(boxes, expected));
    for (int l = 0; l < 4; ++l) {
      for (size_t k = 0; k < network.scores[l].size(); ++k) {
        ASSERT_EQ(output(2 * l)[k], network.scores[l][k]) << "score " << k << " of level " << l;
      }
    }
  }
}

}  // namespace
