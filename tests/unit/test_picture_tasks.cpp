// The tasks with one picture and one network over the scripted runtime: first what all of them have
// in common, then the values of each. Face detection's values have a file of their own.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include "kel_nn_handle.h"
#include "kel_nn_model_files.h"
#include "support/library_test.h"

namespace kelnn_test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;

struct Results {
  kel_nn_facedet_result_t faces;
  kel_nn_feature_t feature;
  float landmarks[11], pose[4];
  int class_id;
  float score;
};

struct PictureTask {
  std::string path, name, process_name;
  int (*init)(kel_nn_handle_t);
  int (*deinit)(kel_nn_handle_t);
  int result_count;  // pointers to results that must not be null
  int (*process)(kel_nn_handle_t, const uint8_t* image, Results*, int null_result);
  kel_nn_graph kel_nn_handle::*graph;
  std::string model;
  std::vector<int> input_shape;  // width, height, channels
  std::vector<size_t> outputs;   // how many values each must have
};

template <typename T>
T* unless(bool null, T* pointer) {
  return null ? nullptr : pointer;
}

const PictureTask kTasks[] = {
    {"plat/jzt31/kel_nn_ultraface.cpp",
     "kel_nn_facedet",
     "kel_nn_facedet_process",
     [](kel_nn_handle_t handle) { return kel_nn_facedet_init(handle, 640, 480); },
     kel_nn_facedet_deinit,
     1,
     [](kel_nn_handle_t handle, const uint8_t* image, Results* r, int null) {
       return kel_nn_facedet_process(handle, image, unless(null == 0, &r->faces));
     },
     &kel_nn_handle::graph_facedet,
     kelnn::kFaceDetectionModel,
     {320, 240, 3},
     {7200, 14400, 1200, 2400, 320, 640, 120, 240}},
    {"plat/jzt31/kel_nn_pfld.cpp",
     "kel_nn_facelm",
     "kel_nn_facelm_process",
     kel_nn_facelm_init,
     kel_nn_facelm_deinit,
     1,
     [](kel_nn_handle_t handle, const uint8_t* image, Results* r, int null) {
       return kel_nn_facelm_process(handle, image, unless(null == 0, r->landmarks), r->pose);
     },
     &kel_nn_handle::graph_facelm,
     kelnn::kFaceLandmarksModel,
     {112, 112, 1},
     {10, 3}},
    {"src/kel_nn_facercg.cpp",
     "kel_nn_facercg",
     "kel_nn_face_feature_extract",
     kel_nn_facercg_init,
     kel_nn_facercg_deinit,
     1,
     [](kel_nn_handle_t handle, const uint8_t* image, Results* r, int null) {
       return kel_nn_face_feature_extract(handle, image, unless(null == 0, &r->feature));
     },
     &kel_nn_handle::graph_facercg,
     kelnn::kFaceFeatureModel,
     {112, 112, 1},
     {256}},
    {"src/kel_nn_face_classify.cpp",
     "kel_nn_face_classify",
     "kel_nn_face_classify_process",
     kel_nn_face_classify_init,
     kel_nn_face_classify_deinit,
     2,
     [](kel_nn_handle_t handle, const uint8_t* image, Results* r, int null) {
       return kel_nn_face_classify_process(handle, image, unless(null == 0, &r->class_id),
                                           unless(null == 1, &r->score));
     },
     &kel_nn_handle::graph_face_classify,
     kelnn::kFaceClassifyModel,
     {112, 112, 1},
     {3}},
    {"src/kel_nn_person_classify.cpp",
     "kel_nn_person_classify",
     "kel_nn_person_classify_process",
     kel_nn_person_classify_init,
     kel_nn_person_classify_deinit,
     1,
     [](kel_nn_handle_t handle, const uint8_t* image, Results* r, int null) {
       return kel_nn_person_classify_process(handle, image, unless(null == 0, &r->score));
     },
     &kel_nn_handle::graph_person_classify,
     kelnn::kPersonClassifyModel,
     {112, 112, 3},
     {2}},
};

