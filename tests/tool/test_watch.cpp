// SPDX-License-Identifier: Apache-2.0
// kelnn watch: tracks, events of what is seen and heard, and where they go.
#include <algorithm>

#include "assignment.h"
#include "event_command.h"
#include "kel_nn_model_files.h"
#include "support/command_test.h"
#include "support/model_directory.h"
#include "tracker.h"

namespace {

using namespace kelnn_test;
using Watching = CommandTest;

// ----- Who goes with whom

double worth_of(const std::vector<std::vector<double>>& worth, const std::vector<int>& pairs) {
  double sum = 0;
  for (size_t i = 0; i < pairs.size(); ++i) {
    if (pairs[i] >= 0) sum += worth[i][static_cast<size_t>(pairs[i])];
  }
  return sum;
}

TEST(Assignment, IsWorthAsMuchAsTheBestOfAllPermutations) {
  std::mt19937 random(11);
  for (int trial = 0; trial < 500; ++trial) {
    const size_t rows = random() % 6, columns = random() % 6, side = std::max(rows, columns);
    std::vector<std::vector<double>> worth(rows, std::vector<double>(columns));
    for (auto& row : worth) {  // few values, so that many are alike, and many are nothing
      for (double& value : row) value = std::max(0, static_cast<int>(random() % 8) - 3);
    }
    std::vector<size_t> order(side);
    std::iota(order.begin(), order.end(), 0);
    double best = 0;
    do {
      double sum = 0;
      for (size_t i = 0; i < rows; ++i) sum += order[i] < columns ? worth[i][order[i]] : 0;
      best = std::max(best, sum);
    } while (std::next_permutation(order.begin(), order.end()));
    std::vector<int> pairs = kelnn_cli::best_pairs(worth);
    ASSERT_EQ(pairs.size(), rows);
    ASSERT_EQ(worth_of(worth, pairs), best) << trial;
    for (size_t i = 0; i < rows; ++i) {
      if (pairs[i] >= 0) {
        EXPECT_GT(worth[i][static_cast<size_t>(pairs[i])], 0);
      }
    }
    std::sort(pairs.begin(), pairs.end());
    for (size_t i = 1; i < rows; ++i) EXPECT_TRUE(pairs[i] < 0 || pairs[i] != pairs[i - 1]);
  }
}

// ----- Tracks

const cv::Size kField(1000, 300);

// A box of 40 x 100 that walks; 10 frames a second.
kel_nn::Detection walker(double x, double speed, int frame, int class_id = 0) {
  return {{static_cast<int>(std::lround(x + speed * frame)), 100, 40, 100}, 0.9f, class_id};
}

TEST(Tracker, KeepsIdsThroughCrossingsAndGapsAndNoneForWhatFlickers) {
  kelnn_cli::Tracker tracker;
  std::vector<int64_t> entered;
  for (int frame = 0; frame < 60; ++frame) {
    SCOPED_TRACE(frame);
    // Two persons go through each other, of whom one sees nothing of the other for half a second; a face rides on the first.
    std::vector<kel_nn::Detection> found = {walker(0, 8, frame, 1), walker(0, 8, frame)};
    const bool is_hidden = frame >= 25 && frame < 32;
    if (!is_hidden) found.push_back(walker(470, -8, frame));
    if (frame % 17 == 5) found.push_back(walker(900, 0, 0));  // is never there twice in a row
    const auto changes = tracker.take(found, frame / 10.0, kField);
    for (const auto& track : changes.entered) entered.push_back(track.id);
    ASSERT_EQ(changes.ids.size(), found.size());
    EXPECT_TRUE(changes.left.empty());
    if (frame < 2) {
      EXPECT_THAT(changes.ids, testing::Each(0));
    }
    if (frame < 2) continue;
    EXPECT_EQ(changes.ids[0], 1);
    EXPECT_EQ(changes.ids[1], 2);
    if (!is_hidden) {
      EXPECT_EQ(changes.ids[2], 3);
    }
    if (frame % 17 == 5) {
      EXPECT_EQ(changes.ids.back(), 0);
    }
  }
  EXPECT_THAT(entered, ElementsAre(1, 2, 3));
  EXPECT_EQ(tracker.finish().size(), 3u);
  EXPECT_TRUE(tracker.finish().empty());
}

TEST(Tracker, OneThatGoesOutHasLeftAndIsNotTheNextWhoComesInThere) {
  kelnn_cli::Tracker tracker;
  std::vector<std::string> told;
  for (int frame = 0; frame < 60; ++frame) {
    kel_nn::Detection one = frame < 25 ? walker(700, 15, frame) : walker(1360, -15, frame);
    one.box.w = std::min(40, kField.width - one.box.x);
    kel_nn::Detection part = one;  // is found as well, and is nobody else
    part.box.h = 60;
    part.score = 0.6f;
    std::vector<kel_nn::Detection> found;
    if (one.box.w > 0) found = {one, part};
    const auto changes = tracker.take(found, frame / 10.0, kField);
    for (const auto& track : changes.entered) told.push_back("in " + std::to_string(track.id));
    for (const auto& track : changes.left) told.push_back("out " + std::to_string(track.id));
  }
  EXPECT_THAT(told, ElementsAre("in 1", "out 1", "in 2"));
}

TEST(Tracker, WhatIsNotFoundHasLeftWhenPatienceEndsAndWhatRestsStays) {
  kelnn_cli::Tracker tracker;
  double time = 0;
  const auto pass = [&](int frames, const std::vector<kel_nn::Detection>& found,
                        bool is_looked_at) {
    std::vector<kelnn_cli::Track> left;
    for (int i = 0; i < frames; ++i) {
      time += 0.1;
      for (const auto& track :
           is_looked_at ? tracker.take(found, time, kField).left : tracker.rest(time))
        left.push_back(track);
    }
    return left;
  };
  const kel_nn::Detection one = walker(0, 0, 0), other = walker(300, 0, 0);
  EXPECT_TRUE(pass(10, {one, other}, true).empty());
  EXPECT_TRUE(pass(10, {one}, true).empty());  // the other one is missing
  const auto left = pass(15, {}, false);       // and while nobody looks it has gone
  ASSERT_EQ(left.size(), 1u);
  EXPECT_EQ(left[0].id, 2);
  EXPECT_NEAR(left[0].last_seen - left[0].first_seen, 0.9, 1e-9);
  EXPECT_TRUE(pass(36000, {}, false).empty());  // an hour of stillness
  const auto changes =
      tracker.take({walker(40, 0, 0)}, time, kField);  // has moved before anybody looked
  EXPECT_THAT(changes.ids, ElementsAre(1));
  const auto last = pass(30, {}, true);
  ASSERT_EQ(last.size(), 1u);
  EXPECT_NEAR(last[0].last_seen - last[0].first_seen, 0.9 + 1 + 1.5 + 3600, 1e-6);
  EXPECT_EQ(tracker.take({one}, time + 0.1, kField).ids,
            std::vector<int64_t>{0});  // is somebody new
}

// ----- A command for events

TEST(EventCommand, IsGivenEachEventInTurnAndWhatIsWrongIsToldOnce) {
  const TemporaryDirectory directory;
  const std::string file = directory.file("given");
  const struct {
    std::string command;
    size_t most_waiting;
    std::vector<std::string> problems;
    std::string all;
  } cases[] = {
      {"cat >>" + file, 100, {}, ""},
      {"cat >>" + file + "; sleep 0.01", 100, {}, ""},
      {"exit 3",
       100,
       {"failed with exit code 3"},
       "0 were taken; 40 failed, 0 took too long, 0 were"},
      {"kill -9 $$", 100, {"was ended by signal 9"}, "0 were taken; 40 failed"},
      // The first is ended with what it has started, and those that came meanwhile were not waited for.
      {"cat >>" + file + "; sleep 1000 & wait",
       3,
       {"3 events are waiting; others are left out", "took longer than 0.5 s and was ended"},
       "of 40 events 0 were taken; 0 failed, "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.command);
    fs::remove(file);
    kelnn_cli::EventCommand command(
        c.command, {std::chrono::milliseconds(c.most_waiting < 10 ? 500 : 60000), c.most_waiting});
    std::string given;
    for (int i = 0; i < 40; ++i) {
      command.give(std::to_string(i));
      given += std::to_string(i) + "\n";
    }
    const std::string all = command.finish();
    const std::vector<std::string> problems = command.problems();
    ASSERT_EQ(problems.size(), c.problems.size()) << (problems.empty() ? "" : problems.back());
    for (size_t i = 0; i < problems.size(); ++i)
      EXPECT_EQ(problems[i], "--on-event " + c.command + ": " + c.problems[i]);
    EXPECT_THAT(all, HasSubstr(c.all));
    if (c.all.empty()) {
      EXPECT_EQ(all, "");
      EXPECT_EQ(text_of(file), given);
    }
  }
}

// ----- The command

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

TEST_F(Watching, DetectsFromMotionUntilStillness) {
  save_video("scene.avi", {832, 512}, 40, paint_scene);
  std::vector<int> frames;
  std::vector<std::string> events;
  for (const Json& line :
       lines("watch scene.avi --period 5 --ratio 1 --draw drawn.avi --vtt w.vtt --save-crops c")) {
    const int frame = line.at("frame");
    SCOPED_TRACE(frame);
    if (line.contains("event")) {
      events.push_back(line.at("event").get<std::string>() + " " + std::to_string(frame));
      EXPECT_EQ(line.at("name"), line.at("track") == 1 ? "person" : "face");
      if (line.at("event") == "left") {
        EXPECT_NEAR(line.at("dwell"), 1.5, 1e-6);
      }  // it rests to the end
      continue;
    }
    frames.push_back(frame);
    EXPECT_EQ(line.contains("motion"), frame % 5 == 4);
    const bool is_awake = frame >= 24 && frame < 34;
    ASSERT_EQ(line.contains("boxes"), is_awake);
    if (!is_awake) continue;
    ASSERT_EQ(line.at("boxes").size(), 2u);
    const Json &person = line.at("boxes")[0], &face = line.at("boxes")[1];
    EXPECT_EQ(person.at("name"), "person");
    EXPECT_EQ(face.at("name"), "face");
    EXPECT_EQ(person.value("track", 0), frame < 26 ? 0 : 1);
    EXPECT_EQ(face.value("track", 0), frame < 26 ? 0 : 2);
    EXPECT_NEAR(person.at("x"), kCell * person_column(frame), 4);
    EXPECT_NEAR(person.at("y"), 288, 4);
    EXPECT_NEAR(face.at("x"), 16.5 * kFaceCellWidth, 4);
    EXPECT_NEAR(face.at("y"), 4.75 * kFaceCellHeight, 4);
    EXPECT_NEAR(face.at("pose")[0], 76 - 128, 4);  // red as grey: 77 * 255 / 256
    EXPECT_EQ(face.at("points").size(), 5u);
    const std::vector<double> feature = face.at("feature");
    ASSERT_EQ(feature.size(), 256u);
    EXPECT_NEAR(std::inner_product(feature.begin(), feature.end(), feature.begin(), 0.0), 1, 1e-3);
  }
  EXPECT_THAT(frames, ElementsAre(4, 9, 14, 19, 24, 25, 26, 27, 28, 29, 30, 31, 32, 33, 34, 39));
  EXPECT_THAT(events, ElementsAre("entered 26", "entered 26", "left 39", "left 39"));
  EXPECT_EQ(cv::VideoCapture(path("drawn.avi")).get(cv::CAP_PROP_FRAME_COUNT), 40);
  EXPECT_EQ(text("w.vtt"), "WEBVTT\n\n00:00:02.400 --> 00:00:03.400\nface, person\n");
  EXPECT_EQ(file_count("c"), 20u);
  for (const Json& line : lines("watch scene.avi --always --only face --limit 2")) {
    ASSERT_EQ(line.at("boxes").size(), 1u);
    EXPECT_EQ(line.at("boxes")[0].at("name"), "face");
  }
}

TEST_F(Watching, LeavesOutTasksWithoutAModelWithOneNoteEach) {
  const std::string model = kelnn::kFaceDetectionModel;
  write("few/" + model, text("models/" + model));
  save_video("scene.avi", {832, 512}, 6, paint_scene);
  const CommandResult result = kelnn("watch scene.avi --always --limit 3 --root few");
  EXPECT_EQ(result.exit_code, 0) << result.err;
  EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 8) << result.out;
  EXPECT_THAT(
      result.out,
      AllOf(HasSubstr("scene.avi frame 2 at 0.200 s, 832 x 512: 1 found\n  face 1.00"),
            HasSubstr("at 0.200 s: entered: face, track 1\n"),
            HasSubstr("at 0.200 s: left: face, track 1, after 0.2 s\n"), Not(HasSubstr("person"))));
  for (const std::string what : {"persons", "landmarks", "face features"}) {
    const std::string note = "kelnn: " + what + " are left out: ";
    const size_t first = result.err.find(note);
    ASSERT_NE(first, std::string::npos) << note;
    EXPECT_EQ(result.err.find(note, first + 1), std::string::npos) << note;
  }
  const std::string persons = kelnn::kPersonDetectionLandscapeModel;
  fs::create_symlink(persons, path("few/" + persons));  // what cannot be looked at may be there
  EXPECT_THAT(kelnn("watch scene.avi --always --root few").err,
              HasSubstr("Too many levels of symbolic links"));
}

