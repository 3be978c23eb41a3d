// kelnn eval on pictures, from labels.csv to figures, over the networks of make_test_networks.py: what
// they find is known, so the labels decide the figures.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sstream>

#include "support/patches.h"
#include "support/run_command.h"
#include "support/test_models.h"

namespace {

namespace fs = std::filesystem;
using namespace kelnn_test;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Json = nlohmann::json;

constexpr double kTolerance = 1e-9;
const cv::Size kLandscape(416, 256), kSquare(320, 320), kPortrait(256, 416);  // the network's own

std::string box_text(const cv::Rect2d& box) {
  std::ostringstream text;
  text << box.x << "," << box.y << "," << box.width << "," << box.height;
  return text.str();
}

cv::Rect2d moved(cv::Rect2d box, double x) { return box + cv::Point2d(x, 0); }

class EvalCommand : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    std::string path = fs::temp_directory_path().string() + "/kelnn_eval_XXXXXX";
    if (!mkdtemp(&path[0])) std::abort();
    root = path + "/";
    pack_detectors(root);
    pack_model("face-landmarks", "landmarks", root);
    pack_model("face-classes", "face_classes", root);
    pack_model("person-classes", "person_classes", root);
    pack_model("face-features", KEL_NN_TEST_SAMPLE_NETWORK, root);
  }
  static void TearDownTestSuite() { fs::remove_all(root); }
  void SetUp() override { fs::create_directories(data + "more"); }
  void TearDown() override { fs::remove_all(data); }

  void save(const std::string& name, const cv::Mat& picture) {
    ASSERT_TRUE(cv::imwrite(data + name, picture));
  }
  void save_patches(const std::string& name, cv::Size size, const std::vector<Patch>& patches) {
    cv::Mat picture = grey_frame(size);
    for (const Patch& patch : patches) paint(&picture, on_grid(size, patch), patch.colour);
    save(name, picture);
  }
  void save_grey(const std::string& name, cv::Size size, int level) {
    save(name, cv::Mat(size, CV_8UC1, cv::Scalar(level)));
  }
  void label(const std::vector<std::string>& lines) {
    std::ofstream file(data + "labels.csv");
    for (const std::string& line : lines) file << line << "\n";
  }
  CommandResult eval(const std::string& task, std::vector<std::string> more = {}) {
    more.insert(more.begin(), {"eval", task, "--root", root, "--data", data});
    return run_kelnn(more);
  }
  Json figures(const std::string& task, std::vector<std::string> more = {}) {
    more.push_back("--json");
    const CommandResult result = eval(task, more);
    EXPECT_EQ(result.exit_code, 0) << result.err;
    return result.exit_code == 0 ? Json::parse(result.out) : Json();
  }

  static std::string root;
  std::string data = root + "data/";
};
std::string EvalCommand::root;

const char kBoxes[] = "file,class,x,y,w,h";

// ----- Detectors

// The dimmer a patch, the lower its score: 255 gives 0.999, 253 0.993, 251 0.953.
const cv::Scalar kDimRed(0, 0, 253), kDimmerRed(0, 0, 251);

