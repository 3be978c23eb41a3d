// kelnn motion, landmarks, classify-face, classify-person and watch, from files to lines: over videos
// that are written here, and networks of make_test_networks.py that read brightness and find patches.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <numeric>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>
#include <random>
#include <sstream>

#include "support/run_command.h"

namespace {

namespace fs = std::filesystem;
using kelnn_test::CommandResult;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Json = nlohmann::json;

const cv::Scalar kRed(0, 0, 255), kGreen(0, 255, 0), kGrey(60, 60, 60);
constexpr double kFramesPerSecond = 10;

class MotionCommands : public ::testing::Test {
 protected:
  MotionCommands() {
    std::string path = fs::temp_directory_path().string() + "/kelnn_motion_XXXXXX";
    if (!mkdtemp(&path[0])) std::abort();
    directory = path + "/";
    root = directory + "models/";
  }
  ~MotionCommands() override { fs::remove_all(directory); }

  CommandResult run(std::vector<std::string> arguments) {
    return kelnn_test::run_kelnn(std::move(arguments));
  }
  std::vector<Json> run_json(std::vector<std::string> arguments) {
    arguments.push_back("--json");
    const CommandResult result = run(arguments);
    EXPECT_EQ(result.exit_code, 0) << result.err;
    std::vector<Json> lines;
    std::istringstream stream(result.out);
    for (std::string line; std::getline(stream, line);) lines.push_back(Json::parse(line));
    return lines;
  }
  // Of a command that prints one object.
  Json run_one(std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--root", root, "--json"});
    const CommandResult result = run(arguments);
    EXPECT_EQ(result.exit_code, 0) << result.err;
    return Json::parse(result.out);
  }
  void pack(const std::string& task, const std::string& network) {
    const CommandResult packed = run({"pack", task, network, "--root", root});
    ASSERT_EQ(packed.exit_code, 0) << packed.err;
  }
  static std::string network(const std::string& name) {
    return std::string(KEL_NN_TEST_NETWORKS) + "/" + name + ".onnx";
  }
  std::string save_picture(const std::string& name, const cv::Mat& picture) {
    EXPECT_TRUE(cv::imwrite(directory + name, picture));
    return directory + name;
  }
  std::string save_video(const std::string& name, cv::Size size, int count,
                         const std::function<void(int, cv::Mat*)>& paint) {
    cv::VideoWriter writer(directory + name, cv::VideoWriter::fourcc('M', 'J', 'P', 'G'),
                           kFramesPerSecond, size);
    EXPECT_TRUE(writer.isOpened());
    for (int i = 0; i < count; ++i) {
      cv::Mat frame(size, CV_8UC3, kGrey);
      paint(i, &frame);
      writer.write(frame);
    }
    return directory + name;
  }
  // A white square of 40 x 40 that rests for `rest` frames, then jumps to the place beside it with
  // each frame: what it leaves had changed when it came.
  std::string save_jumping_square(const std::string& name, int count, int rest) {
    return save_video(name, {320, 240}, count, [rest](int i, cv::Mat* frame) {
      const int place = std::max(0, i - rest) % 8;
      cv::rectangle(*frame, cv::Rect(40 * place, 80, 40, 40), cv::Scalar::all(255), cv::FILLED);
    });
  }

