// Face features over the scripted runtime, and their similarity.
#include <cmath>
#include <numeric>
#include <vector>

#include "kel_nn_handle.h"
#include "kel_nn_model_files.h"
#include "support/library_test.h"

namespace {

using kelnn_test::IsLocatedLine;
using kelnn_test::TaskTest;
using ::testing::Each;
using ::testing::ElementsAre;

constexpr char kPath[] = "src/kel_nn_facercg.cpp";

class FaceFeatures : public TaskTest {
 protected:
  FaceFeatures() {
    runtime.input_shape = {112, 112, 1};
    play(std::vector<float>(256, 2.0f));
  }
  ~FaceFeatures() override { kel_nn_facercg_deinit(handle); }
  void play(const std::vector<float>& values) {
    runtime.set_outputs({{{1, 1, static_cast<float>(values.size())}, values}});
  }
  void init() {
    ASSERT_EQ(kel_nn_facercg_init(handle), 0);
    printed();
  }
  std::vector<unsigned char> image_ = std::vector<unsigned char>(112 * 112, 200);
  kel_nn_feature_t feature_ = {nullptr, 0};
};

TEST_F(FaceFeatures, LoadsItsScrambledModelFromTheRootDirectory) {
  ASSERT_EQ(kel_nn_facercg_init(handle), 0);
  EXPECT_EQ(handle->graph_facercg.model_path, models.with_slash() + kelnn::kFaceFeatureModel);
  EXPECT_EQ(runtime.loaded_from_memory, 1);
}

TEST_F(FaceFeatures, AreTheFirstOutputAtUnitLength) {
  std::vector<float> raw(256);
  std::iota(raw.begin(), raw.end(), -100.0f);
  init();
  play(raw);
  ASSERT_EQ(kel_nn_face_feature_extract(handle, image_.data(), &feature_), 0);
  EXPECT_EQ(feature_.len, 256u);
  float sum_of_squares = 0.0f;
  for (float value : raw) sum_of_squares += value * value;
  for (int i = 0; i < 256; ++i) {
    ASSERT_EQ(feature_.data[i], raw[i] / std::sqrt(sum_of_squares)) << i;
  }
  EXPECT_THAT(runtime.last_input, Each(200 - 128));
  EXPECT_EQ(printed(), "");
}

TEST_F(FaceFeatures, TheNextExtractionOverwritesTheValues) {
  init();
  kel_nn_feature_t second = {nullptr, 0};
  ASSERT_EQ(kel_nn_face_feature_extract(handle, image_.data(), &feature_), 0);
  std::vector<float> opposite(256, -1.0f);
  play(opposite);
  ASSERT_EQ(kel_nn_face_feature_extract(handle, image_.data(), &second), 0);
  EXPECT_EQ(feature_.data, second.data);
  EXPECT_FLOAT_EQ(kel_nn_face_feature_similarity_calcul(&feature_, &second), 1.0f);
}

TEST_F(FaceFeatures, LeaveTheRecordAloneWhenTheyFail) {
  float mine = 0.0f;
  feature_ = {&mine, 7};
  EXPECT_EQ(kel_nn_face_feature_extract(nullptr, image_.data(), &feature_), -1);
  EXPECT_EQ(kel_nn_face_feature_extract(handle, nullptr, &feature_), -1);
  EXPECT_EQ(kel_nn_face_feature_extract(handle, image_.data(), nullptr), -1);
  EXPECT_THAT(printed_messages(),
              ElementsAre("[Error]Invalid arguments.", "[Error]Invalid arguments.",
                          "[Error]Invalid arguments."));
  // Not initialised: the graph has no shape yet.
  EXPECT_EQ(kel_nn_face_feature_extract(handle, image_.data(), &feature_), -1);
  EXPECT_THAT(printed_messages(), ElementsAre("[Error]JZ T31 not allowed input dynamic shape, "
                                              "expect: [0, 0, 0, 0]"));
  init();
  runtime.fail_next_run = 9;
  EXPECT_EQ(kel_nn_face_feature_extract(handle, image_.data(), &feature_), -1);
  EXPECT_THAT(printed_messages(), ElementsAre("[Error]Inference fail: 9"));
  EXPECT_EQ(feature_.data, &mine);
  EXPECT_EQ(feature_.len, 7u);
}

TEST_F(FaceFeatures, RefuseANetworkOfAnotherShape) {
  runtime.input_shape = {112, 112, 3};
  init();
  EXPECT_EQ(kel_nn_face_feature_extract(handle, image_.data(), &feature_), -1);
  EXPECT_THAT(printed_messages(), ElementsAre("[Error]JZ T31 not allowed input dynamic shape, "
                                              "expect: [1, 112, 112, 3]"));
  kel_nn_facercg_deinit(handle);

  runtime.input_shape = {112, 112, 1};
  play(std::vector<float>(255, 1.0f));
  init();
  EXPECT_EQ(kel_nn_face_feature_extract(handle, image_.data(), &feature_), -1);
  EXPECT_THAT(printed(), IsLocatedLine("31", kPath, "kel_nn_face_feature_extract",
                                       "[Error]Output 0 has fewer than 256 values."));
  EXPECT_EQ(feature_.data, nullptr);
}

TEST_F(FaceFeatures, NeedAHandleAndOneInitialisation) {
  EXPECT_EQ(kel_nn_facercg_init(nullptr), -1);
  EXPECT_THAT(printed(),
              IsLocatedLine("31", kPath, "kel_nn_facercg_init", "[Error]Uninitialized handle."));
  EXPECT_EQ(kel_nn_facercg_deinit(nullptr), -1);
  EXPECT_THAT(printed(),
              IsLocatedLine("31", kPath, "kel_nn_facercg_deinit", "[Error]Uninitialized handle."));
  init();
  EXPECT_EQ(kel_nn_facercg_init(handle), -1);
  EXPECT_THAT(printed_messages(), ElementsAre("[Error]Graph has already been initialized."));
  EXPECT_EQ(kel_nn_facercg_deinit(handle), 0);
  EXPECT_EQ(kel_nn_facercg_deinit(handle), 0);  // of what is not initialised: nothing to do
  EXPECT_EQ(printed(), "");
}

TEST(Similarity, IsTheInnerProductOverTheFirstRecordsLength) {
  float a[] = {1.0f, 2.0f, 3.0f}, b[] = {4.0f, -5.0f, 6.0f};
  const kel_nn_feature_t three = {a, 3}, two = {b, 2}, none = {a, 0}, null = {nullptr, 3};
  EXPECT_EQ(kel_nn_face_feature_similarity_calcul(&three, &two), 4.0f - 10.0f + 18.0f);
  EXPECT_EQ(kel_nn_face_feature_similarity_calcul(&two, &three), 4.0f - 10.0f);
  EXPECT_EQ(kel_nn_face_feature_similarity_calcul(&none, &two), 0.0f);
  EXPECT_EQ(kel_nn_face_feature_similarity_calcul(&three, &null), 0.0f);
}

}  // namespace
