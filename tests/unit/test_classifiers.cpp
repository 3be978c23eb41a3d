#include <cmath>

#include "kel_nn_handle.h"
#include "support/library_test.h"

namespace kelnn_test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;

float logistic(float x) { return 1.0f / (expf(-x) + 1.0f); }

class FaceClassification : public TaskTest {
 protected:
  FaceClassification() {
    runtime.input_shape = {112, 112, 1};
    runtime.set_outputs({{{1, 1, 3}, {0, 0, 0}}});
  }
  ~FaceClassification() override { kel_nn_face_classify_deinit(handle); }
  int process() { return kel_nn_face_classify_process(handle, image.data(), &class_id, &score); }

  const std::vector<uint8_t> image = std::vector<uint8_t>(112 * 112, 130);
  int class_id = 77;
  float score = 77;
};

TEST_F(FaceClassification, TakesTheFirstOfTheLargestOutputs) {
  struct Case {
    std::vector<float> outputs;
    int class_id;
    float winner, score;
  };
  const Case cases[] = {
      {{2, 2, 1}, 0, 2, 0.8808f},  {{-1, -3, -0.5f}, 2, -0.5f, 0.3775f},
      {{0, 0, 0}, 0, 0, 0.5f},     {{1, 2, 2}, 1, 2, 0.8808f},
      {{1, 3, 2}, 1, 3, 0.9526f},  {{-200, -200, -200}, 0, -200, 0},
      {{0, NAN, NAN}, 0, 0, 0.5f}, {{0, NAN, 1}, 2, 1, 0.7311f},
  };
  ASSERT_EQ(kel_nn_face_classify_init(handle), 0);
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.outputs));
    runtime.set_outputs({{{1, 1, 3}, c.outputs}});
    ASSERT_EQ(process(), 0);
    EXPECT_EQ(class_id, c.class_id);
    EXPECT_EQ(score, logistic(c.winner));
    EXPECT_NEAR(score, c.score, 0.5e-4);
  }
  runtime.set_outputs({{{1, 1, 3}, {NAN, 5, 6}}});  // nothing is larger than NaN
  ASSERT_EQ(process(), 0);
  EXPECT_EQ(class_id, 0);
  EXPECT_TRUE(std::isnan(score));
  EXPECT_THAT(runtime.last_input, Each(130 - 128));
  EXPECT_NE(printed().find("4ktzpMv5WkUtd7i8vQxNiU91bEuDD25eMEprZUrbhnzHVHYg2UxakFjLTS2WoSwSSLBL8aW"
                           "pUkLrJ3.bin"),
            std::string::npos);
}

TEST_F(FaceClassification, AFailureLeavesTheResultsAlone) {
  EXPECT_EQ(kel_nn_face_classify_init(nullptr), -1);
  EXPECT_THAT(printed(),
              IsLocatedLine("31", "src/kel_nn_face_classify.cpp", "kel_nn_face_classify_init",
                            "[Error]Uninitialized handle."));
  EXPECT_EQ(kel_nn_face_classify_deinit(nullptr), -1);
  EXPECT_THAT(printed(),
              IsLocatedLine("31", "src/kel_nn_face_classify.cpp", "kel_nn_face_classify_deinit",
                            "[Error]Uninitialized handle."));
  ASSERT_EQ(kel_nn_face_classify_init(handle), 0);
  printed();
  EXPECT_EQ(kel_nn_face_classify_process(nullptr, image.data(), &class_id, &score), -1);
  EXPECT_EQ(kel_nn_face_classify_process(handle, nullptr, &class_id, &score), -1);
  EXPECT_EQ(kel_nn_face_classify_process(handle, image.data(), nullptr, &score), -1);
  EXPECT_THAT(printed_messages(), ::testing::SizeIs(3));
  EXPECT_EQ(kel_nn_face_classify_process(handle, image.data(), &class_id, nullptr), -1);
  EXPECT_THAT(printed(),
              IsLocatedLine("31", "src/kel_nn_face_classify.cpp", "kel_nn_face_classify_process",
                            "[Error]Invalid arguments."));
  runtime.fail_next_run = 3;
  EXPECT_EQ(process(), -1);
  EXPECT_THAT(printed_messages(), ElementsAre("[Error]Inference fail: 3"));
  EXPECT_EQ(kel_nn_face_classify_deinit(handle), 0);

  runtime.set_outputs({{{1, 1, 2}, {1, 2}}});
  ASSERT_EQ(kel_nn_face_classify_init(handle), 0);
  printed();
  EXPECT_EQ(process(), -1);
  EXPECT_THAT(printed_messages(), ElementsAre("[Error]Output 0 has fewer than 3 values."));
  EXPECT_EQ(class_id, 77);
  EXPECT_EQ(score, 77);
}