  std::string directory, root;
};

// ----- Motion

TEST_F(MotionCommands, AStillSceneIsStillInEveryPeriod) {
  const std::string video = save_video("still.avi", {160, 120}, 23, [](int, cv::Mat* frame) {
    cv::circle(*frame, {80, 60}, 30, kRed, cv::FILLED);
  });
  const std::vector<Json> lines = run_json({"motion", video, "--period", "5"});
  ASSERT_EQ(lines.size(), 4u);
  for (size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(lines[i].at("frame"), 5 * i + 4);
    EXPECT_NEAR(lines[i].at("time"), double(5 * i + 4) / kFramesPerSecond, 0.001);
    EXPECT_EQ(lines[i].at("motion"), false);
    EXPECT_EQ(lines[i].at("changed_max"), 0);
  }
  EXPECT_THAT(run({"motion", video, "--period", "20"}).out,
              HasSubstr("frame 19 at 1.900 s: still, changed 0.000 %, at most 0.000 %\n"));
}

TEST_F(MotionCommands, ASquareThatJumpsIsMotionAndItsShareIsMeasured) {
  const std::string video = save_jumping_square("jumping.avi", 30, 10);
  // Halved it is 20 x 20; smoothed it reaches a pixel further, with a quarter of its contrast, but
  // not with the sixteenth at its corners.
  const double share = 100.0 * (22 * 22 - 4) / (160 * 120);
  const std::vector<Json> lines = run_json({"motion", video, "--period", "5", "--ratio", "1"});
  ASSERT_EQ(lines.size(), 6u);
  for (size_t i = 0; i < lines.size(); ++i) {
    const bool moves = i >= 2;
    EXPECT_EQ(lines[i].at("motion"), moves) << i;
    EXPECT_NEAR(lines[i].at("changed"), moves ? share : 0, 0.05) << i;
  }
  for (const Json& line : run_json({"motion", video, "--period", "5", "--ratio", "3"})) {
    EXPECT_EQ(line.at("motion"), false);
  }
  EXPECT_EQ(run_json({"motion", video, "--period", "5", "--limit", "12"}).size(), 2u);
}

// The share is computed beside the library's decision; on frames full of noise they must agree.
TEST_F(MotionCommands, TheShownShareIsWhatTheLibraryDecidesBy) {
  std::minstd_rand random(5);
  const std::string video = save_video("noise.avi", {96, 64}, 60, [&](int, cv::Mat* frame) {
    const double density = double(random() % 100) / 100;
    for (int i = 0; i < 96; ++i) {
      const cv::Rect block(i % 12 * 8, i / 12 * 8, 8, 8);
      if (double(random() % 1000) < 1000 * density) {
        cv::rectangle(*frame, block, cv::Scalar::all(double(random() % 256)), cv::FILLED);
      }
    }
  });
  const double pixels = 48 * 32;
  int motion = 0, still = 0;
  for (const double ratio : {10.0, 20.0, 30.0, 40.0}) {
    for (const Json& line :
         run_json({"motion", video, "--period", "1", "--ratio", std::to_string(ratio)})) {
      const double count = std::round(line.at("changed").get<double>() / 100 * pixels);
      EXPECT_EQ(line.at("motion"), count >= std::trunc(pixels * ratio / 100)) << line;
      ++(line.at("motion") ? motion : still);
    }
  }
  EXPECT_GT(motion, 20);
  EXPECT_GT(still, 20);
}

TEST_F(MotionCommands, TheSweepCountsWhatSingleRunsDecide) {
  const std::string video = save_jumping_square("jumping.avi", 40, 20);
  const std::vector<Json> lines =
      run_json({"motion", video, "--sweep", "--ratios", "0.5,1.5,4", "--periods", "5,10"});
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].at("frames"), 40);
  const Json& sweep = lines[0].at("sweep");
  ASSERT_EQ(sweep.size(), 6u);
  for (const Json& cell : sweep) {
    SCOPED_TRACE(cell.dump());
    const int period = cell.at("period");
    int motion = 0;
    for (const Json& line : run_json({"motion", video, "--period", std::to_string(period),
                                      "--ratio", cell.at("ratio").dump()})) {
      motion += line.at("motion").get<bool>();
    }
    EXPECT_EQ(cell.at("motion"), motion);
    EXPECT_EQ(cell.at("decisions"), 40 / period);
    EXPECT_EQ(cell.at("motion"), cell.at("ratio") < 2 ? 20 / period : 0);
  }
  for (size_t i = 2; i < sweep.size(); ++i) {  // a higher ratio never finds more
    EXPECT_LE(sweep[i].at("motion"), sweep[i - 2].at("motion"));
  }
  EXPECT_THAT(run({"motion", video, "--sweep", "--ratios", "1.5", "--periods", "5"}).out,
              HasSubstr("1.5 %        4 of 8\n"));
}

