// SPDX-License-Identifier: Apache-2.0
// What all tasks with a network have in common, then those that only pass its values on: landmarks, features, classes.
#include <numeric>
#include <ostream>

#include "kel_nn_model_files.h"
#include "support/library_test.h"

namespace kelnn_test {
namespace {

using namespace ::testing;

// ----- Every task --------------------------------------------------------------------------------

// What a task writes. Compared byte by byte, so it is filled before.
struct Written {
  kel_nn_facedet_result_t faces;
  kel_nn_det_result_t boxes;
  kel_nn_feature_t feature;
  float landmarks[10], pose[3], score;
  int class_id;

  Written() { std::memset(static_cast<void*>(this), 0x77, sizeof(*this)); }
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

using Handle = kel_nn_handle_t;

struct Task {
  // What is said when output `i` is a value short.
  std::string too_small(int i) const {
    const auto text = [](int number) { return std::to_string(number); };
    if (failure == 1) return "The outputs are smaller than the grids.";
    if (outputs.size() < 8) {
      return "Output " + text(i) + " has fewer than " + text(outputs[i]) + " values.";
    }
    return "Outputs " + text(i & ~1) + " and " + text(i | 1) + " are too small for " +
           text(outputs[i & ~1] / 2) + " anchors.";
  }

  const char *name, *process_name;  // without "kel_nn_"
  const char *source, *model;
  int (*init)(Handle);
  int (*deinit)(Handle);
  int (*process)(Handle, const Arguments&, Written*);
  int argument_count;
  std::vector<int> input, outputs;  // width, height, channels; values of each output
  int failure = -1;
};

std::ostream& operator<<(std::ostream& out, const Task& task) { return out << task.name; }

const void* const kPixels = kPicture.data();

template <int (*function)(Handle, int, int), int width, int height>
int init_with_frame(Handle h) {
  return function(h, width, height);
}
template <decltype(kel_nn_persondet_process)* function>
int grid(Handle h, const Arguments& a, Written* r) {
  return function(h, a(0, kPixels), a(1, &r->boxes), a(2, &kFrame), a(3, &kWide));
}
int faces(Handle h, const Arguments& a, Written* r) {
  return kel_nn_facedet_process(h, a(0, kPicture.data()), a(1, &r->faces));
}
int face_feature(Handle h, const Arguments& a, Written* r) {
  return kel_nn_face_feature_extract(h, a(0, kPixels), a(1, &r->feature));
}
int landmarks(Handle h, const Arguments& a, Written* r) {
  return kel_nn_facelm_process(h, a(0, kPixels), a(1, r->landmarks), r->pose);
}
int face_class(Handle h, const Arguments& a, Written* r) {
  return kel_nn_face_classify_process(h, a(0, kPixels), a(1, &r->class_id), a(2, &r->score));
}
int person_class(Handle h, const Arguments& a, Written* r) {
  return kel_nn_person_classify_process(h, a(0, kPixels), a(1, &r->score));
}
int cry(Handle h, const Arguments& a, Written* r) {
  return kel_nn_crydet_process(h, a(0, kLoud.data()), 48000, a(1, &r->score));
}
int init_cry(Handle h) { return kel_nn_crydet_init(h, 16000, 0); }

using Counts = std::vector<int>;
const Task kTasks[] = {
    Task{"facedet", "facedet_process", "plat/jzt31/kel_nn_ultraface.cpp",
         kelnn::kFaceDetectionModel, init_with_frame<kel_nn_facedet_init, 640, 480>,
         kel_nn_facedet_deinit, faces, 2, Counts{320, 240, 3},
         Counts{7200, 14400, 1200, 2400, 320, 640, 120, 240}},
    Task{"persondet", "persondet_process", "plat/jzt31/kel_nn_persondet.cpp",
         kelnn::kPersonDetectionLandscapeModel, init_with_frame<kel_nn_persondet_init, 640, 360>,
         kel_nn_persondet_deinit, grid<kel_nn_persondet_process>, 4, Counts{416, 256, 3},
         Counts{8 * 13 * 18, 16 * 26 * 18}, 1},
    Task{"4clsdet", "4clsdet_process", "plat/jzt31/kel_nn_4cls_det.cpp",
         kelnn::kFourClassLandscapeModel, init_with_frame<kel_nn_4clsdet_init, 640, 360>,
         kel_nn_4clsdet_deinit, grid<kel_nn_4clsdet_process>, 4, Counts{416, 256, 3},
         Counts{8 * 13 * 27, 16 * 26 * 27}, 1},
    Task{"facercg", "face_feature_extract", "src/kel_nn_facercg.cpp", kelnn::kFaceFeatureModel,
         kel_nn_facercg_init, kel_nn_facercg_deinit, face_feature, 2, Counts{112, 112, 1},
         Counts{256}},
    Task{"facelm", "facelm_process", "plat/jzt31/kel_nn_pfld.cpp", kelnn::kFaceLandmarksModel,
         kel_nn_facelm_init, kel_nn_facelm_deinit, landmarks, 2, Counts{112, 112, 1},
         Counts{10, 3}},
    Task{"face_classify", "face_classify_process", "src/kel_nn_face_classify.cpp",
         kelnn::kFaceClassifyModel, kel_nn_face_classify_init, kel_nn_face_classify_deinit,
         face_class, 3, Counts{112, 112, 1}, Counts{3}},
    Task{"person_classify", "person_classify_process", "src/kel_nn_person_classify.cpp",
         kelnn::kPersonClassifyModel, kel_nn_person_classify_init, kel_nn_person_classify_deinit,
         person_class, 2, Counts{112, 112, 3}, Counts{2}},
    Task{"crydet", "crydet_process", "src/kel_nn_crydet.cpp", kelnn::kCryDetectionModel, init_cry,
         kel_nn_crydet_deinit, cry, 2, Counts{64, 297, 1}, Counts{2}},
};

class NetworkTask : public TaskTest, public WithParamInterface<Task> {
 protected:
  NetworkTask() { play(-1); }
  ~NetworkTask() override { task.deinit(handle); }

