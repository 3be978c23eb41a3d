// kelnn faces, persons and objects, from files to boxes, over real networks: those of
// make_test_networks.py, which find patches of pure colour.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/videoio.hpp>
#include <sstream>

#include "support/patches.h"
#include "support/run_command.h"
#include "support/test_models.h"

namespace {

namespace fs = std::filesystem;
using namespace kelnn_test;
using ::testing::HasSubstr;
using Json = nlohmann::json;

// Edges are whole pixels of the frame three times over: the letterbox's (half a pixel of frame or
// image), the patch's, and the box's own, whose size and corner are rounded down.
constexpr double kTolerance = 3;

void expect_box(const Json& box, const cv::Rect2d& expected) {
  const double x = box.at("x"), y = box.at("y"), w = box.at("w"), h = box.at("h");
  EXPECT_NEAR(x, expected.x, kTolerance);
  EXPECT_NEAR(y, expected.y, kTolerance);
  EXPECT_NEAR(x + w, expected.br().x, kTolerance);
  EXPECT_NEAR(y + h, expected.br().y, kTolerance);
  EXPECT_GT(box.at("score"), 0.9);
}

class DetectorCommands : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    std::string path = fs::temp_directory_path().string() + "/kelnn_detectors_XXXXXX";
    if (!mkdtemp(&path[0])) std::abort();
    root = path + "/";
    kelnn_test::pack_detectors(root);
  }
  static void TearDownTestSuite() { fs::remove_all(root); }
  void SetUp() override { ASSERT_TRUE(fs::create_directory(directory)); }
  void TearDown() override { fs::remove_all(directory); }

  CommandResult run(std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--root", root});
    return run_kelnn(arguments);
  }
  std::vector<Json> run_json(std::vector<std::string> arguments) {
    arguments.push_back("--json");
    const CommandResult result = run(arguments);
    EXPECT_EQ(result.exit_code, 0) << result.err;
    return lines_of(result.out);
  }
  static std::vector<Json> lines_of(const std::string& out) {
    std::vector<Json> lines;
    std::istringstream stream(out);
    for (std::string line; std::getline(stream, line);) lines.push_back(Json::parse(line));
    return lines;
  }
  std::string save(const std::string& name, const cv::Mat& picture) {
    EXPECT_TRUE(cv::imwrite(directory + name, picture));
    return directory + name;
  }
  // A red patch that goes a cell to the right with each frame, 10 frames a second.
  std::string save_video(const std::string& name, cv::Size size, int count) {
    cv::VideoWriter writer(directory + name, cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 10, size);
    EXPECT_TRUE(writer.isOpened());
    for (int i = 0; i < count; ++i) {
      cv::Mat frame = grey_frame(size);
      paint(&frame, on_grid(size, moving(i)), kRed);
      writer.write(frame);
    }
    return directory + name;
  }
  static Patch moving(int frame) { return {kRed, 3 + frame, 3}; }

  static std::string root;
  std::string directory = root + "work/";
};
std::string DetectorCommands::root;

