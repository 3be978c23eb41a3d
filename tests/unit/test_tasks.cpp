// What all tasks with a network have in common, then the tasks that only pass a network's values on: landmarks,
// features, classes.
#include <cmath>
#include <cstring>
#include <numeric>
#include <ostream>
#include <vector>

#include "kel_nn_model_files.h"
#include "support/library_test.h"

namespace kelnn_test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::NanSensitiveFloatNear;

// ----- Every task --------------------------------------------------------------------------------

// What a task writes. Compared byte by byte, so it is filled before.
struct Results {
  kel_nn_facedet_result_t faces;
  kel_nn_det_result_t boxes;
  kel_nn_feature_t feature;
  float landmarks[10], pose[3], score;
  int class_id;

  Results() { std::memset(static_cast<void*>(this), 0x77, sizeof(*this)); }
};

// The arguments behind the handle are numbered from 0 on; the one numbered `null` is null.
struct Arguments {
  int null;
  template <typename T>
  T* operator()(int number, T* given) const {
    return number == null ? nullptr : given;
  }
};

const std::vector<uint8_t> kPicture(416 * 256 * 3, 130);
const std::vector<int16_t> kLoud(48000, 1000);
constexpr kel_nn_size_t kFrame = {640, 360}, kWide = {416, 256};

struct Task {
  const char *name, *process_name;  // without "kel_nn_"
  const char *source, *model;
  int (*init)(kel_nn_handle_t);
  int (*deinit)(kel_nn_handle_t);
  int (*process)(kel_nn_handle_t, const Arguments&, Results*);
  int argument_count;
  std::vector<int> input, outputs;     // width, height, channels; values of each output
  std::vector<const char*> too_small;  // what is said of a value less in an output, of all or each
  int failure;
};

std::ostream& operator<<(std::ostream& out, const Task& task) { return out << task.name; }

int process_grid(decltype(kel_nn_persondet_process)* process, kel_nn_handle_t handle,
                 const Arguments& a, Results* r) {
  return process(handle, a(0, kPicture.data()), a(1, &r->boxes), a(2, &kFrame), a(3, &kWide));
}