class PictureTest : public TaskTest {
 protected:
  ~PictureTest() override {
    for (const PictureTask& task : kTasks) task.deinit(handle);
    EXPECT_EQ(runtime.networks_alive, 0);
  }
  void play(const std::vector<std::vector<float>>& outputs) {
    std::vector<Output> shaped;
    for (const auto& values : outputs) {
      shaped.push_back({{1, 1, static_cast<float>(values.size())}, values});
    }
    runtime.set_outputs(shaped);
  }

  const std::vector<uint8_t> image = std::vector<uint8_t>(320 * 240 * 3, 130);
};

// ----- What all have in common -------------------------------------------------------------------

class EachPictureTask : public PictureTest, public testing::WithParamInterface<PictureTask> {
 protected:
  EachPictureTask() {
    std::memset(&results_, 0x55, sizeof(results_));
    untouched_ = results_;
    runtime.input_shape = task_.input_shape;
    for (const size_t value_count : task_.outputs) outputs_.emplace_back(value_count);
    play(outputs_);
  }
  // A call that fails, with this line and no other.
  void expect_failure(const std::string& message) {
    printed();
    EXPECT_EQ(process(), -1);
    EXPECT_THAT(printed_messages(), ElementsAre("[Error]" + message));
    EXPECT_EQ(std::memcmp(&results_, &untouched_, sizeof(results_)), 0);
  }
  int process() { return task_.process(handle, image.data(), &results_, -1); }
  void expect_error(int result, const std::string& function, const std::string& message) {
    EXPECT_EQ(result, -1);
    EXPECT_THAT(printed(), IsLocatedLine("31", task_.path, function, "[Error]" + message));
  }
  static std::string expected_shape(int n, int height, int width, int channels) {
    char text[100];
    std::snprintf(text, sizeof(text),
                  "JZ T31 not allowed input dynamic shape, expect: [%d, %d, %d, %d]", n, height,
                  width, channels);
    return text;
  }
  std::string complaint(size_t output) const {
    if (task_.graph != &kel_nn_handle::graph_facedet) {
      return "Output " + std::to_string(output) + " has fewer than " +
             std::to_string(task_.outputs[output]) + " values.";
    }
    const size_t scores = output / 2 * 2;
    return "Outputs " + std::to_string(scores) + " and " + std::to_string(scores + 1) +
           " are too small for " + std::to_string(task_.outputs[scores] / 2) + " anchors.";
  }

  const PictureTask& task_ = GetParam();
  std::vector<std::vector<float>> outputs_;
  Results results_, untouched_;
};

INSTANTIATE_TEST_SUITE_P(, EachPictureTask, testing::ValuesIn(kTasks),
                         [](const auto& info) { return info.param.name; });

TEST_P(EachPictureTask, LoadsItsScrambledModelAndShowsItThePicture) {
  ASSERT_EQ(task_.init(handle), 0);
  EXPECT_EQ((handle->*task_.graph).model_path, models.with_slash() + task_.model);
  EXPECT_EQ(runtime.loaded_from_memory, 1);
  printed();
  EXPECT_EQ(process(), 0);
  EXPECT_EQ(runtime.last_input_shape, task_.input_shape);
  EXPECT_THAT(runtime.last_input, Each(130 - 128));
  EXPECT_EQ(printed(), "");
  EXPECT_EQ(task_.init(handle), -1);
  EXPECT_THAT(printed_messages(), ElementsAre("[Error]Graph has already been initialized."));
  EXPECT_EQ(task_.deinit(handle), 0);
  EXPECT_EQ(task_.deinit(handle), 0);  // of what is not initialised: nothing to do
  EXPECT_EQ(printed(), "");
}

