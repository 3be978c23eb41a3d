// SPDX-License-Identifier: Apache-2.0
// kelnn eval on pictures, from labels.csv to figures, over the networks of make_test_networks.py: what
// they find is known, so the labels decide the figures.

#include "support/command_test.h"

namespace {

using namespace kelnn_test;

constexpr double kTolerance = 1e-9;
const cv::Size kLandscape(416, 256), kSquare(320, 320), kPortrait(256, 416);  // the network's own

std::string row(const std::string& file, int class_id, const cv::Rect2d& box) {
  std::ostringstream text;
  text << file << "," << class_id << "," << box.x << "," << box.y << "," << box.width << ","
       << box.height;
  return text.str();
}

class EvalCommand : public CommandTest {
 protected:
  void save_patches(const std::string& name, cv::Size size, const std::vector<Patch>& patches) {
    cv::Mat picture = grey_frame(size);
    for (const Patch& patch : patches) paint(&picture, on_grid(size, patch), patch.colour);
    save("data/" + name, picture);
  }
  void save_grey(const std::string& name, cv::Size size, int level) {
    save("data/" + name, cv::Mat(size, CV_8UC1, cv::Scalar(level)));
  }
  void label(const std::vector<std::string>& rows, const std::string& line_end = "\n") {
    std::string text;
    for (const std::string& row : rows) text += row + line_end;
    write("data/labels.csv", text);
  }
  // Any of them may be required: only the labels are missing then.
  Json figures(const std::string& task) {
    const Json found = json("eval " + task + " --data data");
    std::string call = "eval " + task + " --data none";
    for (const auto& [name, value] : found.items()) {
      if (value.is_number() || value.is_null()) call += " --require " + name + ">=0";
    }
    expect_refused({{call, 1, "none/labels.csv: No such file"}});
    return found;
  }
  // That they are near these, and null where these are.
  void expect_figures(const Json& figures, const Json& expected, double tolerance = kTolerance) {
    for (const auto& [name, value] : expected.items()) {
      SCOPED_TRACE(name);
      if (value.is_number() && figures.at(name).is_number()) {
        EXPECT_NEAR(figures.at(name), value, tolerance);
      } else {
        EXPECT_EQ(figures.at(name), value);
      }
    }
  }
};

const char kBoxes[] = "file,class,x,y,w,h";

// ----- Detectors

// The dimmer a patch, the lower its score: 255 gives 0.999, 253 0.993, 251 0.953.
const cv::Scalar kDimRed(0, 0, 253), kDimmerRed(0, 0, 251);

TEST_F(EvalCommand, FiguresOfPersonsFollowFromTheLabels) {
  const Patch first = {kRed, 3, 3}, nobody = {kDimRed, 8, 3}, third = {kDimmerRed, 4, 4};
  save_patches("a.png", kLandscape, {first, nobody});
  save_patches("b.png", kPortrait, {third});
  save_patches("c.png", kLandscape, {});
  save_patches("more/d.png", kSquare, {});
  std::vector<std::string> rows = {kBoxes, row("a.png", 0, on_grid(kLandscape, first)),
                                   row("b.png", 0, on_grid(kPortrait, third)), "c.png,,,,,",
                                   row("more/d.png", 0, {100, 100, 50, 80.5})};
  label(rows);
  const CommandResult result =
      kelnn("eval person-detection --data data --draw data/drawn/ --json -v");
  ASSERT_EQ(result.exit_code, 0) << result.err;
  // By score: right, wrong, right; of three. Precision 1 at recall 1/3, 2/3 at 2/3.
  expect_figures(Json::parse(result.out), {{"task", "person-detection"},
                                           {"pictures", 4},
                                           {"labelled", 3},
                                           {"found", 3},
                                           {"matches", 2},
                                           {"mean_average_precision", (1 + 2 / 3.) / 3},
                                           {"precision", 2 / 3.},
                                           {"recall", 2 / 3.},
                                           {"false_detections_per_picture", 1 / 4.}});
  EXPECT_GT(Json::parse(result.out).at("mean_iou"), 0.9);
  size_t loads = 0;  // once for each orientation
  for (size_t at = 0; (at = result.err.find("model: ", at)) != std::string::npos; ++at) ++loads;
  EXPECT_EQ(loads, 3u) << result.err;

  // The worst are drawn first: the label that nothing was found for, in another colour than what was found.
  const cv::Mat worst = picture("data/drawn/002_more_d.png");
  const cv::Mat best = picture("data/drawn/003_b.png");
  ASSERT_EQ(worst.size(), kSquare);
  ASSERT_EQ(picture("data/drawn/001_a.png").size(), kLandscape);
  ASSERT_EQ(best.size(), kPortrait);
  const cv::Rect2d box = on_grid(kPortrait, third);
  const cv::Vec3b label_colour = worst.at<cv::Vec3b>(140, 100);
  const cv::Vec3b found = best.at<cv::Vec3b>(cvRound(box.y + 40), cvRound(box.x));
  EXPECT_NE(label_colour, cv::Vec3b(60, 60, 60));
  EXPECT_NE(found, label_colour);
  EXPECT_NE(found, cv::Vec3b(0, 0, 251));

  // Processes, of which some meet another orientation first, come to the same report and tell the same failure.
  EXPECT_EQ(out("eval person-detection --data data --jobs 3 --json"), result.out);
  write("data/e.png", "no picture");
  rows.push_back("e.png,,,,,");
  label(rows);
  const CommandResult alone = kelnn("eval person-detection --data data");
  const CommandResult shared = kelnn("eval person-detection --data data --jobs 2");
  EXPECT_THAT(shared.err, HasSubstr("data/e.png"));
  EXPECT_EQ(shared.err, alone.err);
  EXPECT_EQ(shared.exit_code, 1);
  rows.pop_back();

  // The same for rows in another order, and ended as another system does.
  std::reverse(rows.begin() + 1, rows.end());
  rows[0] = std::string("\xef\xbb\xbf") + kBoxes;
  label(rows, "\r\n");
  EXPECT_EQ(out("eval person-detection --data data --json"), result.out);

  // What lies in an ignored box counts neither way, unless it matches.
  rows.push_back("a.png,ignore,0,0,640,360");
  label(rows);
  expect_figures(figures("person-detection"), {{"labelled", 3},
                                               {"found", 2},
                                               {"matches", 2},
                                               {"mean_average_precision", 2 / 3.},
                                               {"false_detections_per_picture", 0}});
  rows.back() = "a.png,ignore,0,0,640,1";
  label(rows);
  expect_figures(figures("person-detection"), {{"found", 3}, {"labelled", 3}});
}

TEST_F(EvalCommand, ObjectsAreMatchedClassByClass) {
  const Patch red = {kRed, 2, 3}, green = {kGreen, 9, 4}, blue = {kBlue, 12, 8};  // classes 1, 3, 2
  save_patches("a.png", kLandscape, {red, green, blue});
  label({kBoxes, row("a.png", 1, on_grid(kLandscape, red)),
         row("a.png", 0, on_grid(kLandscape, green)), row("a.png", 2, on_grid(kLandscape, blue))});
  const Json json = figures("four-class-detection");
  expect_figures(json, {{"matches", 2}, {"mean_average_precision", 2 / 3.}});
  const Json& classes = json.at("classes");
  ASSERT_EQ(classes.size(), 4u);
  const Json none;
  expect_figures(classes[0], {{"average_precision", 0}, {"precision", none}});
  expect_figures(classes[1], {{"average_precision", 1}});
  expect_figures(classes[2], {{"recall", 1}});
  expect_figures(classes[3], {{"found", 1}, {"precision", 0}, {"average_precision", none}});
}

TEST_F(EvalCommand, FacesAreFoundWhereTheyAre) {
  const cv::Size size(640, 480);
  const cv::Rect2d box = on_face_level(size, {kBlue, 2, 1});
  cv::Mat picture = grey_frame(size);
  paint(&picture, box, kBlue);
  save("data/a.png", picture);
  save("data/b.png", picture);
  // In the second one it is looked for elsewhere: a third of its width shared, an IoU of 1/2 at most.
  label({kBoxes, row("a.png", 0, box), row("b.png", 0, box + cv::Point2d(box.width * 0.67, 0))});
  expect_figures(figures("face-detection"), {{"found", 2}, {"matches", 1}, {"recall", 1 / 2.}});
}

// ----- Cut-outs

const char kPoints[] = "file,x1,y1,x2,y2,x3,y3,x4,y4,x5,y5";

// The network's points lie on the diagonal, at 0.1, 0.3, ... of the side, moved to the right by
// (level - 128) / 1000; the labels by so many pixels more.
std::string points_text(const cv::Rect& square, int level, double right, double down) {
  std::ostringstream text;
  for (int i = 0; i < 5; ++i) {
    text << "," << square.x + (0.1 + 0.2 * i + (level - 128) / 1000.) * square.width + right << ","
         << square.y + (0.1 + 0.2 * i) * square.height + down;
  }
  return text.str();
}

TEST_F(EvalCommand, PointErrorsAreSharesOfTheSide) {
  save_grey("a.png", {112, 112}, 228);
  save_grey("b.png", {300, 200}, 129);  // the square in the middle begins at column 50
  label({kPoints, "a.png" + points_text({0, 0, 112, 112}, 228, 0, 0),
         "b.png" + points_text({50, 0, 200, 200}, 129, 6, 8)});
  const Json none;
  expect_figures(figures("face-landmarks"),
                 {{"mean_point_error", 0.025},
                  {"nose_error", 0.025},
                  {"percentile_95_point_error", 0.05},
                  {"yaw_error", none}},
                 1e-6);

  // Brightness 129 is a yaw of 1, a pitch of 0.5 and a roll of 7: 57.30, 28.65 and 41.07 degrees.
  label({std::string(kPoints) + ",yaw,pitch,roll", "b.png" +
                                                       points_text({50, 0, 200, 200}, 129, 0, 0) +
                                                       ",60.2957795,27.6478898,-318.9295434"});
  expect_figures(json("eval face-landmarks --data data --draw drawn"),
                 {{"mean_point_error", 0}, {"yaw_error", 3}, {"pitch_error", 1}, {"roll_error", 0}},
                 1e-4);
  EXPECT_EQ(picture("drawn/001_b.png").rows, 600);
}

TEST_F(EvalCommand, FeaturesOfAllPairsAreCompared) {
  write("data/a.png", text_of(kPictures + "face_a.png"));
  write("data/face_a_distorted.png", text_of(kPictures + "face_a_distorted.png"));
  write("data/face \"b\", 1.png", text_of(kPictures + "face_b.png"));
  label({"file,person", "a.png,\"ann, the first\"", "\"face \"\"b\"\", 1.png\",bob",
         "\"face_a_distorted.png\",\"ann, the first\""});
  const auto compare = [&](const std::string& a, const std::string& b) {
    return std::stod(out("compare --aligned " + kPictures + a + " " + kPictures + b));
  };
  const double same = compare("face_a.png", "face_a_distorted.png"),
               different_a = compare("face_a.png", "face_b.png"),
               different_b = compare("face_a_distorted.png", "face_b.png");
  expect_figures(figures("face-features"),
                 {{"same_pairs", 1},
                  {"different_pairs", 2},
                  {"equal_error_rate", 0},
                  {"true_accept_rate", 1},
                  {"mean_same_similarity", same},
                  {"mean_different_similarity", (different_a + different_b) / 2},
                  {"equal_error_threshold", (same + std::max(different_a, different_b)) / 2}},
                 1e-6);
}

TEST_F(EvalCommand, ClassesAreCounted) {
  save_grey("dark.png", {112, 112}, 28);
  save_grey("middle.png", {60, 90}, 128);
  save_grey("bright.png", {112, 112}, 228);
  save("data/red.png", cv::Mat(112, 112, CV_8UC3, kRed));
  save("data/blue.png", cv::Mat(112, 112, CV_8UC3, kBlue));
  label({"file,class", "dark.png,0", "middle.png,0", "bright.png,2"});
  expect_figures(figures("face-classes"),
                 {{"accuracy", 2 / 3.},
                  {"recall", Json::parse("[0.5, null, 1.0]")},
                  {"confusion", Json::parse("[[1, 1, 0], [0, 0, 0], [0, 0, 1]]")}});
  const CommandResult plain = kelnn("eval face-classes --data data --progress");
  EXPECT_EQ(plain.out,
            "face-classes: data\n"
            "pictures        3\n"
            "accuracy   0.6667\n"
            "recall     0.5000  -  1.0000\n"
            "confusion       1  1       0\n"
            "confusion       0  0       0\n"
            "confusion       0  0       1\n");
  EXPECT_THAT(plain.err, HasSubstr("files/s"));

  label({"file,class", "red.png,1", "blue.png,1"});
  EXPECT_EQ(figures("person-classes").at("confusion"), Json::parse("[[0, 0], [1, 1]]"));
}

// ----- Conditions and errors

TEST_F(EvalCommand, ConditionsDecideTheExitCode) {
  save_grey("dark.png", {112, 112}, 28);
  save_grey("middle.png", {112, 112}, 128);
  save_patches("empty.png", kLandscape, {});
  const struct {
    const char *task, *conditions;
    int exit_code;
    const char* complaint;
  } cases[] = {
      {"face-classes", "accuracy>=0.5", 0, ""},
      {"face-classes", "accuracy<=0.5 --require pictures>=2", 0, ""},
      {"face-classes", "accuracy>=0.51", 1, "kelnn: accuracy>=0.51 is required, but it is 0.5\n"},
      {"face-classes", "pictures>=2 --require accuracy<=0.25", 1,
       "kelnn: accuracy<=0.25 is required, but it is 0.5\n"},
      {"face-classes", "recall>=0", 2, "there is no figure recall; there are pictures, accuracy\n"},
      {"person-detection", "precision>=0", 1, "but it is not defined"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.conditions);
    if (c.task == std::string("face-classes")) {
      label({"file,class", "dark.png,0", "middle.png,0"});
    } else {
      label({kBoxes, "empty.png,,,,,"});
    }
    const CommandResult result =
        kelnn(std::string("eval ") + c.task + " --data data --require " + c.conditions);
    EXPECT_EQ(result.exit_code, c.exit_code);
    EXPECT_THAT(result.err, HasSubstr(c.complaint));
    EXPECT_EQ(result.out.empty(), c.exit_code == 2) << "a wrong name is told before the work";
  }
}

// A report that took hours is not lost with a picture.
TEST_F(EvalCommand, ReportsBeforeItDraws) {
  save_patches("001_a.png", kLandscape, {});
  write("file", "no directory");
  const std::string before = text("data/001_a.png");
  label({kBoxes, "001_a.png,,,,,"});
  fs::create_hard_link(path("data/001_a.png"), path("data/001_001_a.png"));
  const std::string report = out("eval person-detection --data data");
  const struct {
    const char *directory, *complaint;
    int exit_code;
  } cases[] = {{"file", "kelnn: file: Not a directory", 1},
               {"data", "data/001_001_a.png: it would take the place of the input", 2}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.directory);
    const CommandResult result =
        kelnn(std::string("eval person-detection --data data --draw ") + c.directory);
    EXPECT_EQ(result.exit_code, c.exit_code);
    EXPECT_EQ(result.out, report);
    EXPECT_THAT(result.err, HasSubstr(c.complaint));
  }
  EXPECT_EQ(text("data/001_a.png"), before);
}