TEST_F(Watching, HearsACryOnTheTrackOfTheVideoWhileItPlays) {
  std::vector<cv::Mat> frames(95, grey_frame({64, 48}));
  write("film.avi", avi_of(pcm_of(beeps(kLowHz, 3)) + pcm_of(beeps(kHighHz, 6.5)), frames));
  std::vector<std::string> told;
  for (const Json& line : lines("watch film.avi --period 20 --csv t.csv")) {
    if (line.contains("event")) {
      EXPECT_EQ(line.at("event"), "cry");
      EXPECT_GT(line.at("probability"), 0.5);
      told.push_back("cry " + line.at("frame").dump());
    } else if (line.at("sound").contains("probability")) {
      told.push_back(line.at("frame").dump() +
                     (line.at("sound").at("probability") > 0.5 ? " high" : " low"));
    }
  }
  EXPECT_THAT(told, ElementsAre("29 low", "cry 59", "59 high", "89 high"));
  EXPECT_THAT(text("t.csv"), HasSubstr("film.avi,59,5.9,,,,cry,"));
  EXPECT_THAT(out("watch film.avi --start 3 --duration 3.5 --period 20"),
              HasSubstr("film.avi frame 59 at 5.900 s: cry 0.99"));
}

TEST_F(Watching, RecognisesWhoIsKnownOnceATrack) {
  const cv::Size size(640, 360);
  save_video("door.avi", size, 8, [&](int, cv::Mat* frame) {
    paint(frame, on_face_level(size, {kRed, 4, 11}), kRed);
    paint(frame, on_face_level(size, {kBlue, 3, 1}), kBlue);
  });
  cv::Mat alone = grey_frame(size);
  paint(&alone, on_face_level(size, {kRed, 4, 11}), kRed);
  save("red.png", alone);
  out("enroll anna red.png --gallery g.db");
  std::vector<std::string> told;
  for (const Json& line : lines("watch door.avi --always --gallery g.db --threshold 0.9")) {
    if (line.contains("who")) {
      EXPECT_GT(line.at("similarity"), 0.9);
      told.push_back(line.at("event").get<std::string>() + " " + line.at("frame").dump() + " " +
                     line.at("who").get<std::string>());
    }
    if (!line.contains("boxes")) continue;
    int known = 0;
    for (const Json& box : line.at("boxes")) known += box.contains("who");
    EXPECT_EQ(known, 1);
  }
  EXPECT_THAT(told, ElementsAre("recognised 2 anna"));
  expect_refused({{"watch door.avi --gallery none.db", 1, "none.db: there is no gallery"}});
}

