// The programs in examples/, run as a reader would run them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "kel_nn.h"
#include "support/run_command.h"

namespace {

namespace fs = std::filesystem;
using kelnn_test::CommandResult;
using kelnn_test::run_command;
using ::testing::HasSubstr;
using ::testing::Not;

const std::string kExamples = KEL_NN_TEST_EXAMPLES "/";
const std::string kNetworks = KEL_NN_TEST_NETWORKS "/";
const cv::Scalar kRed(0, 0, 255), kGreen(0, 255, 0), kGrey(90, 90, 90);

class Examples : public ::testing::Test {
 protected:
  Examples() {
    char path[] = "/tmp/kelnn_test_XXXXXX";
    if (!mkdtemp(path)) std::abort();
    directory_ = path;
  }
  ~Examples() override { fs::remove_all(directory_); }

  std::string save(const std::string& name, const cv::Mat& picture) {
    EXPECT_TRUE(cv::imwrite(directory_ / name, picture));
    return directory_ / name;
  }

  fs::path directory_;
};

// Twice the size of the networks' input, so that a cell of theirs is 32 pixels.
cv::Mat two_patches() {
  cv::Mat picture(128, 192, CV_8UC3, kGrey);
  cv::rectangle(picture, {64, 32, 32, 32}, kRed, cv::FILLED);     // column 2, row 1
  cv::rectangle(picture, {160, 64, 32, 32}, kGreen, cv::FILLED);  // column 5, row 2
  return picture;
}

TEST_F(Examples, OwnDetectorDecodesBothKindsOfMaps) {
  const std::string picture = save("patches.ppm", two_patches());
  const CommandResult yolov3 =
      run_command({kExamples + "own_detector", kNetworks + "yolov3_map.onnx", picture, "yolov3"});
  EXPECT_EQ(yolov3.exit_code, 0) << yolov3.err;
  EXPECT_THAT(yolov3.out, HasSubstr("first two overlap by 0\n"));
  EXPECT_THAT(yolov3.out, HasSubstr("box 1.00 class 0 at 80.0 48.0 size 64.0 32.0\n"));
  EXPECT_THAT(yolov3.out, HasSubstr("box 1.00 class 1 at 176.0 80.0 size 64.0 32.0\n"));

  const CommandResult centernet = run_command(
      {kExamples + "own_detector", kNetworks + "centernet_map.onnx", picture, "centernet"});
  EXPECT_EQ(centernet.exit_code, 0) << centernet.err;
  EXPECT_THAT(centernet.out, HasSubstr("box 1.00 class 0 at 80.0 64.0 size 64.0 96.0\n"));
  // Cut off at the right and bottom edge: from 144 to 192, from 48 to 128.
  EXPECT_THAT(centernet.out, HasSubstr("box 1.00 class 1 at 168.0 88.0 size 48.0 80.0\n"));

  const CommandResult wrong = run_command(
      {kExamples + "own_detector", kNetworks + "centernet_map.onnx", picture, "yolov3"});
  EXPECT_EQ(wrong.exit_code, 0);
  EXPECT_THAT(wrong.out, Not(HasSubstr("\nbox ")));
}

TEST_F(Examples, DetectPersonsPrintsBoxesInThePicture) {
  const std::string models = directory_ / "models/";
  const CommandResult packed =
      kelnn_test::run_kelnn({"pack", "person-detection-landscape",
                             kNetworks + "persons_landscape.onnx", "--root", models});
  ASSERT_EQ(packed.exit_code, 0) << packed.err;
  cv::Mat frame(256, 416, CV_8UC3, kGrey);
  cv::rectangle(frame, {96, 80, 32, 64}, kRed, cv::FILLED);
  const std::string picture = save("person.ppm", frame);
  for (const char* program : {"detect_persons", "persons"}) {
    SCOPED_TRACE(program);
    const CommandResult found = run_command({kExamples + program, models, picture});
    EXPECT_EQ(found.exit_code, 0) << found.err;
    EXPECT_THAT(found.out, HasSubstr("1.00 96 80 32 64\n"));
    const CommandResult none = run_command({kExamples + program, models, directory_ / "no.ppm"});
    EXPECT_EQ(none.exit_code, 1);
    EXPECT_THAT(none.err, HasSubstr("no.ppm: no binary PPM"));
    EXPECT_EQ(run_command({kExamples + program, directory_ / "none/", picture}).exit_code, 1);
  }
}

TEST_F(Examples, OwnNetworkShowsItsValues) {
  // 0.05 (red - 128) and 0.05 (blue - 128).
  const std::string picture = save("plain.ppm", cv::Mat(40, 30, CV_8UC3, cv::Scalar(188, 0, 208)));
  const CommandResult named = run_command(
      {kExamples + "own_network", kNetworks + "person_classes.onnx", picture, "scores"});
  EXPECT_EQ(named.exit_code, 0) << named.err;
  EXPECT_THAT(named.out, HasSubstr("length 5\n"));
  EXPECT_THAT(named.out,
              HasSubstr("0 value 4 sigmoid 0.982014 softmax 0.731059 part 0.571429 unit 0.8\n"));
  EXPECT_THAT(named.out,
              HasSubstr("1 value 3 sigmoid 0.952574 softmax 0.268941 part 0.428571 unit 0.6\n"));
  EXPECT_THAT(named.out, HasSubstr("kel_nne_graph_get_output_tensor_with_name"));
  EXPECT_EQ(run_command({kExamples + "own_network", kNetworks + "none.onnx", picture}).exit_code,
            1);
}

TEST_F(Examples, ResizedFramesAreTheLibrarysOwn) {
  std::string frame(64 * 48 * 3 / 2, '\0'), expected(40 * 30 * 3 / 2, '\0');
  for (size_t i = 0; i < frame.size(); ++i) frame[i] = static_cast<char>(i * i % 251);
  const auto* source = reinterpret_cast<const uint8_t*>(frame.data());
  kel_nn_pixel_resize_bilinear_nv12(source, 64, 48, reinterpret_cast<uint8_t*>(&expected[0]), 40,
                                    30);
  const std::string resize = kExamples + "resize_frame";
  EXPECT_EQ(run_command({resize, "nv12", "64", "48", "40", "30"}, frame).out, expected);

  expected.assign(16 * 20 * 4, '\0');  // the same bytes as 32 x 36 pixels of 4 channels
  kel_nn_pixel_resize_bilinear(source, 32, 36, reinterpret_cast<uint8_t*>(&expected[0]), 16, 20, 4);
  EXPECT_EQ(run_command({resize, "4", "32", "36", "16", "20"}, frame).out, expected);

  EXPECT_EQ(run_command({resize, "3", "64", "48", "16", "20"}, frame).exit_code, 1);  // too short
  EXPECT_EQ(run_command({resize, "5", "64", "48", "16", "20"}, frame).exit_code, 2);
}

TEST_F(Examples, SoundStepsAgreeWithTheWholeFrontEnd) {
  const CommandResult result = run_command({kExamples + "sound_steps", "2500"});
  EXPECT_EQ(result.exit_code, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("strongest bin at 2500.00 Hz"));
  EXPECT_THAT(result.out, HasSubstr("0 of 19008 bytes differ"));
}

}  // namespace