TEST_F(EvalCommand, BadLabelsAreToldByLineBeforeAnythingIsEvaluated) {
  save_patches("a.png", kLandscape, {});
  save_patches("b.png", kLandscape, {});
  write("data/text.png", "no picture");
  const std::string boxes = std::string(kBoxes) + "\n", points = kPoints,
                    labels = "kelnn: data/labels.csv";
  const std::string persons = "person-detection", columns = labels + ":1: the columns must be ";
  const struct {
    std::string task, text, complaint;
  } cases[] = {
      {persons, "", columns + kBoxes + "\n"},
      {persons, "file,x,y", columns + kBoxes + "\n"},
      {persons, boxes, labels + ": no labels after the header"},
      {persons, boxes + "\na.png,0,1,2,3", ":3: 5 fields, not the header's 6"},
      {persons, boxes + "a.png,0,1,2,3,4x", ":2: \"4x\" is no number for h"},
      {persons, boxes + "a.png,0,nan,2,3,4", ":2: \"nan\" is no number for x"},
      {persons, boxes + "a.png,1,1,2,3,4", ":2: \"1\" for class, which goes from 0 to 0"},
      {"four-class-detection", boxes + "a.png,4,1,2,3,4",
       "\"4\" for class, which goes from 0 to 3"},
      {persons, boxes + "a.png,0,1,2,0,4", ":2: a box without an area"},
      {persons, boxes + "a.png,0,416,2,9,9",
       ":2: the box is outside the picture, which is 416 x 256"},
      {persons, boxes + "a.png,0,1,2,3,4\nb.png,,,,,\nb.png,0,1,2,3,4",
       ":4: b.png is a picture without objects"},
      {persons, boxes + "a.png,,,,,\nx.png,,,,,", ":3: there is no file \"x.png\""},
      {"face-landmarks", points + ",yaw\na.png",
       columns + points + " or " + points + ",yaw,pitch,roll"},
      {"face-landmarks", points + "\na.png,1,2,3,4,5,6,7,8,9,", ":2: \"\" is no number for y5"},
      {"face-features", "file,person\na.png,ann\na.png,bob", ":3: a.png has been in line 2"},
      {"face-features", "file,person\na.png,\"ann", ":2: a quotation mark that is not closed"},
      {"face-classes", "file,class\na.png,3", ":2: \"3\" for class, which goes from 0 to 2"},
      {"person-classes", "file,class\na.png,-1", ":2: \"-1\" for class"},
      {"cry-detection", "file,cry,kind\na.png,yes,speech", ":2: \"yes\" for cry"},
      {persons, boxes + "a.png,,,,,\ntext.png,,,,,",
       "data/text.png: not a picture that can be read"},
      {"face-classes --root data", "file,class\na.png,0", "kelnn pack face-classes"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.complaint);
    write("data/labels.csv", c.text);
    expect_refused({{"eval " + c.task + " --data data", 1, c.complaint}});
  }
}

}  // namespace
