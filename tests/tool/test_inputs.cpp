// SPDX-License-Identifier: Apache-2.0
// What goes into kelnn: directories, lists, raw frames, parts of recordings, streams, the sound of videos; and what is
// told of inputs that would mislead.
#include <opencv2/imgproc.hpp>

#include "support/command_test.h"

namespace {

using namespace kelnn_test;

const cv::Size kSceneSize(640, 360);

class Inputs : public CommandTest {
 protected:
  // Inputs that were looked at.
  std::vector<std::string> seen(const std::string& arguments, const std::string& input = "") const {
    const CommandResult result = kelnn(arguments + " --json", input);
    EXPECT_EQ(result.exit_code, 0) << result.err;
    std::vector<std::string> names;
    std::istringstream stream(result.out);
    for (std::string line; std::getline(stream, line);) {
      const Json json = Json::parse(line);
      names.push_back(json.at("input"));
    }
    return names;
  }
  // A red patch that goes a cell to the right with each frame.
  void save_moving(const std::string& name, int count) const {
    save_video(name, kSceneSize, count, [](int i, cv::Mat* frame) {
      paint(frame, on_grid(kSceneSize, {kRed, 3 + i, 3}), kRed);
    });
  }
};

using InputNames = std::vector<std::string>;

TEST_F(Inputs, AreFilesDirectoriesAndLists) {
  for (const char* name :
       {"d/a.PNG", "d/b.png", "d/.hidden.png", "d/in/c.jpg", "e.png", "odd name.png"}) {
    save(name, grey_frame({64, 48}));
  }
  save_video("d/in/v.avi", {64, 48}, 5, [](int, cv::Mat*) {});
  write("d/labels.csv", "file\n");
  fs::create_directory_symlink(path("d"), path("d/in/circle"));
  fs::create_directory(path("none"));
  const InputNames all = {"d/a.PNG", "d/b.png", "d/in/c.jpg"};
  EXPECT_EQ(seen("feature --aligned d"), all);
  EXPECT_EQ(seen("persons d e.png --limit 1"),
            (InputNames{all[0], all[1], all[2], "d/in/v.avi", "e.png"}));
  EXPECT_EQ(seen("feature --aligned d --glob [ab].* e.png"), (InputNames{all[0], all[1], "e.png"}));
  EXPECT_EQ(seen("motion d d/in/v.avi --period 5"), (InputNames{"d/in/v.avi", "d/in/v.avi"}));
  EXPECT_EQ(seen("feature --aligned e.png -", "odd name.png\nd/in\n"),
            (InputNames{"e.png", "odd name.png", all[2]}));
  EXPECT_EQ(seen("feature --aligned -0", std::string("e.png\0odd name.png\0", 19)),
            (InputNames{"e.png", "odd name.png"}));
  const CommandResult none = kelnn("faces none e.png");
  EXPECT_EQ(none.exit_code, 1);
  EXPECT_EQ(none.out, "e.png, 64 x 48: 0 found\n");
  EXPECT_THAT(none.err, HasSubstr("none: a directory without anything to take"));
  expect_refused({{"faces -", 1, "standard input: not one name"}, {"faces -0", 1, "not one name"}});
}

TEST_F(Inputs, RawFramesAreTheSameFromAPipe) {
  save_moving("moving.avi", 6);
  cv::VideoCapture video(path("moving.avi"));
  std::string bgr, nv12;
  for (cv::Mat frame; video.read(frame);) {
    bgr.append(frame.ptr<char>(), frame.total() * 3);
    cv::Mat planes;
    cv::cvtColor(frame, planes, cv::COLOR_BGR2YUV_I420);
    const auto* bytes = planes.ptr<char>();
    const size_t luma = frame.total();
    nv12.append(bytes, luma);
    for (size_t i = 0; i < luma / 4; ++i) nv12 += {bytes[luma + i], bytes[luma + luma / 4 + i]};
  }
  const std::string boxes = out("persons moving.avi");
  const auto places = [](std::string text, const std::string& name) {
    for (size_t at; (at = text.find(name)) != std::string::npos;) text.replace(at, name.size(), "");
    return text;
  };
  const std::string raw = " --raw bgr:640x360@10";
  EXPECT_EQ(places(kelnn("persons -" + raw, bgr).out, "- frame"),
            places(boxes, "moving.avi frame"));
  write("frames.bgr", bgr);
  EXPECT_EQ(places(out("persons frames.bgr" + raw), "frames.bgr"), places(boxes, "moving.avi"));
  EXPECT_EQ(kelnn("persons --raw nv12:640x360 -", nv12).out.find(": 0 found"), std::string::npos);
  EXPECT_THAT(kelnn("motion --period 6 --raw nv12:640x360 -", nv12).out,
              HasSubstr("frame 5 at 0.200 s"));
  const CommandResult cut = kelnn("persons -" + raw, bgr.substr(0, bgr.size() - 1));
  EXPECT_EQ(cut.exit_code, 1);
  EXPECT_THAT(cut.err, HasSubstr("-: damaged or cut off, 5 frames were read"));
  // A pipe that nobody writes to any more: the end may be asked for, and a failure ends it.
  // (Without --foreground timeout would send the signal twice, and the second one ends at once.)
  const auto stalled = [this](const std::string& call, const std::string& wish) {
    return run(
        {"/bin/sh", "-c",
         "rm -f pipe; mkfifo pipe; timeout --foreground 20 env --default-signal=INT \"$0\" " +
             call + " --raw grey:64x48 <pipe >seen & exec 3>pipe; head -c 4000 /dev/zero >&3; " +
             wish + "wait $!",
         KEL_NN_TEST_PROGRAM});
  };
  const CommandResult ended =
      stalled("persons -", "until [ -s seen ]; do sleep 0.1; done; kill -INT $!; ");
  EXPECT_EQ(ended.exit_code, 130);
  EXPECT_EQ(ended.err, "kelnn: -: interrupted after frame 0\n");
  EXPECT_EQ(stalled("persons - --root none", "").exit_code, 1);
  const std::string endless = "nv12:64x48@1." + std::string(100000, '5');
  for (const char* wrong :
       {"nv12", "yuy2:64x48", "nv12:64", "nv12:64x", "nv12:0x48", "rgb:64x48@0", endless.c_str()}) {
    expect_refused({{std::string("motion - --raw ") + wrong, 2, "is not PIXELS:WIDTHxHEIGHT"}});
  }
}

TEST_F(Inputs, APartOfARecordingIsAskedForByItsTime) {
  save_moving("moving.avi", 12);
  cv::VideoWriter tall(path("between.mp4"), cv::VideoWriter::fourcc('m', 'p', '4', 'v'), 10,
                       kSceneSize);
  for (int i = 0; i < 40; ++i)
    tall.write(grey_frame(kSceneSize));  // a frame in twelve stands alone
  tall.release();
  const struct {
    const char* call;
    int first, step, count;
  } cases[] = {{"moving.avi --start 0.3", 3, 1, 9},
               {"moving.avi --start 0.3 --duration 0.4", 3, 1, 4},
               {"moving.avi --duration 0.25", 0, 1, 3},
               {"moving.avi --start 0.3 --every 4", 3, 4, 3},
               {"between.mp4 --start 2.9 --duration 0.3", 29, 1, 3}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.call);
    const std::vector<Json> found = lines(std::string("persons ") + c.call);
    ASSERT_EQ(found.size(), static_cast<size_t>(c.count));
    for (int i = 0; i < c.count; ++i) {
      const int frame = c.first + i * c.step;
      EXPECT_EQ(found[static_cast<size_t>(i)].at("frame"), frame);
      EXPECT_NEAR(found[static_cast<size_t>(i)].at("time"), frame / kFramesPerSecond, 1e-3);
    }
  }
  EXPECT_EQ(json("persons moving.avi --start 0.5 --limit 1").at("boxes"),
            lines("persons moving.avi").at(5).at("boxes"));
  expect_refused({{"persons moving.avi --start 9", 1, "moving.avi: ends before 9 s"},
                  {"persons moving.avi --start nan", 2, "is not a number of seconds"}});
}