// Grey noise, which does not compress, and a cry in the fifth window of 3 s and in each fourth one after it.
std::string nights_of(int windows) {
  std::string samples;
  for (int i = 0; i < windows; ++i)
    samples += pcm_of(beeps(i % 4 == 0 && i > 0 ? kHighHz : kLowHz, 3));
  std::vector<cv::Mat> frames;
  cv::RNG random(5);
  for (int i = 0; i < 30 * windows; ++i) {
    frames.emplace_back(96, 128, CV_8UC3);
    random.fill(frames.back(), cv::RNG::UNIFORM, 0, 256);
  }
  return avi_of(samples, frames);
}

TEST_F(Watching, ClipsHaveTheSecondsAroundAnEventAndStayWithinTheirLimit) {
  write("night.avi", nights_of(14));
  write("clips/mine.mp4", std::string(3000000, 'x'));  // is none of them
  write("clips/.kelnn-1", "left by one that was killed");
  fs::last_write_time(path("clips/.kelnn-1"),
                      fs::file_time_type::clock::now() - std::chrono::hours(1));
  std::vector<std::string> told;
  for (const Json& line :
       lines("watch night.avi --ratio 100 --clips clips --on-event cat>>given")) {
    if (!line.contains("event")) continue;
    told.push_back(line.at("event").get<std::string>() + " " + line.at("frame").dump());
    EXPECT_EQ(line.at("clip"), "clips/night.avi-000" +
                                   std::string(line.at("frame") <= 200   ? "149"
                                               : line.at("frame") <= 320 ? "269"
                                                                         : "389") +
                                   ".clip.mp4");
  }
  EXPECT_THAT(told,
              ElementsAre("cry 149", "clip 200", "cry 269", "clip 320", "cry 389", "clip 419"));
  std::string given = text("given");
  EXPECT_EQ(std::count(given.begin(), given.end(), '\n'), 6);
  EXPECT_THAT(given, HasSubstr("{\"event\":\"clip\",\"input\":\"night.avi\",\"frame\":419,"));
  cv::VideoCapture clip(path("clips/night.avi-000269.clip.mp4"));
  EXPECT_EQ(clip.get(cv::CAP_PROP_FRAME_COUNT), 101);
  EXPECT_EQ(clip.get(cv::CAP_PROP_FPS), 10);
  cv::Mat first;
  ASSERT_TRUE(clip.read(first));
  cv::VideoCapture night(path("night.avi"));
  cv::Mat frame;
  for (int i = 0; i <= 219; ++i) night.read(frame);
  EXPECT_LT(cv::norm(first, frame, cv::NORM_L1) / static_cast<double>(first.total()),
            60);  // 3 channels of noise
  EXPECT_FALSE(fs::exists(path("clips/.kelnn-1")));

  out("watch night.avi --ratio 100 --clips clips --clips-limit 1 --quiet");
  EXPECT_EQ(file_count("clips"), 2u);  // the youngest
  EXPECT_TRUE(fs::exists(path("clips/mine.mp4")));
  EXPECT_TRUE(fs::exists(path("clips/night.avi-000389.clip.mp4")));
  expect_refused(
      {{"watch clips/mine.mp4 --clips clips", 2, "the input clips/mine.mp4 is in it"},
       {"watch night.avi --clips c --clips-limit 0", 2, "\"0\" is not a number of megabytes"}});
}

}  // namespace