  // Outputs of the task's sizes, all zero; the given one is short of a value.
  void play(int too_small) {
    std::vector<std::vector<float>> outputs;
    for (int size : task.outputs) {
      outputs.emplace_back(static_cast<int>(outputs.size()) == too_small ? size - 1 : size);
    }
    runtime.play(task.input, outputs);
  }
  void init() {
    ASSERT_EQ(task.init(handle), 0);
    printed();
  }
  void expect_error(const std::string& function, const std::string& message) {
    TaskTest::expect_error(task.source, "kel_nn_" + function, message);
  }
  // Fails and leaves the results alone.
  void expect_failure(int code, int null = -1) {
    const Written untouched;
    Written results;
    EXPECT_EQ(task.process(handle, {null}, &results), code);
    EXPECT_EQ(std::memcmp(&results, &untouched, sizeof(results)), 0);
  }
  // Loads, runs three times, releases.
  bool live() {
    bool works = task.init(handle) == 0;
    for (int call = 0; works && call < 3; ++call) {
      Written results;
      works = task.process(handle, {-1}, &results) == 0;
    }
    task.deinit(handle);
    return works;
  }
  void expect_nothing_left() {
    EXPECT_EQ(live_blocks(), live_before_ + 1);  // the handle
    EXPECT_EQ(runtime.networks_alive, 0);
  }
  const Task& task = GetParam();
};

INSTANTIATE_TEST_SUITE_P(, NetworkTask, ValuesIn(kTasks),
                         [](const auto& info) { return std::string("Of_") + info.param.name; });

TEST_P(NetworkTask, LoadsItsScrambledModelOnceAndReleasesIt) {
  EXPECT_EQ(task.deinit(handle), 0);  // of what is not initialised: nothing to do
  EXPECT_EQ(printed(), "");
  ASSERT_EQ(task.init(handle), 0);
  EXPECT_EQ(runtime.loaded_from_memory, 1);
  EXPECT_EQ(printed_messages()[0], "[Info] model: " + models.with_slash() + task.model);
  Written results;
  EXPECT_EQ(task.process(handle, {-1}, &results), 0);
  EXPECT_EQ(printed(), "");
  const bool is_picture = task.input[0] != 64;
  EXPECT_THAT(runtime.last_input, Conditional(is_picture, Each(130 - 128), testing::_));
  EXPECT_EQ(task.init(handle), -1);
  EXPECT_EQ(printed_messages().back(), "[Error]Graph has already been initialized.");
  EXPECT_EQ(task.deinit(handle), 0);
  EXPECT_EQ(runtime.networks_alive, 0);
}

TEST_P(NetworkTask, RefusesNullsUnderTheNameOfTheCall) {
  EXPECT_EQ(task.init(nullptr), -1);
  expect_error(task.name + std::string("_init"), "Uninitialized handle.");
  EXPECT_EQ(task.deinit(nullptr), -1);
  expect_error(task.name + std::string("_deinit"), "Uninitialized handle.");
  init();
  Written results;
  EXPECT_EQ(task.process(nullptr, {-1}, &results), -1);
  expect_error(task.process_name, "Invalid arguments.");
  for (int null = 0; null < task.argument_count; ++null) {
    expect_failure(-1, null);
    expect_error(task.process_name, "Invalid arguments.");
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
    expect_error(task.process_name, task.too_small(static_cast<int>(i)));
  }
  task.deinit(handle);
  play(-1);
  ++runtime.input_shape[1];
  init();
  expect_failure(task.failure);
  EXPECT_THAT(printed_messages()[0],
              StartsWith("[Error]JZ T31 not allowed input dynamic shape, expect: [1, " +
                         std::to_string(task.input[1] + 1)));
}

// Whichever allocation is refused in a life, nothing is left of it, and the next one is whole.
TEST_P(NetworkTask, LivesOnAfterEveryAllocationThatIsRefused) {
  bool was_refused = true;
  for (int refused = 1; was_refused; ++refused) {
    SCOPED_TRACE(refused);
    const long count_before = allocation_count();
    bool works;
    {
      const NoMemory one(refused, refused);
      works = live();
      was_refused = allocation_count() - count_before >= refused;
    }
    const std::vector<std::string> said = printed_messages();
    EXPECT_TRUE(works || (was_refused && Value(said, Contains(StartsWith("[Error]")))));
    expect_nothing_left();
    EXPECT_TRUE(live());
    printed();
    ASSERT_LT(refused, 100);
  }
}

// So it is with whatever the runtime does, from the beginning or from the first call on.
TEST_P(NetworkTask, LivesOnAfterEveryFaultOfTheRuntime) {
  const struct {
    const char* name;
    void (*happens)(ScriptedRuntime* runtime);
  } kFaults[] = {
      {"no network", [](ScriptedRuntime* r) { r->fail_create = true; }},
      {"refuses the model", [](ScriptedRuntime* r) { r->fail_next_load = 3; }},
      {"refuses the image", [](ScriptedRuntime* r) { r->fail_next_input = 3; }},
      {"fails to run", [](ScriptedRuntime* r) { r->fail_next_run = -3; }},
      {"fails always", [](ScriptedRuntime* r) { r->fail_dry_run = true; }},
      {"no shape", [](ScriptedRuntime* r) { r->input_shape = {}; }},
      {"a negative shape",
       [](ScriptedRuntime* r) {
         r->input_shape = {-416, -256, 3};
       }},
      {"another shape",
       [](ScriptedRuntime* r) {
         r->input_shape = {8, 8, 1};
       }},
      {"a shape beyond memory",
       [](ScriptedRuntime* r) {
         r->input_shape = {99999, 99999, 3};
       }},
      {"a shape beyond numbers", [](ScriptedRuntime* r) { r->input_shape.assign(3, INT_MAX); }},
      {"no output", [](ScriptedRuntime* r) { r->output = {}; }},
      {"an output less", [](ScriptedRuntime* r) { --r->output.back(); }},
      {"outputs without end", [](ScriptedRuntime* r) { r->output.back() = INFINITY; }},
      {"an output of another shape", [](ScriptedRuntime* r) { r->play(r->input_shape, {{1}}); }},
      {"values without data", [](ScriptedRuntime* r) { r->gives = Matrix::kWithoutData; }},
      {"a negative number of them", [](ScriptedRuntime* r) { r->gives = Matrix::kNegative; }},
      {"values at an odd address", [](ScriptedRuntime* r) { r->gives = Matrix::kMisaligned; }},
#ifndef KEL_NN_WITHOUT_UNWIND_TABLES  // the program ends
      {"throws", [](ScriptedRuntime* r) { r->throws = Call::kCreate; }},
      {"throws when it loads", [](ScriptedRuntime* r) { r->throws = Call::kLoad; }},
      {"throws for the shape", [](ScriptedRuntime* r) { r->throws = Call::kInputShape; }},
      {"throws at an image", [](ScriptedRuntime* r) { r->throws = Call::kInput; }},
      {"throws when it runs", [](ScriptedRuntime* r) { r->throws = Call::kRun; }},
#endif
  };
  for (const bool is_late : {false, true}) {
    for (const auto& fault : kFaults) {
      SCOPED_TRACE(fault.name + std::string(is_late ? ", late" : ""));
      if (is_late) init();
      fault.happens(&runtime);
      // Thrown in the dry run, these would leave its image behind.
      const bool is_in_run = runtime.throws == Call::kInput || runtime.throws == Call::kRun;
      if (!is_late && is_in_run) runtime.throws = Call::kNone;
      try {
        Written results;
        if (is_late || task.init(handle) == 0) task.process(handle, {-1}, &results);
      } catch (const std::bad_alloc&) {
        EXPECT_NE(runtime.throws, Call::kNone);
      }
      task.deinit(handle);
      expect_nothing_left();
      runtime = ScriptedRuntime();
      play(-1);
      EXPECT_TRUE(live());
    }
  }
}

// ----- Landmarks, features, classes --------------------------------------------------------------

class FaceTasks : public TaskTest {
 protected:
  ~FaceTasks() override {
    kel_nn_facelm_deinit(handle);
    kel_nn_facercg_deinit(handle);
    kel_nn_face_classify_deinit(handle);
    kel_nn_person_classify_deinit(handle);
  }
  void play(const std::vector<std::vector<float>>& outputs) {
    runtime.play({112, 112, 1}, outputs);
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
  const struct {
    std::vector<float> outputs;
    int class_id;
    float winner, score;
  } cases[] = {
      {{2, 2, 1}, 0, 2, 0.8808f},  {{-1, -3, -0.5f}, 2, -0.5f, 0.3775f},
      {{0, 0, 0}, 0, 0, 0.5f},     {{1, 2, 2}, 1, 2, 0.8808f},
      {{1, 3, 2}, 1, 3, 0.9526f},  {{-200, -200, -200}, 0, -200, 0},
      {{0, NAN, NAN}, 0, 0, 0.5f}, {{0, NAN, 1}, 2, 1, 0.7311f},
      {{NAN, 5, 6}, 0, NAN, NAN},  // nothing is larger than NaN
  };
  play({{0, 0, 0}});
  ASSERT_EQ(kel_nn_face_classify_init(handle), 0);
  for (const auto& c : cases) {
    SCOPED_TRACE(PrintToString(c.outputs));
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
  const struct {
    float outputs[2], score;
  } cases[] = {{{0, 0}, 0.5f},
               {{2, 0}, 0.8808f},
               {{0, 2}, 0.1192f},
               {{0, 80}, 0.0f},
               {{1000, 0}, NAN}};  // the exponential overflows
  runtime.play({112, 112, 3}, {{0, 0}});
  ASSERT_EQ(kel_nn_person_classify_init(handle), 0);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.score);
    runtime.play({112, 112, 3}, {{c.outputs[0], c.outputs[1]}});
    float score = -1;
    ASSERT_EQ(kel_nn_person_classify_process(handle, image, &score), 0);
    const float both = expf(c.outputs[0]) + expf(c.outputs[1]);
    EXPECT_THAT(score, NanSensitiveFloatNear(expf(c.outputs[0]) / both, 0));
    EXPECT_THAT(score, NanSensitiveFloatNear(c.score, 0.5e-4f));
  }
}

}  // namespace
}  // namespace kelnn_test
