// SPDX-License-Identifier: Apache-2.0
// The programs in examples/, run as a reader would run them.

#include "kel_nn.h"
#include "support/command_test.h"

namespace {

using namespace kelnn_test;

class Examples : public CommandTest {
 protected:
  struct Case {
    std::vector<std::string> command;
    std::vector<std::string> printed;
  };
  void expect_prints(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
      SCOPED_TRACE(testing::PrintToString(c.command));
      std::vector<std::string> command = c.command;
      command[0] = KEL_NN_TEST_EXAMPLES "/" + command[0];
      const CommandResult result = run(command);
      EXPECT_EQ(result.exit_code, 0) << result.err;
      for (const std::string& text : c.printed) EXPECT_THAT(result.out, HasSubstr(text));
    }
  }
};

TEST_F(Examples, PrintWhatIsInThePicture) {
  // Twice the size of the networks' input, so that a cell of theirs is 32 pixels.
  cv::Mat patches(128, 192, CV_8UC3, kGrey);
  cv::rectangle(patches, {64, 32, 32, 32}, kRed, cv::FILLED);     // column 2, row 1
  cv::rectangle(patches, {160, 64, 32, 32}, kGreen, cv::FILLED);  // column 5, row 2
  save("patches.ppm", patches);
  cv::Mat person = grey_frame({416, 256});
  cv::rectangle(person, {96, 80, 32, 64}, kRed, cv::FILLED);
  save("person.ppm", person);
  save("plain.ppm", cv::Mat(40, 30, CV_8UC3, cv::Scalar(188, 0, 208)));
  expect_prints({
      {{"own_detector", kNetworks + "yolov3_map.onnx", "patches.ppm", "yolov3"},
       {"first two overlap by 0\n", "box 1.00 class 0 at 80.0 48.0 size 64.0 32.0\n",
        "box 1.00 class 1 at 176.0 80.0 size 64.0 32.0\n"}},
      // Cut off at the right and bottom edge: from 144 to 192, from 48 to 128.
      {{"own_detector", kNetworks + "centernet_map.onnx", "patches.ppm", "centernet"},
       {"box 1.00 class 0 at 80.0 64.0 size 64.0 96.0\n",
        "box 1.00 class 1 at 168.0 88.0 size 48.0 80.0\n"}},
      {{"detect_persons", "models/", "person.ppm"}, {"1.00 96 80 32 64\n"}},
      {{"persons", "models/", "person.ppm"}, {"1.00 96 80 32 64\n"}},
      // 0.05 (red - 128) and 0.05 (blue - 128).
      {{"own_network", kNetworks + "person_classes.onnx", "plain.ppm", "scores"},
       {"length 5\n", "0 value 4 sigmoid 0.982014 softmax 0.731059 part 0.571429 unit 0.8\n",
        "1 value 3 sigmoid 0.952574 softmax 0.268941 part 0.428571 unit 0.6\n",
        "kel_nne_graph_get_output_tensor_with_name"}},
      {{"sound_steps", "2500"}, {"strongest bin at 2500.00 Hz", "0 of 19008 bytes differ"}},
  });
  const std::string examples = KEL_NN_TEST_EXAMPLES "/";
  EXPECT_THAT(
      run({examples + "own_detector", kNetworks + "centernet_map.onnx", "patches.ppm", "yolov3"})
          .out,
      Not(HasSubstr("\nbox ")));
  EXPECT_EQ(run({examples + "own_network", "none.onnx", "plain.ppm"}).exit_code, 1);
  for (const std::string program : {"detect_persons", "persons"}) {
    const CommandResult no_picture = run({examples + program, "models/", "no.ppm"});
    EXPECT_EQ(no_picture.exit_code, 1);
    EXPECT_THAT(no_picture.err, HasSubstr("no.ppm: no binary PPM"));
    EXPECT_EQ(run({examples + program, "none/", "person.ppm"}).exit_code, 1);
  }
}

TEST_F(Examples, ResizedFramesAreTheLibrarysOwn) {
  std::string frame(64 * 48 * 3 / 2, '\0'), nv12(40 * 30 * 3 / 2, '\0'), four(16 * 20 * 4, '\0');
  for (size_t i = 0; i < frame.size(); ++i) frame[i] = static_cast<char>(i * i % 251);
  const auto bytes = [](std::string& text) { return reinterpret_cast<uint8_t*>(text.data()); };
  kel_nn_pixel_resize_bilinear_nv12(bytes(frame), 64, 48, bytes(nv12), 40, 30);
  // The same bytes as 32 x 36 pixels of 4 channels.
  kel_nn_pixel_resize_bilinear(bytes(frame), 32, 36, bytes(four), 16, 20, 4);
  const std::string resize = KEL_NN_TEST_EXAMPLES "/resize_frame";
  EXPECT_EQ(run({resize, "nv12", "64", "48", "40", "30"}, frame).out, nv12);
  EXPECT_EQ(run({resize, "4", "32", "36", "16", "20"}, frame).out, four);
  EXPECT_EQ(run({resize, "3", "64", "48", "16", "20"}, frame).exit_code, 1);  // too short
  EXPECT_EQ(run({resize, "5", "64", "48", "16", "20"}, frame).exit_code, 2);
}

}  // namespace