TEST_F(EvalCommand, AveragePrecisionOfPersonsFollowsFromTheLabels) {
  const Patch first = {kRed, 3, 3}, nobody = {kDimRed, 8, 3}, third = {kDimmerRed, 4, 4};
  save_patches("a.png", kLandscape, {first, nobody});
  save_patches("b.png", kPortrait, {third});
  save_patches("c.png", kLandscape, {});
  save_patches("more/d.png", kSquare, {});
  std::vector<std::string> rows = {"a.png,0," + box_text(on_grid(kLandscape, first)),
                                   "b.png,0," + box_text(on_grid(kPortrait, third)), "c.png,,,,,",
                                   "more/d.png,0,100,100,50,80.5"};
  rows.insert(rows.begin(), kBoxes);
  label(rows);
  const CommandResult result = eval("person-detection", {"--json"});
  ASSERT_EQ(result.exit_code, 0) << result.err;
  const Json json = Json::parse(result.out);
  EXPECT_EQ(json.at("task"), "person-detection");
  EXPECT_EQ(json.at("pictures"), 4);
  EXPECT_EQ(json.at("labelled"), 3);
  EXPECT_EQ(json.at("found"), 3);
  EXPECT_EQ(json.at("matches"), 2);
  // By score: right, wrong, right; of three. Precision 1 at recall 1/3, 2/3 at 2/3.
  EXPECT_NEAR(json.at("mean_average_precision"), (1 + 2 / 3.) / 3, kTolerance);
  EXPECT_NEAR(json.at("precision"), 2 / 3., kTolerance);
  EXPECT_NEAR(json.at("recall"), 2 / 3., kTolerance);
  EXPECT_NEAR(json.at("false_detections_per_picture"), 1 / 4., kTolerance);
  EXPECT_GT(json.at("mean_iou"), 0.9);

  // The same for rows in another order, and ended as another system does.
  std::reverse(rows.begin() + 1, rows.end());
  for (std::string& row : rows) row += "\r";
  rows[0] = "\xef\xbb\xbf" + rows[0];
  label(rows);
  EXPECT_EQ(eval("person-detection", {"--json"}).out, result.out);
}

TEST_F(EvalCommand, EveryModelIsLoadedOnce) {
  std::vector<std::string> rows = {kBoxes};
  const cv::Size sizes[] = {kLandscape, kPortrait, {640, 360}, kSquare, kPortrait, {99, 100}};
  for (size_t i = 0; i < std::size(sizes); ++i) {
    const std::string name = std::to_string(i) + ".png";
    save_patches(name, sizes[i], {});
    rows.push_back(name + ",,,,,");
  }
  label(rows);
  const CommandResult result = eval("person-detection");
  EXPECT_EQ(result.exit_code, 0);
  size_t loads = 0;
  for (size_t at = 0; (at = result.err.find("model: ", at)) != std::string::npos; ++at) ++loads;
  EXPECT_EQ(loads, 3u) << result.err;
}

TEST_F(EvalCommand, ObjectsAreMatchedClassByClass) {
  const Patch red = {kRed, 2, 3}, green = {kGreen, 9, 4}, blue = {kBlue, 12, 8};  // classes 1, 3, 2
  save_patches("a.png", kLandscape, {red, green, blue});
  const auto row = [](int class_id, const Patch& patch) {
    return "a.png," + std::to_string(class_id) + "," + box_text(on_grid(kLandscape, patch));
  };
  label({kBoxes, row(1, red), row(0, green), row(2, blue)});
  const Json json = figures("four-class-detection");
  EXPECT_EQ(json.at("matches"), 2);
  EXPECT_NEAR(json.at("mean_average_precision"), 2 / 3., kTolerance);
  const Json& classes = json.at("classes");
  ASSERT_EQ(classes.size(), 4u);
  EXPECT_EQ(classes[0].at("average_precision"), 0);
  EXPECT_TRUE(classes[0].at("precision").is_null());
  EXPECT_EQ(classes[1].at("average_precision"), 1);
  EXPECT_EQ(classes[2].at("recall"), 1);
  EXPECT_EQ(classes[3].at("found"), 1);
  EXPECT_EQ(classes[3].at("precision"), 0);
  EXPECT_TRUE(classes[3].at("average_precision").is_null());
}

TEST_F(EvalCommand, FacesInPicturesOfSeveralSizes) {
  std::vector<std::string> rows = {kBoxes};
  int number = 0;
  for (const cv::Size size : {cv::Size(640, 480), cv::Size(320, 240), cv::Size(640, 480)}) {
    const Patch patch = {kBlue, number, 1};
    cv::Mat picture = grey_frame(size);
    paint(&picture, on_face_level(size, patch), kBlue);
    const std::string name = std::to_string(number++) + ".png";
    save(name, picture);
    // The last one is looked for elsewhere: a third of its width shared, an IoU of 1/2 at most.
    const cv::Rect2d box = on_face_level(size, patch);
    rows.push_back(name + ",0," + box_text(number < 3 ? box : moved(box, box.width * 0.67)));
  }
  label(rows);
  const Json json = figures("face-detection");
  EXPECT_EQ(json.at("found"), 3);
  EXPECT_EQ(json.at("matches"), 2);
  EXPECT_NEAR(json.at("recall"), 2 / 3., kTolerance);
}

