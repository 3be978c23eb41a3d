// SPDX-License-Identifier: Apache-2.0
// kelnn motion, landmarks, classify-face and classify-person, from files to lines: over videos
// that are written here, and networks of make_test_networks.py that read brightness and find patches.

#include "support/command_test.h"

namespace {

using namespace kelnn_test;

class MotionCommands : public CommandTest {
 protected:
  // A white square of 40 x 40 that rests for `rest` frames, then jumps to the place beside it with
  // each frame: what it leaves had changed when it came.
  void save_jumping_square(int count, int rest) {
    save_video("jumping.avi", {320, 240}, count, [rest](int i, cv::Mat* frame) {
      const int place = std::max(0, i - rest) % 8;
      cv::rectangle(*frame, cv::Rect(40 * place, 80, 40, 40), cv::Scalar::all(255), cv::FILLED);
    });
  }
};

// ----- Motion

TEST_F(MotionCommands, ASquareThatJumpsIsMotionAndItsShareIsMeasured) {
  save_jumping_square(33, 10);
  // Halved it is 20 x 20; smoothed it reaches a pixel further, with a quarter of its contrast, but
  // not with the sixteenth at its corners.
  const double share = 100.0 * (22 * 22 - 4) / (160 * 120);
  const std::vector<Json> all = lines("motion jumping.avi --period 5 --ratio 1 --draw drawn.avi");
  ASSERT_EQ(all.size(), 6u);
  for (size_t i = 0; i < all.size(); ++i) {
    SCOPED_TRACE(i);
    const bool moves = i >= 2;
    EXPECT_EQ(all[i].at("frame"), 5 * i + 4);
    EXPECT_NEAR(all[i].at("time"), double(5 * i + 4) / kFramesPerSecond, 0.001);
    EXPECT_EQ(all[i].at("motion"), moves);
    EXPECT_NEAR(all[i].at("changed"), moves ? share : 0, 0.05);
    EXPECT_NEAR(all[i].at("changed_max"), moves ? share : 0, 0.05);
  }
  EXPECT_EQ(lines("motion jumping.avi --period 5 --limit 12").size(), 2u);
  EXPECT_THAT(out("motion jumping.avi --period 10 --limit 10"),
              HasSubstr("frame 9 at 0.900 s: still, changed 0.000 %, at most 0.000 %\n"));

  cv::VideoCapture drawn(path("drawn.avi"));
  cv::Mat frame, red;
  int i = 0;
  for (; drawn.read(frame); ++i) {
    SCOPED_TRACE(i);
    cv::inRange(frame, cv::Scalar(0, 0, 180), cv::Scalar(110, 110, 255), red);
    if (i < 12) {
      EXPECT_EQ(cv::countNonZero(red), 0);
    } else {  // where the square was in the frame before
      EXPECT_GT(cv::countNonZero(red(cv::Rect(40 * ((i - 11) % 8), 80, 40, 40))), 1000);
      EXPECT_LT(cv::countNonZero(red), 2400);
    }
  }
  EXPECT_EQ(i, 33);
}

// The share is computed beside the library's decision; on frames full of noise they must agree.
TEST_F(MotionCommands, TheShownShareIsWhatTheLibraryDecidesBy) {
  std::minstd_rand random(5);
  save_video("noise.avi", {96, 64}, 60, [&](int, cv::Mat* frame) {
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
  for (const int ratio : {10, 20, 30, 40}) {
    for (const Json& line : lines("motion noise.avi --period 1 --ratio " + std::to_string(ratio))) {
      const double count = std::round(line.at("changed").get<double>() / 100 * pixels);
      EXPECT_EQ(line.at("motion"), count >= std::trunc(pixels * ratio / 100)) << line;
      ++(line.at("motion") ? motion : still);
    }
  }
  EXPECT_GT(motion, 20);
  EXPECT_GT(still, 20);
}

TEST_F(MotionCommands, TheSweepCountsWhatSingleRunsDecide) {
  save_jumping_square(40, 20);
  const Json sweep = json("motion jumping.avi --sweep --ratios 0.5,1.5,4 --periods 5,10");
  EXPECT_EQ(sweep.at("frames"), 40);
  ASSERT_EQ(sweep.at("sweep").size(), 6u);
  for (const Json& cell : sweep.at("sweep")) {
    SCOPED_TRACE(cell.dump());
    const int period = cell.at("period");
    int motion = 0;
    for (const Json& line : lines("motion jumping.avi --period " + std::to_string(period) +
                                  " --ratio " + cell.at("ratio").dump())) {
      motion += line.at("motion").get<bool>();
    }
    EXPECT_EQ(cell.at("motion_decisions"), motion);
    EXPECT_EQ(cell.at("decisions"), 40 / period);
    EXPECT_EQ(cell.at("motion_decisions"), cell.at("ratio") < 2 ? 20 / period : 0);
  }
  EXPECT_THAT(out("motion jumping.avi --sweep --ratios 1.5 --periods 5"),
              HasSubstr("1.5 %        4 of 8\n"));
}

// ----- Cut-outs

// Dark on the left, bright on the right: 28 and 228.
cv::Mat two_halves() {
  cv::Mat picture(100, 200, CV_8UC3, cv::Scalar::all(28));
  picture.colRange(100, 200).setTo(cv::Scalar::all(228));
  return picture;
}

cv::Mat plain(int side, const cv::Scalar& colour) { return cv::Mat(side, side, CV_8UC3, colour); }

TEST_F(MotionCommands, LandmarksArePrintedRawAndMappedToPixels) {
  save("halves.png", two_halves());
  save("black.png", plain(80, cv::Scalar::all(0)));
  save("grey.png", plain(80, cv::Scalar::all(68)));
  const Json found = json("landmarks halves.png --box 110,20,80,60 --draw points.png");
  const cv::Mat drawn = picture("points.png");
  ASSERT_EQ(found.at("points").size(), 5u);
  for (int i = 0; i < 5; ++i) {
    const double x = 0.2 + 0.2 * i, y = 0.1 + 0.2 * i;  // the cut-out is 100 above the middle
    EXPECT_NEAR(found.at("points")[i][0], x, 1e-5);
    EXPECT_NEAR(found.at("points")[i][1], y, 1e-5);
    if (i == 4) break;
    EXPECT_EQ(drawn.at<cv::Vec3b>(cvRound(20 + 60 * y), cvRound(110 + 80 * x)),
              cv::Vec3b(60, 220, 255))
        << i;
  }
  EXPECT_EQ(found.at("pose"), Json({100.0, 50.0, 7.0}));

  const Json inside = json("landmarks grey.png");  // 60 below the middle: all are from 0 to 1
  ASSERT_TRUE(inside.contains("pixels")) << inside;
  EXPECT_NEAR(inside.at("pixels")[1][0], 80 * 0.24, 1e-3);
  EXPECT_NEAR(inside.at("pixels")[1][1], 80 * 0.3, 1e-3);
  EXPECT_FALSE(json("landmarks black.png").contains("pixels"));  // 128 below it, the first is not
}

TEST_F(MotionCommands, ClassesFollowTheCutOut) {
  save("halves.png", two_halves());
  save("middle.png", plain(64, cv::Scalar::all(128)));
  save("red.png", plain(64, cv::Scalar(68, 128, 188)));  // 60 above the middle, 60 below it
  const auto sigmoid = [](double logit) { return 1 / (1 + std::exp(-logit)); };
  EXPECT_NEAR(json("classify-person red.png").at("probability"), sigmoid(6), 1e-5);
  EXPECT_EQ(out("classify-person red.png"), "0.997527\n");

  // Several pictures and boxes; one that cannot be read keeps none of the others from being done.
  const std::string call = "classify-face halves.png nothing.png middle.png --box 0,0,60,60";
  const CommandResult several = kelnn(call + " --box 4,4,60,60 --json");
  EXPECT_EQ(several.exit_code, 1);
  EXPECT_THAT(several.err, HasSubstr("kelnn: nothing.png: No such file"));
  std::istringstream lines(several.out);
  std::string found;
  for (std::string line; std::getline(lines, line);) {
    const Json json = Json::parse(line);
    found += json.at("input").get<std::string>() + " " + json.at("x").dump() + " " +
             json.at("class").dump() + "\n";
    EXPECT_NEAR(json.at("score"), sigmoid(json.at("class") == 1 ? 2 : 10), 1e-5);
  }
  EXPECT_EQ(found, "halves.png 0 0\nhalves.png 4 0\nmiddle.png 0 1\nmiddle.png 4 1\n");
  EXPECT_EQ(json("classify-face halves.png --box 105,0,90,90").at("class"), 2);
  EXPECT_THAT(out("classify-face halves.png middle.png --box 2,1,60,60"),
              HasSubstr("middle.png, x 2, y 1, 60 x 60:\nclass 1  score 0.88"));
}

}  // namespace
