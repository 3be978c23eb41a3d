#include <cstring>

#include "support/library_test.h"

namespace kelnn_test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

constexpr char kSource[] = "plat/jzt31/kel_nn_pfld.cpp";

class FaceLandmarks : public TaskTest {
 protected:
  FaceLandmarks() {
    runtime.input_shape = {112, 112, 1};
    runtime.set_outputs({{{1, 1, 10}, points}, {{1, 1, 3}, angles}});
  }
  ~FaceLandmarks() override {
    kel_nn_facelm_deinit(handle);
    EXPECT_EQ(runtime.networks_alive, 0);
  }
  int process() { return kel_nn_facelm_process(handle, image.data(), landmarks, pose); }

  const std::vector<float> points = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, angles = {-1, -2, -3};
  const std::vector<uint8_t> image = std::vector<uint8_t>(112 * 112, 130);
  float landmarks[11] = {}, pose[4] = {};
};

TEST_F(FaceLandmarks, AreTheNetworksValuesAndNoMore) {
  ASSERT_EQ(kel_nn_facelm_init(handle), 0);
  EXPECT_NE(printed().find("YKtibxagiDHtsSWTT64yH3P1dbwwCznM9F5V92OWCB79rwN5ffzTcdrkTFV9SP8aolMUHL"
                           "pVT6AsYX.bin"),
            std::string::npos);
  landmarks[10] = pose[3] = 99;
  ASSERT_EQ(process(), 0);
  EXPECT_THAT(landmarks, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 99));
  EXPECT_THAT(pose, ElementsAre(-1, -2, -3, 99));
  EXPECT_THAT(runtime.last_input, Each(130 - 128));
  runtime.set_outputs({{{1, 1, 10}, std::vector<float>(10, 5)}, {{1, 1, 3}, {6, 6, 6}}});
  ASSERT_EQ(process(), 0);
  EXPECT_THAT(landmarks, ElementsAre(5, 5, 5, 5, 5, 5, 5, 5, 5, 5, 99));
  EXPECT_THAT(pose, ElementsAre(6, 6, 6, 99));
}

TEST_F(FaceLandmarks, FitAnyAddress) {
  ASSERT_EQ(kel_nn_facelm_init(handle), 0);
  char packed[1 + sizeof(float) * 13];
  float* const at_odd_address = reinterpret_cast<float*>(packed + 1);
  float* const pose_behind = reinterpret_cast<float*>(packed + 1 + sizeof(float) * 10);
  ASSERT_EQ(kel_nn_facelm_process(handle, image.data(), at_odd_address, pose_behind), 0);
  float values[13];
  std::memcpy(values, packed + 1, sizeof(values));
  EXPECT_THAT(values, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, -1, -2, -3));
}

TEST_F(FaceLandmarks, ThePoseMayBeLeftOut) {
  ASSERT_EQ(kel_nn_facelm_init(handle), 0);
  EXPECT_EQ(kel_nn_facelm_process(handle, image.data(), landmarks, nullptr), 0);
  EXPECT_EQ(landmarks[9], 10);
}

TEST_F(FaceLandmarks, RejectsNullArguments) {
  EXPECT_EQ(kel_nn_facelm_init(nullptr), -1);
  EXPECT_EQ(kel_nn_facelm_deinit(nullptr), -1);
  EXPECT_EQ(kel_nn_facelm_process(nullptr, image.data(), landmarks, pose), -1);
  EXPECT_EQ(kel_nn_facelm_process(handle, nullptr, landmarks, pose), -1);
  EXPECT_THAT(printed_messages(),
              ElementsAre("[Error]Uninitialized handle.", "[Error]Uninitialized handle.",
                          "[Error]Invalid arguments.", "[Error]Invalid arguments."));
  EXPECT_EQ(kel_nn_facelm_process(handle, image.data(), nullptr, pose), -1);
  EXPECT_THAT(printed(),
              IsLocatedLine("31", kSource, "kel_nn_facelm_process", "[Error]Invalid arguments."));
}

TEST_F(FaceLandmarks, AFailedRunLeavesTheArraysAlone) {
  EXPECT_EQ(process(), -1);  // not initialised
  ASSERT_EQ(kel_nn_facelm_init(handle), 0);
  printed();
  runtime.fail_next_run = 7;
  EXPECT_EQ(process(), -1);
  EXPECT_THAT(printed_messages(), ElementsAre("[Error]Inference fail: 7"));  // the engine's only
  EXPECT_THAT(landmarks, Each(0));
  EXPECT_THAT(pose, Each(0));
}

TEST_F(FaceLandmarks, ANetworkOfAnotherKindIsAnError) {
  const std::vector<float> nine(9, 1), two(2, 1);
  struct Case {
    const char* name;
    std::vector<int> input_shape;
    std::vector<Output> outputs;
    const char* message;
  };
  const Case cases[] = {
      {"colour",
       {112, 112, 3},
       {{{1, 1, 10}, points}, {{1, 1, 3}, angles}},
       "[Error]JZ T31 not allowed input dynamic shape, expect: [1, 112, 112, 3]"},
      {"nine values",
       {112, 112, 1},
       {{{1, 1, 9}, nine}, {{1, 1, 3}, angles}},
       "[Error]Output 0 has fewer than 10 values."},
      {"two angles",
       {112, 112, 1},
       {{{1, 1, 10}, points}, {{1, 1, 2}, two}},
       "[Error]Output 1 has fewer than 3 values."},
      {"no pose",
       {112, 112, 1},
       {{{1, 1, 10}, points}},
       "[Error]Output 1 has fewer than 3 values."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    runtime.input_shape = c.input_shape;
    runtime.set_outputs(c.outputs);
    ASSERT_EQ(kel_nn_facelm_init(handle), 0);
    printed();
    EXPECT_EQ(process(), -1);
    EXPECT_THAT(printed_messages(), ElementsAre(c.message));
    EXPECT_THAT(landmarks, Each(0));
    EXPECT_EQ(kel_nn_facelm_deinit(handle), 0);
  }
}

}  // namespace
}  // namespace kelnn_test