class PersonClassification : public TaskTest {
 protected:
  PersonClassification() {
    runtime.input_shape = {112, 112, 3};
    runtime.set_outputs({{{1, 1, 2}, {0, 0}}});
  }
  ~PersonClassification() override { kel_nn_person_classify_deinit(handle); }
  int process() { return kel_nn_person_classify_process(handle, image.data(), &score); }

  const std::vector<uint8_t> image = std::vector<uint8_t>(112 * 112 * 3, 130);
  float score = 77;
};

TEST_F(PersonClassification, IsTheProbabilityOfTheFirstClass) {
  struct Case {
    float outputs[2], score;
  };
  const Case cases[] = {{{0, 0}, 0.5f}, {{2, 0}, 0.8808f}, {{0, 2}, 0.1192f}, {{0, 80}, 0}};
  ASSERT_EQ(kel_nn_person_classify_init(handle), 0);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.score);
    runtime.set_outputs({{{1, 1, 2}, {c.outputs[0], c.outputs[1]}}});
    ASSERT_EQ(process(), 0);
    EXPECT_EQ(score, expf(c.outputs[0]) / (expf(c.outputs[0]) + expf(c.outputs[1])));
    EXPECT_NEAR(score, c.score, 0.5e-4);
    // The graph's own output holds both probabilities.
    const float* both = kel_nne_tensor_get_buffer(static_cast<kel_nn_tensor_t>(
        kel_nne_graph_get_output_tensor(&handle->graph_person_classify, 0)));
    EXPECT_EQ(both[0], score);
    EXPECT_NEAR(both[1], 1 - c.score, 0.5e-4);
  }
  runtime.set_outputs({{{1, 1, 2}, {1000, 0}}});  // the exponential overflows
  ASSERT_EQ(process(), 0);
  EXPECT_TRUE(std::isnan(score));
  EXPECT_NE(
      printed().find("j6LJDni8h9VvNntyXnwIdFGWmTO48ehJYDt2Yjasr7Sl0qdWyseHlFKBOX1HzR5XovpYpa.bin"),
      std::string::npos);
}

TEST_F(PersonClassification, AFailureLeavesTheScoreAlone) {
  EXPECT_EQ(kel_nn_person_classify_init(nullptr), -1);
  EXPECT_THAT(printed(),
              IsLocatedLine("31", "src/kel_nn_person_classify.cpp", "kel_nn_person_classify_init",
                            "[Error]Uninitialized handle."));
  EXPECT_EQ(kel_nn_person_classify_deinit(nullptr), -1);
  EXPECT_THAT(printed(),
              IsLocatedLine("31", "src/kel_nn_person_classify.cpp", "kel_nn_person_classify_deinit",
                            "[Error]Uninitialized handle."));
  runtime.input_shape = {112, 112, 1};
  ASSERT_EQ(kel_nn_person_classify_init(handle), 0);
  printed();
  EXPECT_EQ(process(), -1);
  EXPECT_THAT(
      printed_messages(),
      ElementsAre("[Error]JZ T31 not allowed input dynamic shape, expect: [1, 112, 112, 1]"));
  EXPECT_EQ(kel_nn_person_classify_process(nullptr, image.data(), &score), -1);
  EXPECT_EQ(kel_nn_person_classify_process(handle, nullptr, &score), -1);
  EXPECT_THAT(printed_messages(), ::testing::SizeIs(2));
  EXPECT_EQ(kel_nn_person_classify_process(handle, image.data(), nullptr), -1);
  EXPECT_THAT(printed(),
              IsLocatedLine("31", "src/kel_nn_person_classify.cpp",
                            "kel_nn_person_classify_process", "[Error]Invalid arguments."));
  EXPECT_EQ(kel_nn_person_classify_deinit(handle), 0);

  runtime.input_shape = {112, 112, 3};
  runtime.set_outputs({{{1, 1, 1}, {1}}});
  ASSERT_EQ(kel_nn_person_classify_init(handle), 0);
  printed();
  EXPECT_EQ(process(), -1);
  EXPECT_THAT(printed_messages(), ElementsAre("[Error]Output 0 has fewer than 2 values."));
  EXPECT_EQ(score, 77);
}

}  // namespace
}  // namespace kelnn_test