TEST_F(Inputs, WhatWouldMisleadIsAnErrorOrGoesOnWhenThatIsWanted) {
  save_video("brief.avi", {64, 48}, 10, [](int, cv::Mat*) {});
  save("p.jpg", grey_frame({640, 480}));
  save("p.png", grey_frame({640, 480}));
  save_moving("moving.avi", 6);
  for (const char* name : {"moving.avi", "p.jpg", "p.png"}) {
    const std::string whole = text(name);
    write(std::string("half_") + name, whole.substr(0, whole.size() * 6 / 10));
  }
  const struct {
    const char* call;
    const char* told;
  } cases[] = {{"faces half_p.jpg", "half_p.jpg: damaged or cut off"},
               {"feature --aligned half_p.jpg", "half_p.jpg: damaged or cut off"},
               {"compare --aligned p.jpg half_p.jpg", "half_p.jpg: damaged or cut off"},
               {"faces half_moving.avi", "cut off, "},
               {"motion brief.avi", "brief.avi: 10 frames, fewer than a period of 25"},
               {"motion brief.avi --sweep --periods 5,25 --ratios 1", "fewer than a period of 25"},
               {"watch brief.avi", "brief.avi: 10 frames, fewer than a period of 25"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.call);
    const CommandResult strict = kelnn(c.call), lenient = kelnn(std::string(c.call) + " --lenient");
    EXPECT_EQ(strict.exit_code, 1);
    EXPECT_THAT(strict.err, AllOf(HasSubstr(c.told), HasSubstr("; --lenient goes on\n")));
    EXPECT_EQ(lenient.exit_code, 0) << lenient.err;
    EXPECT_THAT(lenient.err, AllOf(HasSubstr(c.told), Not(HasSubstr("--lenient"))));
  }
  expect_refused({{"faces half_p.png --lenient", 1, "half_p.png: a picture that is damaged"}});
}

// ----- Sound of videos