TEST_F(EvalCommand, DrawsTheWorstFirst) {
  const Patch patch = {kRed, 3, 3};
  save_patches("good.png", kLandscape, {patch});
  save_patches("more/missed.png", kLandscape, {});
  const cv::Rect2d box = on_grid(kLandscape, patch), missed(200, 150, 80, 90);
  label({kBoxes, "good.png,0," + box_text(box), "more/missed.png,0," + box_text(missed)});
  const std::string out = data + "drawn/";
  figures("person-detection", {"--draw", out});
  const cv::Mat worst = cv::imread(out + "001_more_missed.png"),
                best = cv::imread(out + "002_good.png");
  ASSERT_EQ(worst.size(), kLandscape);
  ASSERT_EQ(best.size(), kLandscape);
  const cv::Vec3b label_colour = worst.at<cv::Vec3b>(200, 200), found = best.at<cv::Vec3b>(128, 96);
  EXPECT_NE(label_colour, cv::Vec3b(60, 60, 60));
  EXPECT_NE(found, label_colour);
  EXPECT_NE(found, cv::Vec3b(0, 0, 255));
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
  Json json = figures("face-landmarks");
  EXPECT_NEAR(json.at("mean_point_error"), 0.025, 1e-6);
  EXPECT_NEAR(json.at("nose_error"), 0.025, 1e-6);
  EXPECT_NEAR(json.at("percentile_95_point_error"), 0.05, 1e-6);
  EXPECT_TRUE(json.at("yaw_error").is_null());

  // Brightness 129 is a yaw of 1, a pitch of 0.5 and a roll of 7: 57.30, 28.65 and 41.07 degrees.
  label({std::string(kPoints) + ",yaw,pitch,roll", "b.png" +
                                                       points_text({50, 0, 200, 200}, 129, 0, 0) +
                                                       ",60.2957795,27.6478898,-318.9295434"});
  json = figures("face-landmarks", {"--draw", data + "drawn"});
  EXPECT_NEAR(json.at("mean_point_error"), 0, 1e-6);
  EXPECT_NEAR(json.at("yaw_error"), 3, 1e-4);
  EXPECT_NEAR(json.at("pitch_error"), 1, 1e-4);
  EXPECT_NEAR(json.at("roll_error"), 0, 1e-4);
  EXPECT_EQ(cv::imread(data + "drawn/001_b.png").rows, 600);
}

TEST_F(EvalCommand, FeaturesOfAllPairsAreCompared) {
  const std::string pictures = KEL_NN_TEST_PICTURES "/";
  for (const char* name : {"face_a.png", "face_a_distorted.png", "face_b.png"}) {
    fs::copy_file(pictures + name, data + name);
  }
  fs::copy_file(pictures + "face_b.png", data + "face \"b\", 1.png");
  label({"file,person", "face_a.png,\"ann, the first\"", "\"face \"\"b\"\", 1.png\",bob",
         "\"face_a_distorted.png\",\"ann, the first\""});
  const Json json = figures("face-features");
  EXPECT_EQ(json.at("same_pairs"), 1);
  EXPECT_EQ(json.at("different_pairs"), 2);
  EXPECT_EQ(json.at("equal_error_rate"), 0);
  EXPECT_EQ(json.at("true_accept_rate"), 1);
  const auto compare = [&](const std::string& a, const std::string& b) {
    return std::stod(run_kelnn({"compare", data + a, data + b, "--root", root}).out);
  };
  const double same = compare("face_a.png", "face_a_distorted.png"),
               different_a = compare("face_a.png", "face_b.png"),
               different_b = compare("face_a_distorted.png", "face_b.png");
  EXPECT_NEAR(json.at("mean_same_similarity"), same, 1e-6);
  EXPECT_NEAR(json.at("mean_different_similarity"), (different_a + different_b) / 2, 1e-6);
  EXPECT_NEAR(json.at("equal_error_threshold"), (same + std::max(different_a, different_b)) / 2,
              1e-6);
}

