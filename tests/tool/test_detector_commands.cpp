// SPDX-License-Identifier: Apache-2.0
// kelnn faces, persons and objects, from files to boxes, over real networks: those of
// make_test_networks.py, which find patches of pure colour.

#include "support/command_test.h"

namespace {

using namespace kelnn_test;

// Edges are whole pixels of the frame three times over: the letterbox's (half a pixel of frame or
// image), the patch's, and the box's own, whose size and corner are rounded down.
constexpr double kPixels = 3;
const cv::Size kVga(640, 360);

void expect_box(const Json& box, const cv::Rect2d& expected) {
  const double x = box.at("x"), y = box.at("y"), w = box.at("w"), h = box.at("h");
  EXPECT_NEAR(x, expected.x, kPixels);
  EXPECT_NEAR(y, expected.y, kPixels);
  EXPECT_NEAR(x + w, expected.br().x, kPixels);
  EXPECT_NEAR(y + h, expected.br().y, kPixels);
  EXPECT_GT(box.at("score"), 0.9);
}

// A red patch that goes a cell to the right with each frame.
cv::Rect2d moving(int frame) { return on_grid(kVga, {kRed, 3 + frame, 3}); }
void paint_moving(int i, cv::Mat* frame) { paint(frame, moving(i), kRed); }

using DetectorCommands = CommandTest;

TEST_F(DetectorCommands, FindPatchesInFramesOfAnySize) {
  struct Case {
    const char* name;
    cv::Size frame;
    Patch patch;
  };
  const std::vector<Case> of_grids = {
      {"landscape_coarse_grid.png", kVga, {kRed, 6, 3}},
      {"landscape_fine_grid.png", kVga, {kBlue, 17, 9}},
      {"wider_than_the_network.png", {1920, 1080}, {kGreen, 2, 4}},
      {"cut_off_above_and_below.png", {641, 479}, {kRed, 9, 3}},
      {"small.png", {161, 99}, {kBlue, 8, 6}},
      {"square_coarse_grid.png", {480, 480}, {kGreen, 7, 2}},
      {"square_fine_grid.png", {320, 320}, {kBlue, 3, 15}},
      {"portrait_coarse_grid.png", {360, 640}, {kRed, 2, 10}},
      {"portrait_fine_grid.png", {359, 641}, {kBlue, 11, 5}},
  };
  const std::vector<Case> of_faces = {
      {"level_1.png", kVga, {kRed, 4, 11}},
      {"level_3.png", {640, 480}, {kBlue, 3, 1}},
      {"odd.png", {501, 333}, {kRed, 15, 2}},
      {"portrait.png", {360, 640}, {kBlue, 1, 2}},
  };
  const auto red_blue_green = [](const Patch& patch) {
    return patch.colour == kRed ? 1 : patch.colour == kBlue ? 2 : 3;
  };
  for (const std::string command : {"faces", "persons", "objects"}) {
    const auto& cases = command == "faces" ? of_faces : of_grids;
    const auto place = command == "faces" ? on_face_level : on_grid;
    std::string call = command;
    for (const Case& c : cases) {
      cv::Mat picture = grey_frame(c.frame);
      paint(&picture, place(c.frame, c.patch), c.patch.colour);
      save(c.name, picture);
      call += std::string(" ") + c.name;
    }
    const std::vector<Json> found = lines(call);  // in one call: the frame's size changes under way
    ASSERT_EQ(found.size(), cases.size());
    for (size_t i = 0; i < found.size(); ++i) {
      const Case& c = cases[i];
      SCOPED_TRACE(command + " " + c.name);
      Json line = found[i];
      const Json boxes = line.at("boxes");
      line.erase("boxes");
      EXPECT_EQ(line, Json({{"input", c.name},
                            {"frame", 0},
                            {"time", 0.0},
                            {"width", c.frame.width},
                            {"height", c.frame.height}}));
      ASSERT_EQ(boxes.size(), 1u);
      expect_box(boxes[0], place(c.frame, c.patch));
      const int own_class = command == "objects" ? red_blue_green(c.patch) : 0;
      EXPECT_EQ(boxes[0].at("class"), own_class);
      EXPECT_EQ(boxes[0].at("name"), command == "faces"     ? "face"
                                     : command == "persons" ? "person"
                                                            : "class " + std::to_string(own_class));
    }
  }
}

TEST_F(DetectorCommands, FollowAPatchThroughAVideoAndAPictureOfAnotherOrientation) {
  save_video("moving.avi", kVga, 6, paint_moving);
  const cv::Size portrait(360, 640);
  const cv::Rect2d where = on_grid(portrait, {kRed, 4, 6});
  cv::Mat picture = grey_frame(portrait);
  paint(&picture, where, kRed);
  save("portrait.png", picture);
  const auto expect_moving = [](const Json& line, int frame) {
    SCOPED_TRACE(frame);
    EXPECT_EQ(line.at("frame"), frame);
    EXPECT_NEAR(line.at("time"), frame / kFramesPerSecond, 1e-3);
    ASSERT_EQ(line.at("boxes").size(), 1u);
    expect_box(line.at("boxes")[0], moving(frame));
  };

  const std::vector<Json> all = lines("persons moving.avi portrait.png moving.avi --limit 4");
  ASSERT_EQ(all.size(), 4u + 1 + 4);
  for (int i = 0; i < 4; ++i) {
    expect_moving(all[i], i);
    expect_moving(all[5 + i], i);
  }
  expect_box(all[4].at("boxes").at(0), where);

  const std::vector<Json> every_second = lines("persons moving.avi --every 2");
  ASSERT_EQ(every_second.size(), 3u);
  for (int i = 0; i < 3; ++i) expect_moving(every_second[i], 2 * i);

  const CommandResult shown = kelnn("persons moving.avi --progress");
  EXPECT_THAT(shown.err, HasSubstr("frames/s"));
  EXPECT_EQ(shown.out, out("persons moving.avi"));
  EXPECT_EQ(std::count(shown.out.begin(), shown.out.end(), '\n'), 12);  // and as many boxes
  EXPECT_THAT(shown.out, HasSubstr("moving.avi frame 1 at 0.100 s, 640 x 360: 1 found\n"));
}

TEST_F(DetectorCommands, TellTheSameAsText) {
  cv::Mat picture = grey_frame(kVga);
  save("empty.png", picture);
  paint(&picture, on_grid(kVga, {kRed, 2, 3}), kRed);
  paint(&picture, on_grid(kVga, {kBlue, 20, 8}), kBlue);
  save("two.png", picture);
  const Json boxes = json("objects two.png").at("boxes");
  ASSERT_EQ(boxes.size(), 2u);
  const std::string text = out("objects two.png empty.png --classes cat,dog,bicycle,tree");
  EXPECT_THAT(text, HasSubstr("two.png, 640 x 360: 2 found\n"));
  EXPECT_THAT(text, HasSubstr("\nempty.png, 640 x 360: 0 found\n"));
  for (const Json& box : boxes) {
    EXPECT_THAT(text, HasSubstr((box.at("class") == 1 ? "  dog 1.00  x " : "  bicycle 1.00  x ") +
                                box.at("x").dump() + ", y " + box.at("y").dump() + ", " +
                                box.at("w").dump() + " x " + box.at("h").dump() + "\n"));
  }
}

// Whether a drawing differs from the frame on the box's edge, and does not far away from it.
void expect_drawn(const cv::Mat& frame, const cv::Mat& drawn, const cv::Rect2d& box, double noise) {
  ASSERT_EQ(drawn.size(), frame.size());
  cv::Mat difference;
  cv::absdiff(frame, drawn, difference);
  const cv::Rect left_edge(cvRound(box.x) - 4, cvRound(box.y), 8, cvRound(box.height));
  EXPECT_GT(cv::mean(difference(left_edge))[1], 20);
  EXPECT_LE(cv::norm(difference(cv::Rect(0, frame.rows - 40, frame.cols, 40)), cv::NORM_INF),
            noise);
}

TEST_F(DetectorCommands, DrawBoxes) {
  cv::Mat still = grey_frame(kVga);
  paint_moving(0, &still);
  save("picture.png", still);
  save_video("moving.avi", kVga, 3, paint_moving);
  out("persons picture.png --draw drawn.png");
  out("persons moving.avi --draw drawn.mp4");
  out("persons picture.png moving.avi --draw all/");
  for (const char* name : {"drawn.png", "all/picture.png"}) {
    expect_drawn(still, picture(name), moving(0), 0);
  }
  for (const char* name : {"all/moving.avi", "drawn.mp4"}) {
    SCOPED_TRACE(name);
    cv::VideoCapture before(path("moving.avi")), after(path(name));
    cv::Mat frame, drawn;
    for (int i = 0; i < 3; ++i) {
      ASSERT_TRUE(before.read(frame) && after.read(drawn));
      expect_drawn(frame, drawn, moving(i), 16);  // of the codec
    }
    EXPECT_FALSE(after.read(drawn));
  }
  EXPECT_EQ(file_count("") + file_count("all"), 8u);  // nothing temporary stays
}

TEST_F(DetectorCommands, DoTheOthersWhenOneInputIsBad) {
  save("good.png", grey_frame({64, 48}));
  save_video("good.avi", {64, 48}, 1, [](int, cv::Mat*) {});
  write("text.txt", "no picture");
  write("damaged.png", text("good.png").substr(0, 40));  // its header says that it is a picture
  write("damaged.avi", text("good.avi").substr(0, 100));
  const CommandResult result = kelnn(
      "persons nothing.png text.txt models/ damaged.png damaged.avi camera:x camera:99 good.png");
  EXPECT_EQ(result.exit_code, 1);
  EXPECT_EQ(result.out, "good.png, 64 x 48: 0 found\n");
  for (const char* complaint :
       {"nothing.png: No such file", "text.txt: neither a picture nor a video", "/: a directory",
        "damaged.png: a picture that is damaged", "damaged.avi: ", "camera:x: a camera is",
        "camera:99: cannot be opened"}) {
    EXPECT_THAT(result.err, HasSubstr(complaint));
  }
}

}  // namespace