TEST_P(EachPictureTask, RefusesNullsUnderTheNameOfTheCall) {
  expect_error(task_.init(nullptr), task_.name + "_init", "Uninitialized handle.");
  expect_error(task_.deinit(nullptr), task_.name + "_deinit", "Uninitialized handle.");
  const char invalid[] = "Invalid arguments.";
  expect_error(task_.process(nullptr, image.data(), &results_, -1), task_.process_name, invalid);
  expect_error(task_.process(handle, nullptr, &results_, -1), task_.process_name, invalid);
  for (int null = 0; null < task_.result_count; ++null) {
    expect_error(task_.process(handle, image.data(), &results_, null), task_.process_name, invalid);
  }
  EXPECT_EQ(std::memcmp(&results_, &untouched_, sizeof(results_)), 0);
}

TEST_P(EachPictureTask, FailuresLeaveTheResultsAlone) {
  expect_failure(expected_shape(0, 0, 0, 0));  // not initialised
  ASSERT_EQ(task_.init(handle), 0);
  runtime.fail_next_run = 7;
  expect_failure("Inference fail: 7");  // the engine's line, and none of the task's
  task_.deinit(handle);

  runtime.input_shape[2] = 4 - runtime.input_shape[2];  // grey for colour and colour for grey
  ASSERT_EQ(task_.init(handle), 0);
  const std::vector<int>& s = runtime.input_shape;
  expect_failure(expected_shape(1, s[1], s[0], s[2]));
}

TEST_P(EachPictureTask, RefusesANetworkWithTooLittleOutput) {
  for (size_t i = 0; i < outputs_.size(); ++i) {
    SCOPED_TRACE(i);
    auto less = outputs_;
    less[i].pop_back();
    play(less);
    ASSERT_EQ(task_.init(handle), 0);
    printed();
    expect_error(process(), task_.process_name, complaint(i));
    task_.deinit(handle);
  }
  outputs_.pop_back();
  play(outputs_);
  ASSERT_EQ(task_.init(handle), 0);
  expect_failure(complaint(outputs_.size()));
}

// ----- Face landmarks ----------------------------------------------------------------------------

class FaceLandmarks : public PictureTest {
 protected:
  FaceLandmarks() {
    runtime.input_shape = {112, 112, 1};
    play({{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, {-1, -2, -3}});
    kel_nn_facelm_init(handle);
  }
};

TEST_F(FaceLandmarks, AreTheNetworksValuesAndNoMore) {
  float landmarks[11], pose[4];
  landmarks[10] = pose[3] = 99;
  ASSERT_EQ(kel_nn_facelm_process(handle, image.data(), landmarks, pose), 0);
  EXPECT_THAT(landmarks, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 99));
  EXPECT_THAT(pose, ElementsAre(-1, -2, -3, 99));
  play({std::vector<float>(10, 5), {6, 6, 6}});
  EXPECT_EQ(kel_nn_facelm_process(handle, image.data(), landmarks, nullptr), 0);  // left out
  EXPECT_THAT(landmarks, ElementsAre(5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 99));
}

TEST_F(FaceLandmarks, FitAnyAddress) {
  char packed[1 + sizeof(float) * 13];
  float* const at_odd_address = reinterpret_cast<float*>(packed + 1);
  float* const pose_behind = reinterpret_cast<float*>(packed + 1 + sizeof(float) * 10);
  ASSERT_EQ(kel_nn_facelm_process(handle, image.data(), at_odd_address, pose_behind), 0);
  float values[13];
  std::memcpy(values, packed + 1, sizeof(values));
  EXPECT_THAT(values, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, -1, -2, -3));
}

// ----- Face features -----------------------------------------------------------------------------