TEST_F(MotionCommands, DrawsChangedPixels) {
  const std::string video = save_jumping_square("jumping.avi", 20, 10);
  const std::string out = directory + "drawn.avi";
  ASSERT_EQ(run({"motion", video, "--period", "5", "--draw", out}).exit_code, 0);
  cv::VideoCapture capture(out);
  cv::Mat frame, red;
  for (int i = 0; capture.read(frame); ++i) {
    cv::inRange(frame, cv::Scalar(0, 0, 180), cv::Scalar(110, 110, 255), red);
    const int before =
        i < 12 ? 0 : 40 * ((i - 11) % 8);  // where the square was in the frame before
    if (i < 12) {
      EXPECT_EQ(cv::countNonZero(red), 0) << i;
    } else {
      EXPECT_GT(cv::countNonZero(red(cv::Rect(before, 80, 40, 40))), 1000) << i;
      EXPECT_LT(cv::countNonZero(red), 2400) << i;
    }
  }
}

// ----- Cut-outs

// Dark on the left, bright on the right: 28 and 228.
cv::Mat two_halves() {
  cv::Mat picture(100, 200, CV_8UC3, cv::Scalar::all(28));
  picture.colRange(100, 200).setTo(cv::Scalar::all(228));
  return picture;
}

TEST_F(MotionCommands, LandmarksArePrintedRawAndMappedToPixels) {
  pack("face-landmarks", network("landmarks"));
  const std::string picture = save_picture("halves.png", two_halves());
  const std::string out = directory + "points.png";
  const Json found = run_one({"landmarks", picture, "--box", "110,20,80,60", "--draw", out});
  const cv::Mat drawn = cv::imread(out);
  ASSERT_EQ(found.at("points").size(), 5u);
  for (int i = 0; i < 5; ++i) {
    const double x = 0.2 + 0.2 * i, y = 0.1 + 0.2 * i;  // the cut-out is 100 above the middle
    EXPECT_NEAR(found.at("points")[i][0], x, 1e-5);
    EXPECT_NEAR(found.at("points")[i][1], y, 1e-5);
    if (i < 4) {
      const cv::Vec3b pixel = drawn.at<cv::Vec3b>(cvRound(20 + 60 * y), cvRound(110 + 80 * x));
      EXPECT_EQ(pixel, cv::Vec3b(60, 220, 255)) << i;
    }
  }
  EXPECT_THAT(found.at("pose").get<std::vector<float>>(), ElementsAre(100, 50, 7));

  // 60 below the middle all values are from 0 to 1; 128 below it, the first is not.
  const Json inside = run_one(
      {"landmarks", save_picture("grey.png", cv::Mat(80, 80, CV_8UC3, cv::Scalar::all(68)))});
  ASSERT_TRUE(inside.contains("pixels")) << inside;
  EXPECT_NEAR(inside.at("pixels")[1][0], 80 * 0.24, 1e-3);
  EXPECT_NEAR(inside.at("pixels")[1][1], 80 * 0.3, 1e-3);
  const Json outside =
      run_one({"landmarks", save_picture("black.png", cv::Mat::zeros(80, 80, CV_8UC3))});
  EXPECT_FALSE(outside.contains("pixels")) << outside;
}