TEST_F(Inputs, TheSoundOfAVideoIsHeardAsThatOfASoundFile) {
  std::string samples;
  std::mt19937 random(3);
  for (int i = 0; i < 16000 * 10; ++i) {
    const auto value = static_cast<int16_t>(random() % 8000 - 4000);
    samples.append(reinterpret_cast<const char*>(&value), 2);
  }
  write("film.avi", avi_of(samples));
  const std::string heard = kelnn("cry -", samples).out;
  const auto named = [&](std::string text) {
    for (size_t at = 0; (at = text.find("film.avi", at)) != std::string::npos;)
      text.replace(at, 8, "-");
    return text;
  };
  EXPECT_EQ(std::count(heard.begin(), heard.end(), '\n'), 4);  // with what is left over
  EXPECT_EQ(named(out("cry film.avi")), heard);
  EXPECT_EQ(lines("cry film.avi --start 3 --duration 6.5").at(1).at("probability"),
            lines("cry film.avi").at(2).at("probability"));
  EXPECT_EQ(lines("cry film.avi --start 1.5 --duration 3").at(0).at("end"), 4.5);
  // Several: a file each, in a directory; and the sweep of directories knows sounds.
  fs::create_directory(path("s"));
  fs::copy(path("film.avi"), path("s/b.avi"));
  fs::copy(path("film.avi"), path("s/a.mkv"));
  EXPECT_EQ(out("features s --csv tables"), "tables/a.mkv.csv\ntables/b.avi.csv\n");
  EXPECT_EQ(text("tables/a.mkv.csv"), text("tables/b.avi.csv"));
  write("text.wav", "no sound");
  expect_refused({{"cry text.wav", 1, "text.wav: no sound that can be read ("}});
}

// ----- Streams

TEST_F(Inputs, AStreamThatIsDroppedIsTakenUpAgain) {
  std::string frames;
  for (int i = 0; i < 20; ++i) {
    cv::Mat frame = grey_frame({64, 48});
    frame.setTo(cv::Scalar::all(i * 10));
    const std::string name = std::to_string(i) + ".jpg";
    save(name, frame);
    frames += " " + name;
  }
  save_moving("moving.avi", 6);
  const auto served = [&](const std::string& call) {
    return run({"/bin/sh", "-c",
                "rm -f port; mkfifo port; /usr/bin/python3 " KEL_NN_TEST_SUPPORT
                "/serve_frames.py" +
                    frames +
                    " >port & server=$!; read port other <port; at=http://127.0.0.1:$port; "
                    "rtsp=rtsp://127.0.0.1:$other; " +
                    call + "; code=$?; kill $server; exit $code",
                KEL_NN_TEST_PROGRAM});
  };
  for (const std::string camera : {"$at/live", "$rtsp/live"}) {
    SCOPED_TRACE(camera);
    const CommandResult live = served("\"$0\" faces " + camera + " --limit 25");
    EXPECT_EQ(live.exit_code, 0) << live.err;
    EXPECT_EQ(std::count(live.out.begin(), live.out.end(), '\n'), 25);
    EXPECT_THAT(live.out, HasSubstr("/live frame 24 at "));
    const size_t told = live.err.find("/live: the stream was dropped");
    EXPECT_NE(told, std::string::npos) << live.err;
    EXPECT_EQ(live.err.find("dropped", told + 30), std::string::npos) << "once";
  }
  const CommandResult heard = served("\"$0\" cry $at/sound --duration 9 --json");
  EXPECT_EQ(heard.exit_code, 0) << heard.err;
  EXPECT_EQ(std::count(heard.out.begin(), heard.out.end(), '\n'), 3) << heard.out;
  EXPECT_THAT(heard.err, HasSubstr("/sound: the stream was dropped"));
  // It waits, also for a server that takes the call and is silent; the end may be asked for.
  const CommandResult ended = served(
      "{ ask() { exec env --default-signal=INT \"$0\" faces \"$@\"; }; "
      "ask $at/live >seen & one=$!; ask 0.jpg $at/silence & other=$!; sleep 3; "
      "kill -INT $one $other; wait $one; echo $?; wait $other; echo $?; }");
  EXPECT_EQ(ended.out, "0.jpg, 64 x 48: 0 found\n130\n130\n") << ended.err;
  EXPECT_THAT(ended.err, HasSubstr("/silence: no stream that can be read (interrupted)"));
  // A file that a server has ends; what is not there is told.
  const CommandResult file = served("\"$0\" persons $at/moving.avi");
  EXPECT_EQ(file.exit_code, 0) << file.err;
  EXPECT_EQ(std::count(file.out.begin(), file.out.end(), '\n'), 12);
  EXPECT_THAT(served("\"$0\" faces $at/nothing").err, HasSubstr("404"));
  EXPECT_THAT(kelnn("faces rtsp://127.0.0.1:1/").err,
              HasSubstr("rtsp://127.0.0.1:1/: no stream that can be read (Connection refused)"));
  // A file of such a name is a file.
  save("http:/odd.png", grey_frame({64, 48}));
  EXPECT_EQ(out("faces http://odd.png"), "http://odd.png, 64 x 48: 0 found\n");
}

}  // namespace