const Task kTasks[] = {
    {"facedet",
     "facedet_process",
     "plat/jzt31/kel_nn_ultraface.cpp",
     kelnn::kFaceDetectionModel,
     [](kel_nn_handle_t h) { return kel_nn_facedet_init(h, 640, 480); },
     kel_nn_facedet_deinit,
     [](kel_nn_handle_t h, const Arguments& a, Results* r) {
       return kel_nn_facedet_process(h, a(0, kPicture.data()), a(1, &r->faces));
     },
     2,
     {320, 240, 3},
     {7200, 14400, 1200, 2400, 320, 640, 120, 240},
     {"Outputs 0 and 1 are too small for 3600 anchors.",
      "Outputs 2 and 3 are too small for 600 anchors.",
      "Outputs 4 and 5 are too small for 160 anchors.",
      "Outputs 6 and 7 are too small for 60 anchors."},
     -1},
    {"persondet",
     "persondet_process",
     "plat/jzt31/kel_nn_persondet.cpp",
     kelnn::kPersonDetectionLandscapeModel,
     [](kel_nn_handle_t h) { return kel_nn_persondet_init(h, 640, 360); },
     kel_nn_persondet_deinit,
     [](kel_nn_handle_t h, const Arguments& a, Results* r) {
       return process_grid(kel_nn_persondet_process, h, a, r);
     },
     4,
     {416, 256, 3},
     {8 * 13 * 18, 16 * 26 * 18},
     {"The outputs are smaller than the grids."},
     1},
    {"4clsdet",
     "4clsdet_process",
     "plat/jzt31/kel_nn_4cls_det.cpp",
     kelnn::kFourClassLandscapeModel,
     [](kel_nn_handle_t h) { return kel_nn_4clsdet_init(h, 640, 360); },
     kel_nn_4clsdet_deinit,
     [](kel_nn_handle_t h, const Arguments& a, Results* r) {
       return process_grid(kel_nn_4clsdet_process, h, a, r);
     },
     4,
     {416, 256, 3},
     {8 * 13 * 27, 16 * 26 * 27},
     {"The outputs are smaller than the grids."},
     1},
    {"facercg",
     "face_feature_extract",
     "src/kel_nn_facercg.cpp",
     kelnn::kFaceFeatureModel,
     kel_nn_facercg_init,
     kel_nn_facercg_deinit,
     [](kel_nn_handle_t h, const Arguments& a, Results* r) {
       return kel_nn_face_feature_extract(h, a(0, kPicture.data()), a(1, &r->feature));
     },
     2,
     {112, 112, 1},
     {256},
     {"Output 0 has fewer than 256 values."},
     -1},
    {"facelm",
     "facelm_process",
     "plat/jzt31/kel_nn_pfld.cpp",
     kelnn::kFaceLandmarksModel,
     kel_nn_facelm_init,
     kel_nn_facelm_deinit,
     [](kel_nn_handle_t h, const Arguments& a, Results* r) {
       return kel_nn_facelm_process(h, a(0, kPicture.data()), a(1, r->landmarks), r->pose);
     },
     2,
     {112, 112, 1},
     {10, 3},
     {"Output 0 has fewer than 10 values.", "Output 1 has fewer than 3 values."},
     -1},
    {"face_classify",
     "face_classify_process",
     "src/kel_nn_face_classify.cpp",
     kelnn::kFaceClassifyModel,
     kel_nn_face_classify_init,
     kel_nn_face_classify_deinit,
     [](kel_nn_handle_t h, const Arguments& a, Results* r) {
       return kel_nn_face_classify_process(h, a(0, kPicture.data()), a(1, &r->class_id),
                                           a(2, &r->score));
     },
     3,
     {112, 112, 1},
     {3},
     {"Output 0 has fewer than 3 values."},
     -1},
    {"person_classify",
     "person_classify_process",
     "src/kel_nn_person_classify.cpp",
     kelnn::kPersonClassifyModel,
     kel_nn_person_classify_init,
     kel_nn_person_classify_deinit,
     [](kel_nn_handle_t h, const Arguments& a, Results* r) {
       return kel_nn_person_classify_process(h, a(0, kPicture.data()), a(1, &r->score));
     },
     2,
     {112, 112, 3},
     {2},
     {"Output 0 has fewer than 2 values."},
     -1},
    {"crydet",
     "crydet_process",
     "src/kel_nn_crydet.cpp",
     kelnn::kCryDetectionModel,
     [](kel_nn_handle_t h) { return kel_nn_crydet_init(h, 16000, 0); },
     kel_nn_crydet_deinit,
     [](kel_nn_handle_t h, const Arguments& a, Results* r) {
       return kel_nn_crydet_process(h, a(0, kLoud.data()), 48000, a(1, &r->score));
     },
     2,
     {64, 297, 1},
     {2},
     {"Output 0 has fewer than 2 values."},
     -1},
};

class NetworkTask : public TaskTest, public ::testing::WithParamInterface<Task> {
 protected:
  NetworkTask() { play(-1); }
  ~NetworkTask() override { task.deinit(handle); }

  // Outputs of the task's sizes, all zero; the given one is short of a value.
  void play(int too_small) {
    runtime.input_shape = task.input;
    std::vector<Output> outputs;
    for (int size : task.outputs) {
      if (static_cast<int>(outputs.size()) == too_small) --size;
      outputs.push_back({{1, 1, static_cast<float>(size)}, std::vector<float>(size)});
    }
    runtime.set_outputs(outputs);
  }
  void init() {
    ASSERT_EQ(task.init(handle), 0);
    printed();
  }
  auto IsError(const std::string& function, const std::string& message) {
    return IsLocatedLine("31", task.source, "kel_nn_" + function, "[Error]" + message);
  }
  // Fails and leaves the results alone.
  void expect_failure(int code, int null = -1) {
    const Results untouched;
    Results results;
    EXPECT_EQ(task.process(handle, {null}, &results), code);
    EXPECT_EQ(std::memcmp(&results, &untouched, sizeof(results)), 0);
  }
  const Task& task = GetParam();
};

INSTANTIATE_TEST_SUITE_P(, NetworkTask, ::testing::ValuesIn(kTasks),
                         [](const auto& info) { return std::string("Of_") + info.param.name; });