TEST_F(MotionCommands, ClassesFollowTheCutOut) {
  pack("face-classes", network("face_classes"));
  pack("person-classes", network("person_classes"));
  const std::string halves = save_picture("halves.png", two_halves());
  const std::string middle =
      save_picture("middle.png", cv::Mat(64, 64, CV_8UC3, cv::Scalar::all(128)));
  struct Case {
    std::vector<std::string> arguments;
    int id;
    double logit;
  };
  const Case cases[] = {{{halves, "--box", "0,0,90,90"}, 0, 10},
                        {{halves, "--box", "105,0,90,90"}, 2, 10},
                        {{middle}, 1, 2}};
  for (const Case& c : cases) {
    std::vector<std::string> arguments = c.arguments;
    arguments.insert(arguments.begin(), "classify-face");
    const Json found = run_one(arguments);
    EXPECT_EQ(found.at("class"), c.id);
    EXPECT_NEAR(found.at("score"), 1 / (1 + std::exp(-c.logit)), 1e-5);
  }
  // Red and blue are 60 above and below the middle: logits 3 and -3.
  const std::string red =
      save_picture("red.png", cv::Mat(64, 64, CV_8UC3, cv::Scalar(68, 128, 188)));
  EXPECT_NEAR(run_one({"classify-person", red}).at("probability"), 1 / (1 + std::exp(-6.0)), 1e-5);
  EXPECT_EQ(run({"classify-person", red, "--root", root}).out, "0.997527\n");

  // Several pictures and boxes; one that cannot be read keeps none of the others from being done.
  const CommandResult several =
      run({"classify-face", halves, directory + "nothing.png", middle, "--box", "0,0,60,60",
           "--box", "4,4,60,60", "--root", root, "--json"});
  EXPECT_EQ(several.exit_code, 1);
  EXPECT_THAT(several.err, HasSubstr("kelnn: " + directory + "nothing.png: No such file"));
  std::istringstream lines(several.out);
  std::vector<std::string> found;
  for (std::string line; std::getline(lines, line);) {
    const Json json = Json::parse(line);
    found.push_back(json.at("picture").get<std::string>() + json.at("box").at("x").dump() +
                    json.at("class").dump());
  }
  EXPECT_THAT(found, ElementsAre(halves + "00", halves + "40", middle + "01", middle + "41"));
  EXPECT_THAT(run({"classify-face", middle, "--box", "60,0,9,9", "--root", root}).err,
              HasSubstr("middle.png: the box reaches out of the picture, which is 64 x 64"));
  EXPECT_THAT(run({"classify-face", halves, middle, "--root", root}).out,
              HasSubstr(middle + ", x 0, y 0, 64 x 64:\nclass 1  score 0.88"));
}

// ----- Watch

// A green person rests, walks over frames 20 to 29 and rests again; a red face is always there. Sizes
// are twice those of the person network's input, whose cells have 64 x 64 pixels here.
constexpr int kCell = 64;
constexpr double kFaceCellWidth = 16 * 832 / 320.0, kFaceCellHeight = 16 * 512 / 240.0;

int person_column(int frame) { return 1 + std::clamp(frame - 19, 0, 10); }

void paint_scene(int i, cv::Mat* frame) {
  const cv::Rect person(kCell * person_column(i) - 3, 288 - 3, kCell + 6, 2 * kCell + 6);
  const cv::Rect face(cvRound(16.5 * kFaceCellWidth) - 3, cvRound(4.75 * kFaceCellHeight) - 3,
                      cvRound(2 * kFaceCellWidth) + 6, cvRound(1.5 * kFaceCellHeight) + 6);
  cv::rectangle(*frame, person, kGreen, cv::FILLED);
  cv::rectangle(*frame, face, kRed, cv::FILLED);
}

TEST_F(MotionCommands, WatchDetectsFromMotionUntilStillness) {
  pack("person-detection-landscape", network("persons_landscape"));
  pack("face-detection", network("faces"));
  pack("face-landmarks", network("landmarks"));
  pack("face-features", KEL_NN_TEST_SAMPLE_NETWORK);
  const std::string video = save_video("scene.avi", {832, 512}, 40, paint_scene);
  const std::string out = directory + "drawn.avi";
  const std::vector<Json> lines =
      run_json({"watch", video, "--period", "5", "--ratio", "1", "--root", root, "--draw", out});
  std::vector<int> frames;
  for (const Json& line : lines) {
    const int frame = line.at("frame");
    SCOPED_TRACE(frame);
    frames.push_back(frame);
    EXPECT_EQ(line.contains("motion"), frame % 5 == 4);
    const bool is_awake = frame >= 24 && frame < 34;
    ASSERT_EQ(line.contains("persons"), is_awake);
    ASSERT_EQ(line.contains("faces"), is_awake);
    if (!is_awake) continue;
    ASSERT_EQ(line.at("persons").size(), 1u);
    ASSERT_EQ(line.at("faces").size(), 1u);
    const Json &person = line.at("persons")[0], &face = line.at("faces")[0];
    EXPECT_NEAR(person.at("x"), kCell * person_column(frame), 4);
    EXPECT_NEAR(person.at("y"), 288, 4);
    EXPECT_NEAR(face.at("x"), 16.5 * kFaceCellWidth, 4);
    EXPECT_NEAR(face.at("y"), 4.75 * kFaceCellHeight, 4);
    EXPECT_NEAR(face.at("pose")[0], 76 - 128, 4);  // red as grey: 77 * 255 / 256
    const std::vector<double> feature = face.at("feature");
    ASSERT_EQ(feature.size(), 256u);
    EXPECT_NEAR(std::inner_product(feature.begin(), feature.end(), feature.begin(), 0.0), 1, 1e-3);
  }
  EXPECT_THAT(frames, ElementsAre(4, 9, 14, 19, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 39));
  EXPECT_EQ(cv::VideoCapture(out).get(cv::CAP_PROP_FRAME_COUNT), 40);

  EXPECT_EQ(run_json({"watch", video, "--always", "--limit", "3", "--root", root}).size(), 3u);
}