TEST_F(PictureTest, FaceFeaturesAreTheFirstOutputAtUnitLength) {
  std::vector<float> raw(256);
  std::iota(raw.begin(), raw.end(), -100.0f);
  runtime.input_shape = {112, 112, 1};
  play({raw});
  ASSERT_EQ(kel_nn_facercg_init(handle), 0);
  kel_nn_feature_t first = {nullptr, 0}, second = {nullptr, 0};
  ASSERT_EQ(kel_nn_face_feature_extract(handle, image.data(), &first), 0);
  EXPECT_EQ(first.len, 256u);
  float sum_of_squares = 0.0f;
  for (float value : raw) sum_of_squares += value * value;
  for (int i = 0; i < 256; ++i) {
    ASSERT_EQ(first.data[i], raw[i] / std::sqrt(sum_of_squares)) << i;
  }
  // The next extraction overwrites the values.
  play({std::vector<float>(256, -1.0f)});
  ASSERT_EQ(kel_nn_face_feature_extract(handle, image.data(), &second), 0);
  EXPECT_EQ(first.data, second.data);
  EXPECT_FLOAT_EQ(kel_nn_face_feature_similarity_calcul(&first, &second), 1.0f);
}

TEST(Similarity, IsTheInnerProductOverTheFirstRecordsLength) {
  float a[] = {1.0f, 2.0f, 3.0f}, b[] = {4.0f, -5.0f, 6.0f};
  const kel_nn_feature_t three = {a, 3}, two = {b, 2}, none = {a, 0}, null = {nullptr, 3};
  EXPECT_EQ(kel_nn_face_feature_similarity_calcul(&three, &two), 4.0f - 10.0f + 18.0f);
  EXPECT_EQ(kel_nn_face_feature_similarity_calcul(&two, &three), 4.0f - 10.0f);
  EXPECT_EQ(kel_nn_face_feature_similarity_calcul(&none, &two), 0.0f);
  EXPECT_EQ(kel_nn_face_feature_similarity_calcul(&three, &null), 0.0f);
}

// ----- Classes -----------------------------------------------------------------------------------

TEST_F(PictureTest, TheFaceClassIsTheFirstOfTheLargestOutputs) {
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
  runtime.input_shape = {112, 112, 1};
  play({{0, 0, 0}});
  ASSERT_EQ(kel_nn_face_classify_init(handle), 0);
  int class_id = 77;
  float score = 77;
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.outputs));
    play({c.outputs});
    ASSERT_EQ(kel_nn_face_classify_process(handle, image.data(), &class_id, &score), 0);
    EXPECT_EQ(class_id, c.class_id);
    EXPECT_EQ(score, 1.0f / (expf(-c.winner) + 1.0f));
    EXPECT_NEAR(score, c.score, 0.5e-4);
  }
  play({{NAN, 5, 6}});  // nothing is larger than NaN
  ASSERT_EQ(kel_nn_face_classify_process(handle, image.data(), &class_id, &score), 0);
  EXPECT_EQ(class_id, 0);
  EXPECT_TRUE(std::isnan(score));
}

TEST_F(PictureTest, ThePersonsScoreIsTheProbabilityOfTheFirstClass) {
  struct Case {
    float outputs[2], score;
  };
  const Case cases[] = {{{0, 0}, 0.5f}, {{2, 0}, 0.8808f}, {{0, 2}, 0.1192f}, {{0, 80}, 0}};
  runtime.input_shape = {112, 112, 3};
  play({{0, 0}});
  ASSERT_EQ(kel_nn_person_classify_init(handle), 0);
  float score = 77;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.score);
    play({{c.outputs[0], c.outputs[1]}});
    ASSERT_EQ(kel_nn_person_classify_process(handle, image.data(), &score), 0);
    EXPECT_EQ(score, expf(c.outputs[0]) / (expf(c.outputs[0]) + expf(c.outputs[1])));
    EXPECT_NEAR(score, c.score, 0.5e-4);
    // The graph's own output holds both probabilities.
    const float* both = static_cast<float*>(handle->graph_person_classify.outputs[0].buffer);
    EXPECT_EQ(both[0], score);
    EXPECT_NEAR(both[1], 1 - c.score, 0.5e-4);
  }
  play({{1000, 0}});  // the exponential overflows
  ASSERT_EQ(kel_nn_person_classify_process(handle, image.data(), &score), 0);
  EXPECT_TRUE(std::isnan(score));
}

}  // namespace
}  // namespace kelnn_test