TEST_P(NetworkTask, LoadsItsScrambledModelOnceAndReleasesIt) {
  EXPECT_EQ(task.deinit(handle), 0);  // of what is not initialised: nothing to do
  EXPECT_EQ(printed(), "");
  ASSERT_EQ(task.init(handle), 0);
  EXPECT_EQ(runtime.loaded_from_memory, 1);
  EXPECT_EQ(printed_messages()[0], "[Info] model: " + models.with_slash() + task.model);
  Results results;
  EXPECT_EQ(task.process(handle, {-1}, &results), 0);
  EXPECT_EQ(printed(), "");
  const bool is_picture = task.input[0] != 64;
  EXPECT_THAT(runtime.last_input, testing::Conditional(is_picture, Each(130 - 128), testing::_));
  EXPECT_EQ(task.init(handle), -1);
  EXPECT_EQ(printed_messages().back(), "[Error]Graph has already been initialized.");
  EXPECT_EQ(task.deinit(handle), 0);
  EXPECT_EQ(runtime.networks_alive, 0);
}

TEST_P(NetworkTask, RefusesNullsUnderTheNameOfTheCall) {
  EXPECT_EQ(task.init(nullptr), -1);
  EXPECT_THAT(printed(), IsError(task.name + std::string("_init"), "Uninitialized handle."));
  EXPECT_EQ(task.deinit(nullptr), -1);
  EXPECT_THAT(printed(), IsError(task.name + std::string("_deinit"), "Uninitialized handle."));
  init();
  Results results;
  EXPECT_EQ(task.process(nullptr, {-1}, &results), -1);
  EXPECT_THAT(printed(), IsError(task.process_name, "Invalid arguments."));
  for (int null = 0; null < task.argument_count; ++null) {
    expect_failure(-1, null);
    EXPECT_THAT(printed(), IsError(task.process_name, "Invalid arguments."));
  }
}

TEST_P(NetworkTask, SaysWhyItFailsAndLeavesTheResultsAlone) {
  expect_failure(task.failure);  // not initialised
  init();
  runtime.fail_next_run = 7;
  expect_failure(task.failure);
  EXPECT_EQ(printed_messages()[0], "[Error]Inference fail: 7");
  for (size_t i = 0; i < task.outputs.size(); ++i) {
    task.deinit(handle);
    play(static_cast<int>(i));
    init();
    expect_failure(task.failure);
    const size_t text = i * task.too_small.size() / task.outputs.size();
    EXPECT_THAT(printed(), IsError(task.process_name, task.too_small[text]));
  }
  task.deinit(handle);
  play(-1);
  const std::vector<int>& s = task.input;
  runtime.input_shape = {s[0], s[1] + 1, s[2]};
  init();
  expect_failure(task.failure);
  const auto shown = [](int value) { return std::to_string(value); };
  EXPECT_EQ(printed_messages()[0], "[Error]JZ T31 not allowed input dynamic shape, expect: [1, " +
                                       shown(s[1] + 1) + ", " + shown(s[0]) + ", " + shown(s[2]) +
                                       "]");
}

// ----- Landmarks, features, classes --------------------------------------------------------------

class FaceTasks : public TaskTest {
 protected:
  FaceTasks() { runtime.input_shape = {112, 112, 1}; }
  ~FaceTasks() override {
    kel_nn_facelm_deinit(handle);
    kel_nn_facercg_deinit(handle);
    kel_nn_face_classify_deinit(handle);
    kel_nn_person_classify_deinit(handle);
  }
  void play(const std::vector<std::vector<float>>& outputs) {
    std::vector<Output> shaped;
    for (const auto& o : outputs) shaped.push_back({{1, 1, static_cast<float>(o.size())}, o});
    runtime.set_outputs(shaped);
  }
  const void* image = kPicture.data();
};

TEST_F(FaceTasks, LandmarksAreTheNetworksValuesAndNoMore) {
  const std::vector<float> points = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
  play({points, {-1, -2, -3}});
  ASSERT_EQ(kel_nn_facelm_init(handle), 0);
  float landmarks[11] = {}, pose[4] = {};
  landmarks[10] = pose[3] = 99;
  ASSERT_EQ(kel_nn_facelm_process(handle, image, landmarks, pose), 0);
  EXPECT_THAT(landmarks, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 99));
  EXPECT_THAT(pose, ElementsAre(-1, -2, -3, 99));
  play({std::vector<float>(10, 5), {6, 6, 6}});
  ASSERT_EQ(kel_nn_facelm_process(handle, image, landmarks, nullptr), 0);
  EXPECT_THAT(landmarks, ElementsAre(5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 99));

  char packed[1 + sizeof(float) * 13];  // at any address
  void *const odd = packed + 1, *const behind = packed + 1 + sizeof(float) * 10;
  ASSERT_EQ(
      kel_nn_facelm_process(handle, image, static_cast<float*>(odd), static_cast<float*>(behind)),
      0);
  float values[13];
  std::memcpy(values, odd, sizeof(values));
  EXPECT_THAT(values, ElementsAre(5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 6, 6, 6));
}