TEST_F(EvalCommand, ClassesAreCounted) {
  save_grey("dark.png", {112, 112}, 28);
  save_grey("middle.png", {60, 90}, 128);
  save_grey("bright.png", {112, 112}, 228);
  label({"file,class", "dark.png,0", "middle.png,0", "bright.png,2"});
  Json json = figures("face-classes");
  EXPECT_NEAR(json.at("accuracy"), 2 / 3., kTolerance);
  EXPECT_EQ(json.at("recall"), Json::parse("[0.5, null, 1.0]"));
  EXPECT_EQ(json.at("confusion"), Json::parse("[[1, 1, 0], [0, 0, 0], [0, 0, 1]]"));

  save("red.png", cv::Mat(112, 112, CV_8UC3, kRed));
  save("blue.png", cv::Mat(112, 112, CV_8UC3, kBlue));
  label({"file,class", "red.png,0", "blue.png,1"});
  EXPECT_EQ(figures("person-classes").at("confusion"), Json::parse("[[1, 0], [0, 1]]"));
  label({"file,class", "red.png,1", "blue.png,1"});
  EXPECT_EQ(figures("person-classes").at("confusion"), Json::parse("[[0, 0], [1, 1]]"));
}

// ----- Reports and errors

TEST_F(EvalCommand, ThePlainReportHasTheSameNumbers) {
  save_grey("dark.png", {112, 112}, 28);
  save_grey("middle.png", {112, 112}, 128);
  label({"file,class", "dark.png,0", "middle.png,0"});
  const CommandResult result = eval("face-classes", {"--progress"});
  EXPECT_EQ(result.out, "face-classes: 2 pictures of " + data +
                            "\n"
                            "accuracy  0.5000\n"
                            "class  labelled  recall  found as 0  found as 1  found as 2\n"
                            "0             2  0.5000           1           1           0\n"
                            "1             0       -           0           0           0\n"
                            "2             0       -           0           0           0\n");
  EXPECT_THAT(result.err, HasSubstr("files/s"));
}

TEST_F(EvalCommand, ConditionsDecideTheExitCode) {
  save_grey("dark.png", {112, 112}, 28);
  save_grey("middle.png", {112, 112}, 128);
  label({"file,class", "dark.png,0", "middle.png,0"});
  struct Case {
    std::vector<std::string> conditions;
    int exit_code;
    const char* complaint;
  };
  const Case cases[] = {
      {{"accuracy>=0.5"}, 0, ""},
      {{"accuracy<=0.5", "pictures>=2"}, 0, ""},
      {{"accuracy>=0.51"}, 1, "kelnn: accuracy>=0.51 is required, but it is 0.5\n"},
      {{"pictures>=2", "accuracy<=0.25"}, 1, "kelnn: accuracy<=0.25 is required, but it is 0.5\n"},
      {{"recall>=0"}, 1, "there is no figure recall; there are pictures, accuracy\n"},
      {{"accuracy=1"}, 2, "is not NAME>=NUMBER"},
      {{"accuracy>=high"}, 2, "is not NAME>=NUMBER"},
      {{">=1"}, 2, "is not NAME>=NUMBER"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.conditions.back());
    std::vector<std::string> arguments;
    for (const std::string& condition : c.conditions) {
      arguments.insert(arguments.end(), {"--require", condition});
    }
    const CommandResult result = eval("face-classes", arguments);
    EXPECT_EQ(result.exit_code, c.exit_code);
    EXPECT_THAT(result.err, HasSubstr(c.complaint));
    EXPECT_EQ(result.out.empty(), c.exit_code == 2);
  }
  // What is not defined meets no condition.
  save_patches("empty.png", kLandscape, {});
  label({kBoxes, "empty.png,,,,,"});
  const CommandResult undefined = eval("person-detection", {"--require", "precision>=0"});
  EXPECT_EQ(undefined.exit_code, 1);
  EXPECT_THAT(undefined.err, HasSubstr("but it is not defined"));
}