TEST_F(DetectorCommands, FindPatchesInFramesOfAnySize) {
  struct Case {
    const char* name;
    cv::Size frame;
    Patch patch;
  };
  const Case cases[] = {
      {"landscape, coarse grid", {640, 360}, {kRed, 6, 3}},
      {"landscape, fine grid", {640, 360}, {kBlue, 17, 9}},
      {"wider than the network", {1920, 1080}, {kGreen, 2, 4}},
      {"cut off above and below", {641, 479}, {kRed, 9, 3}},
      {"small", {161, 99}, {kBlue, 8, 6}},
      {"square, coarse grid", {480, 480}, {kGreen, 7, 2}},
      {"square, fine grid", {320, 320}, {kBlue, 3, 15}},
      {"portrait, coarse grid", {360, 640}, {kRed, 2, 10}},
      {"portrait, fine grid", {359, 641}, {kBlue, 11, 5}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const cv::Rect2d where = on_grid(c.frame, c.patch);
    cv::Mat picture = grey_frame(c.frame);
    paint(&picture, where, c.patch.colour);
    const std::string path = save("picture.png", picture);
    for (const char* command : {"persons", "objects"}) {
      SCOPED_TRACE(command);
      const bool has_classes = std::string(command) == "objects";
      const std::vector<Json> lines = run_json({command, path});
      ASSERT_EQ(lines.size(), 1u);
      const Json& line = lines[0];
      EXPECT_EQ(line.at("input"), path);
      EXPECT_EQ(line.at("frame"), 0);
      EXPECT_EQ(line.at("time"), 0);
      EXPECT_EQ(line.at("width"), c.frame.width);
      EXPECT_EQ(line.at("height"), c.frame.height);
      ASSERT_EQ(line.at("boxes").size(), 1u);
      const Json& box = line.at("boxes")[0];
      expect_box(box, where);
      const int own_class = c.patch.colour == kRed ? 1 : c.patch.colour == kBlue ? 2 : 3;
      EXPECT_EQ(box.at("class"), has_classes ? own_class : 0);
      EXPECT_EQ(box.at("name"), has_classes ? "class " + std::to_string(own_class) : "person");
    }
  }
}

TEST_F(DetectorCommands, FindFacesInFramesOfAnySize) {
  struct Case {
    const char* name;
    cv::Size frame;
    Patch patch;
  };
  const Case cases[] = {
      {"level 1", {640, 360}, {kRed, 4, 11}},
      {"level 3", {640, 480}, {kBlue, 3, 1}},
      {"odd", {501, 333}, {kRed, 15, 2}},
      {"portrait", {360, 640}, {kBlue, 1, 2}},
  };
  std::vector<std::string> arguments = {"faces"};
  for (const Case& c : cases) {
    cv::Mat picture = grey_frame(c.frame);
    paint(&picture, on_face_level(c.frame, c.patch), c.patch.colour);
    arguments.push_back(save(std::string(c.name) + ".png", picture));
  }
  // In one call, so that the frame size changes under way.
  const std::vector<Json> lines = run_json(arguments);
  ASSERT_EQ(lines.size(), std::size(cases));
  for (size_t i = 0; i < lines.size(); ++i) {
    SCOPED_TRACE(cases[i].name);
    EXPECT_EQ(lines[i].at("input"), arguments[i + 1]);
    ASSERT_EQ(lines[i].at("boxes").size(), 1u);
    expect_box(lines[i].at("boxes")[0], on_face_level(cases[i].frame, cases[i].patch));
    EXPECT_EQ(lines[i].at("boxes")[0].at("name"), "face");
  }
}

TEST_F(DetectorCommands, FollowAPatchThroughAVideoAndAPictureOfAnotherOrientation) {
  const cv::Size size(640, 360), portrait(360, 640);
  const std::string video = save_video("moving.avi", size, 6);
  cv::Mat picture = grey_frame(portrait);
  const Patch patch = {kRed, 4, 6};
  paint(&picture, on_grid(portrait, patch), kRed);
  const std::string path = save("portrait.png", picture);

  const std::vector<Json> lines = run_json({"persons", video, path, video, "--limit", "4"});
  ASSERT_EQ(lines.size(), 4u + 1 + 4);
  for (const int first : {0, 5}) {
    for (int i = 0; i < 4; ++i) {
      SCOPED_TRACE(i);
      const Json& line = lines[size_t(first + i)];
      EXPECT_EQ(line.at("frame"), i);
      EXPECT_NEAR(line.at("time"), 0.1 * i, 1e-3);
      ASSERT_EQ(line.at("boxes").size(), 1u);
      expect_box(line.at("boxes")[0], on_grid(size, moving(i)));
    }
  }
  ASSERT_EQ(lines[4].at("boxes").size(), 1u);
  expect_box(lines[4].at("boxes")[0], on_grid(portrait, patch));

  const std::vector<Json> every_second = run_json({"persons", video, "--every", "2"});
  ASSERT_EQ(every_second.size(), 3u);
  EXPECT_EQ(every_second[2].at("frame"), 4);
  EXPECT_NEAR(every_second[2].at("time"), 0.4, 1e-3);
  expect_box(every_second[2].at("boxes").at(0), on_grid(size, moving(4)));
}

TEST_F(DetectorCommands, TellTheSameAsText) {
  const cv::Size size(640, 360);
  cv::Mat picture = grey_frame(size);
  const Patch red = {kRed, 2, 3}, blue = {kBlue, 20, 8};
  paint(&picture, on_grid(size, red), kRed);
  paint(&picture, on_grid(size, blue), kBlue);
  const std::string path = save("two.png", picture);
  const Json boxes = run_json({"objects", path}).at(0).at("boxes");
  ASSERT_EQ(boxes.size(), 2u);

  const CommandResult result = run({"objects", path, "--classes", "cat,dog,bicycle,tree"});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_THAT(result.out, HasSubstr(path + ", 640 x 360: 2 found\n"));
  for (const Json& box : boxes) {
    EXPECT_THAT(result.out, HasSubstr("x " + box.at("x").dump() + ", y " + box.at("y").dump() +
                                      ", " + box.at("w").dump() + " x " + box.at("h").dump()));
  }
  EXPECT_THAT(result.out, HasSubstr("  dog 1.00 "));
  EXPECT_THAT(result.out, HasSubstr("  bicycle 1.00 "));

  const std::string empty = save("empty.png", grey_frame(size));
  EXPECT_EQ(run({"objects", empty}).out, empty + ", 640 x 360: 0 found\n");
  EXPECT_THAT(run({"persons", save_video("v.avi", size, 2)}).out,
              HasSubstr("v.avi frame 1 at 0.100 s, 640 x 360: 1 found\n"));
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
  const cv::Size size(640, 360);
  const Patch patch = moving(0);
  cv::Mat picture = grey_frame(size);
  paint(&picture, on_grid(size, patch), kRed);
  const std::string path = save("picture.png", picture);

  run_json({"persons", path, "--draw", directory + "drawn.png"});
  expect_drawn(picture, cv::imread(directory + "drawn.png"), on_grid(size, patch), 0);

  const std::string video = save_video("moving.avi", size, 3);
  run_json({"persons", path, video, "--draw", directory + "all/"});
  expect_drawn(picture, cv::imread(directory + "all/picture.png"), on_grid(size, patch), 0);
  run_json({"persons", video, "--draw", directory + "drawn.mp4"});
  for (const char* name : {"all/moving.avi", "drawn.mp4"}) {
    SCOPED_TRACE(name);
    cv::VideoCapture before(video), after(directory + name);
    cv::Mat frame, drawn;
    for (int i = 0; i < 3; ++i) {
      ASSERT_TRUE(before.read(frame) && after.read(drawn));
      expect_drawn(frame, drawn, on_grid(size, moving(i)), 16);  // of the codec
    }
    EXPECT_FALSE(after.read(drawn));
  }
  for (const auto& entry : fs::recursive_directory_iterator(directory)) {
    EXPECT_NE(entry.path().filename().string()[0], '.') << entry.path();  // temporary files
  }
}

TEST_F(DetectorCommands, DoTheOthersWhenOneInputIsBad) {
  const std::string good = save("good.png", grey_frame({64, 48}));
  const std::string video = save_video("good.avi", {64, 48}, 1);
  std::ofstream(directory + "text.txt") << "no picture";
  // Its header says that it is a picture.
  std::ofstream(directory + "damaged.png") << text_of(good).substr(0, 40);
  std::ofstream(directory + "damaged.avi") << text_of(video).substr(0, 100);
  const CommandResult result =
      run({"persons", directory + "nothing.png", directory + "text.txt", directory,
           directory + "damaged.png", directory + "damaged.avi", "camera:x", "camera:99", good});
  EXPECT_EQ(result.exit_code, 1);
  EXPECT_EQ(result.out, good + ", 64 x 48: 0 found\n");
  for (const std::string complaint :
       {"nothing.png: No such file", "text.txt: neither a picture nor a video", "/: a directory",
        "damaged.png: a picture that is damaged", "damaged.avi: ", "camera:x: a camera is",
        "camera:99: cannot be opened"}) {
    EXPECT_THAT(result.err, HasSubstr(complaint));
  }
}

TEST_F(DetectorCommands, SayWhatIsWrong) {
  const std::string good = save("good.png", grey_frame({64, 48}));
  const std::string other = save("other.png", grey_frame({64, 48}));
  const std::string video = save_video("good.avi", {64, 48}, 2);
  fs::create_directory(directory + "empty");
  fs::create_directory(directory + "twin");
  const std::string twin = save("twin/good.png", grey_frame({64, 48}));
  struct Case {
    const char* name;
    std::vector<std::string> arguments;
    int exit_code;
    std::string complaint;
  };
  const Case cases[] = {
      {"no input", {"persons"}, 2, "required"},
      {"no number", {"persons", good, "--limit", "many"}, 2, "--limit"},
      {"every 0th", {"persons", good, "--every", "0"}, 2, "--every"},
      {"three names", {"objects", good, "--classes", "a,b,c"}, 2, "--classes: At least 4"},
      {"names of faces", {"faces", good, "--classes", "a,b,c,d"}, 2, "--classes"},
      {"file for two", {"faces", good, other, "--draw", directory + "a.png"}, 1, "directory"},
      {"same name", {"faces", good, twin, "--draw", directory + "out/"}, 1, "has the name"},
      {"onto itself", {"faces", good, "--draw", good}, 1, "take the place of the input"},
      {"not a picture's name",
       {"faces", good, "--draw", directory + "a.xyz"},
       1,
       "a.xyz: pictures"},
      {"not a video's name", {"faces", video, "--draw", directory + "a.png"}, 1, "a.png: videos"},
      {"no place", {"faces", video, "--draw", "/dev/null/a.avi"}, 1, "a.avi: cannot be written"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const CommandResult result = run(c.arguments);
    EXPECT_EQ(result.exit_code, c.exit_code);
    EXPECT_THAT(result.err, HasSubstr(c.complaint));
  }
  const CommandResult no_model = run_kelnn({"persons", good, "--root", directory + "empty"});
  EXPECT_EQ(no_model.exit_code, 1);
  EXPECT_EQ(no_model.out, "");
  EXPECT_THAT(no_model.err, HasSubstr("kelnn pack person-detection-landscape"));
}

TEST_F(DetectorCommands, ShowProgressOnStandardErrorOnly) {
  const std::string video = save_video("long.avi", {640, 360}, 5);
  const CommandResult shown = run({"persons", video, "--progress"});
  EXPECT_THAT(shown.err, HasSubstr("frames/s"));
  EXPECT_EQ(shown.out, run({"persons", video}).out);
  EXPECT_EQ(std::count(shown.out.begin(), shown.out.end(), '\n'), 10);  // and as many boxes
}

}  // namespace