TEST_F(FaceTasks, FeaturesAreTheOutputAtUnitLengthUntilTheNextExtraction) {
  std::vector<float> raw(256);
  std::iota(raw.begin(), raw.end(), -100.0f);
  play({raw});
  ASSERT_EQ(kel_nn_facercg_init(handle), 0);
  kel_nn_feature_t feature = {}, second = {};
  ASSERT_EQ(kel_nn_face_feature_extract(handle, image, &feature), 0);
  ASSERT_EQ(feature.len, 256u);
  float sum_of_squares = 0.0f;
  for (float value : raw) sum_of_squares += value * value;
  for (int i = 0; i < 256; ++i) {
    ASSERT_EQ(feature.data[i], raw[i] / std::sqrt(sum_of_squares)) << i;
  }
  play({std::vector<float>(256, -1.0f)});
  ASSERT_EQ(kel_nn_face_feature_extract(handle, image, &second), 0);
  EXPECT_EQ(feature.data, second.data);
  EXPECT_FLOAT_EQ(kel_nn_face_feature_similarity_calcul(&feature, &second), 1.0f);
}

TEST(Similarity, IsTheInnerProductOverTheFirstRecordsLength) {
  float a[] = {1.0f, 2.0f, 3.0f}, b[] = {4.0f, -5.0f, 6.0f};
  const kel_nn_feature_t three = {a, 3}, two = {b, 2}, none = {a, 0}, null = {nullptr, 3};
  EXPECT_EQ(kel_nn_face_feature_similarity_calcul(&three, &two), 4.0f - 10.0f + 18.0f);
  EXPECT_EQ(kel_nn_face_feature_similarity_calcul(&two, &three), 4.0f - 10.0f);
  EXPECT_EQ(kel_nn_face_feature_similarity_calcul(&none, &two), 0.0f);
  EXPECT_EQ(kel_nn_face_feature_similarity_calcul(&three, &null), 0.0f);
}

TEST_F(FaceTasks, AFacesClassIsTheFirstOfTheLargestOutputs) {
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
      {{NAN, 5, 6}, 0, NAN, NAN},  // nothing is larger than NaN
  };
  play({{0, 0, 0}});
  ASSERT_EQ(kel_nn_face_classify_init(handle), 0);
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.outputs));
    play({c.outputs});
    int class_id = -1;
    float score = -1;
    ASSERT_EQ(kel_nn_face_classify_process(handle, image, &class_id, &score), 0);
    EXPECT_EQ(class_id, c.class_id);
    EXPECT_THAT(score, NanSensitiveFloatNear(1.0f / (expf(-c.winner) + 1.0f), 0));
    EXPECT_THAT(score, NanSensitiveFloatNear(c.score, 0.5e-4f));
  }
}

TEST_F(FaceTasks, APersonsScoreIsTheProbabilityOfTheFirstClass) {
  struct Case {
    float outputs[2], score;
  };
  const Case cases[] = {{{0, 0}, 0.5f},
                        {{2, 0}, 0.8808f},
                        {{0, 2}, 0.1192f},
                        {{0, 80}, 0.0f},
                        {{1000, 0}, NAN}};  // the exponential overflows
  runtime.input_shape = {112, 112, 3};
  play({{0, 0}});
  ASSERT_EQ(kel_nn_person_classify_init(handle), 0);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.score);
    play({{c.outputs[0], c.outputs[1]}});
    float score = -1;
    ASSERT_EQ(kel_nn_person_classify_process(handle, image, &score), 0);
    const float both = expf(c.outputs[0]) + expf(c.outputs[1]);
    EXPECT_THAT(score, NanSensitiveFloatNear(expf(c.outputs[0]) / both, 0));
    EXPECT_THAT(score, NanSensitiveFloatNear(c.score, 0.5e-4f));
  }
}

}  // namespace
}  // namespace kelnn_test