TEST_F(EvalCommand, BadLabelsAreToldByLineBeforeAnythingIsEvaluated) {
  save_patches("a.png", kLandscape, {});
  save_patches("b.png", kLandscape, {});
  struct Case {
    const char* task;
    std::vector<std::string> lines;
    std::string complaint;  // after the name of the file
  };
  const std::string boxes = kBoxes, points = kPoints;
  const Case cases[] = {
      {"person-detection", {}, ":1: the columns must be file,class,x,y,w,h\n"},
      {"person-detection", {"file,x,y,w,h"}, ":1: the columns must be file,class,x,y,w,h\n"},
      {"person-detection", {boxes}, ": no labels after the header"},
      {"person-detection", {boxes, "", "a.png,0,1,2,3"}, ":3: 5 fields, not the header's 6"},
      {"person-detection", {boxes, "a.png,0,1,2,3,4x"}, ":2: \"4x\" is no number for h"},
      {"person-detection", {boxes, "a.png,0,nan,2,3,4"}, ":2: \"nan\" is no number for x"},
      {"person-detection",
       {boxes, "a.png,1,1,2,3,4"},
       ":2: \"1\" for class, which goes from 0 to 0"},
      {"four-class-detection",
       {boxes, "a.png,4,1,2,3,4"},
       ":2: \"4\" for class, which goes from 0 to 3"},
      {"person-detection", {boxes, "a.png,0,1,2,0,4"}, ":2: a box without an area"},
      {"person-detection",
       {boxes, "a.png,0,416,2,9,9"},
       ":2: the box is outside the picture, which is 416 x 256"},
      {"person-detection",
       {boxes, "a.png,0,1,2,3,4", "b.png,,,,,", "b.png,0,1,2,3,4"},
       ":4: b.png is a picture without objects"},
      {"person-detection",
       {boxes, "a.png,,,,,", "nowhere.png,,,,,"},
       ":3: there is no file \"nowhere.png\""},
      {"face-landmarks",
       {points + ",yaw", "a.png"},
       ":1: the columns must be " + points + " or " + points + ",yaw,pitch,roll"},
      {"face-landmarks", {points, "a.png,1,2,3,4,5,6,7,8,9,"}, ":2: \"\" is no number for y5"},
      {"face-features", {"file,person", "a.png,ann", "a.png,bob"}, ":3: a.png has been in line 2"},
      {"face-features", {"file,person", "a.png,\"ann"}, ":2: a quotation mark that is not closed"},
      {"face-classes", {"file,class", "a.png,3"}, ":2: \"3\" for class, which goes from 0 to 2"},
      {"person-classes", {"file,class", "a.png,-1"}, ":2: \"-1\" for class"},
      {"cry-detection", {"file,cry,kind", "a.png,yes,speech"}, ":2: \"yes\" for cry"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.complaint);
    label(c.lines);
    const CommandResult result = eval(c.task);
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("kelnn: " + data + "labels.csv" + c.complaint));
  }
}

TEST_F(EvalCommand, SaysWhatIsWrong) {
  save_patches("a.png", kLandscape, {});
  std::ofstream(data + "text.png") << "no picture";
  label({kBoxes, "a.png,,,,,", "text.png,,,,,"});
  CommandResult result = eval("person-detection");
  EXPECT_EQ(result.exit_code, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_THAT(result.err, HasSubstr(data + "text.png: not a picture that can be read"));

  label({"file,class", "a.png,0"});
  result = run_kelnn({"eval", "face-classes", "--root", data, "--data", data});
  EXPECT_EQ(result.exit_code, 1);
  EXPECT_THAT(result.err, HasSubstr("kelnn pack face-classes"));
  result = run_kelnn({"eval", "face-classes", "--root", root, "--data", data + "nowhere"});
  EXPECT_EQ(result.exit_code, 1);
  EXPECT_THAT(result.err, HasSubstr("nowhere/labels.csv: No such file"));

  EXPECT_EQ(eval("person-detection-landscape").exit_code, 2);
  EXPECT_EQ(run_kelnn({"eval", "face-classes"}).exit_code, 2);
  result = eval("face-classes", {"--draw", data + "drawn"});
  EXPECT_EQ(result.exit_code, 2);
  EXPECT_THAT(result.err, HasSubstr("nothing is drawn of face-classes"));
}

}  // namespace