TEST_F(MotionCommands, WatchLeavesOutTasksWithoutAModelWithOneNoteEach) {
  pack("face-detection", network("faces"));
  const std::string video = save_video("scene.avi", {832, 512}, 6, paint_scene);
  const CommandResult result = run({"watch", video, "--always", "--root", root, "--json"});
  EXPECT_EQ(result.exit_code, 0) << result.err;
  std::istringstream lines(result.out);
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    const Json face = Json::parse(line).at("faces").at(0);
    EXPECT_FALSE(face.contains("points") || face.contains("feature"));
  }
  EXPECT_EQ(count, 6);
  for (const char* note : {"kelnn: persons are left out: ", "kelnn: landmarks are left out: ",
                           "kelnn: face features are left out: "}) {
    const size_t first = result.err.find(note);
    ASSERT_NE(first, std::string::npos) << note;
    EXPECT_EQ(result.err.find(note, first + 1), std::string::npos) << note;
  }
}

// ----- Being called wrongly

TEST_F(MotionCommands, WrongCallsEndWith2AndWrongInputsWith1) {
  const std::string video = save_jumping_square("short.avi", 6, 0);
  const std::string picture = save_picture("grey.png", cv::Mat(32, 32, CV_8UC3, kGrey));
  const std::string nothing = directory + "nothing.avi";
  struct Case {
    std::vector<std::string> arguments;
    int exit_code;
    const char* message;
  };
  const Case cases[] = {
      {{"motion"}, 2, "input"},
      {{"motion", video, "--ratio", "nan"}, 2, "percentage"},
      {{"motion", video, "--ratio", "101"}, 2, "percentage"},
      {{"motion", video, "--period", "0"}, 2, "--period"},
      {{"motion", video, "--ratios", "1,2"}, 2, "--sweep"},
      {{"motion", video, "--sweep", "--periods", "5,x"}, 2, "--periods"},
      {{"motion", video, "--sweep", "--draw", "x.avi"}, 2, "--draw"},
      {{"watch", video, "--ratio", "-1"}, 2, "percentage"},
      {{"landmarks", picture, "--box", "1,2,3"}, 2, "--box"},
      {{"motion", nothing}, 1, "nothing.avi"},
      {{"motion", picture}, 1, "a picture"},
      {{"watch", picture}, 1, "a picture"},
      {{"motion", video, "--draw", directory + "x.txt"}, 1, "x.txt"},
      {{"motion", video, "--draw", video}, 1, "take the place of the input"},
      {{"classify-face", picture, "--root", root}, 1, "face-classes has no model that can be used"},
      {{"classify-person", picture, "--root", root},
       1,
       "person-classes has no model that can be used"},
      {{"landmarks", picture, "--root", root}, 1, "face-landmarks has no model that can be used"},
  };
  for (const Case& c : cases) {
    const CommandResult result = run(c.arguments);
    SCOPED_TRACE(result.err);
    EXPECT_EQ(result.exit_code, c.exit_code);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr(c.message));
  }
}

}  // namespace
