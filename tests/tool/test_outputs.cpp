// SPDX-License-Identifier: Apache-2.0
// What comes out of kelnn for other programs: JSON after its schema, tables, labels, subtitles, crops.
#include <charconv>

#include "recording_format.h"
#include "support/command_test.h"

namespace {

using namespace kelnn_test;

const std::string kVideo = kPictures + "../videos/visitor.avi",
                  kSound = kPictures + "../sounds/cry.flac", kFace = kPictures + "face_a.png",
                  kFaces = kPictures + "both_faces.png";

using Outputs = CommandTest;

// Every command's objects are those of their definition and of the whole; lines that Python gets: "definition TAB object".
constexpr char kValidate[] = R"(
import json, jsonschema, sys
schema = json.load(open(sys.argv[1]))
jsonschema.Draft202012Validator.check_schema(schema)
for line in sys.stdin:
    name, text = line.split("\t")
    for part in {"$ref": "#/$defs/" + name}, {"anyOf": schema["anyOf"]}:
        jsonschema.Draft202012Validator({"$defs": schema["$defs"], **part}).validate(json.loads(text))
)";

TEST_F(Outputs, JsonFollowsItsSchema) {
  const auto labels = [this](const std::string& name, const std::string& lines) {
    write(name + "/labels.csv", lines);
  };
  labels("boxes", "file,class,x,y,w,h\n" + kFaces + ",0,10,10,90,90\n");
  labels("points", "file,x1,y1,x2,y2,x3,y3,x4,y4,x5,y5\n" + kFace + ",1,2,3,4,5,6,7,8,9,10\n");
  labels("persons", "file,person\n" + kFace + ",a\n" + kPictures + "face_b.png,b\n");
  labels("classes", "file,class\n" + kFace + ",0\n");
  labels("cries", "file,cry,kind\n" + kSound + ",1,cry\n");
  write("noise.raw", text_of(kSound).substr(0, 20000));
  kelnn_record::Record call;  // no handle was destroyed without an error
  call.begin("kel_nn_handle_destroy", {1, 0, 0, 0, 0, 0});
  call.add_integer(kelnn_record::Kind::kArgument, "handle", 0);
  call.add_integer(kelnn_record::Kind::kResult, "returned", 0);
  const std::string bytes(reinterpret_cast<const char*>(call.bytes().data()), call.bytes().size());
  const uint32_t front[] = {1, 1, static_cast<uint32_t>(bytes.size()),
                            kelnn_record::check_of(bytes.data(), bytes.size())};
  write("differing.rec",
        "KELNNREC" + std::string(reinterpret_cast<const char*>(front), sizeof(front)) + bytes);
  cv::Mat patches = grey_frame({640, 360});
  paint(&patches, on_grid(patches.size(), {kRed, 6, 3}), kRed);
  save("patches.png", patches);
  const struct {
    const char* definition;
    std::string call;
  } cases[] = {
      {"detections", "faces patches.png " + kFaces},
      {"detections", "persons patches.png"},
      {"detections", "objects --every 20 --save-crops crops patches.png " + kVideo},
      {"motion", "motion " + kVideo},
      {"motion_sweep", "motion --sweep --periods 5 --limit 20 " + kVideo},
      {"watch", "watch --always --limit 30 " + kVideo},
      {"landmarks", "landmarks " + kFace + " patches.png"},
      {"feature", "feature --aligned " + kFace},
      {"face_class", "classify-face " + kFace},
      {"person_class", "classify-person " + kFace},
      {"comparison", "compare --aligned " + kFace + " " + kFaces + " --box-b 180,50,120,120"},
      {"cry", "cry " + kSound},
      {"sound_features", "features --csv f.csv --png f.png " + kSound},
      {"task_list", "models"},
      {"packed", "pack face-features " + std::string(KEL_NN_TEST_SAMPLE_NETWORK) + " --root new"},
      {"inspected", "pack --inspect face-features"},
      {"inspected", "pack --inspect " + kFace},
      {"unpacked", "unpack face-features -o new/network.onnx"},
      {"doctor", "doctor --root models/"},
      {"doctor", "doctor --root new/"},
      {"doctor", "doctor --root nowhere"},
      {"doctor", "doctor --board --root models/"},
      {"enrolled", "enroll anna " + kFace + " --aligned --gallery g.db"},
      {"people", "enroll --list --gallery g.db"},
      {"detections", "who " + kPictures + "both_faces.png --gallery g.db"},
      {"removed", "enroll anna --remove --gallery g.db"},
      {"replay", "replay differing.rec"},
      {"keys_made", "sign --new-key key"},
      {"signed", "sign --key key new"},
      {"detector_evaluation", "eval face-detection --data boxes"},
      {"landmarks_evaluation", "eval face-landmarks --data points"},
      {"features_evaluation", "eval face-features --data persons"},
      {"classes_evaluation", "eval person-classes --data classes"},
      {"cry_evaluation", "eval cry-detection --data cries"},
  };
  std::string all;
  for (const auto& c : cases) {
    const std::string said = kelnn(c.call + " --json").out;
    ASSERT_NE(said, "") << c.call;
    std::istringstream lines(said.find("}\n{") == std::string::npos ? Json::parse(said).dump()
                                                                    : said);
    for (std::string line; std::getline(lines, line);) {
      const bool is_rest = line.find("left_over") != std::string::npos;
      all += (is_rest ? "cry_left_over" : c.definition) + ("\t" + line) + "\n";
    }
  }
  const CommandResult checked = run({"/usr/bin/python3", "-c", kValidate, KEL_NN_TEST_SCHEMA}, all);
  EXPECT_EQ(checked.exit_code, 0) << checked.err;
}

// Floats as floats: no digits but those that give them back.
TEST_F(Outputs, NumbersHaveTheFewestDigits) {
  const std::string said = out("feature --aligned " + kFace + " --json");
  const Json feature = Json::parse(said).at("feature");
  ASSERT_EQ(feature.size(), 256u);
  for (const Json& number : feature) {
    char digits[32] = {};
    std::to_chars(digits, digits + sizeof(digits) - 1, number.get<float>());
    EXPECT_THAT(said,
                HasSubstr(std::string(" ") + digits + (number == feature.back() ? "\n" : ",")));
  }
}

// ----- Files besides the text

const cv::Size kSize(640, 360);
const Patch kPatch = {kRed, 6, 3}, kOther = {kBlue, 17, 9};

TEST_F(Outputs, TablesLabelsAndSubtitlesSayWhatJsonSays) {
  save_video("v.avi", kSize, 6, [](int i, cv::Mat* frame) {
    if (i >= 2 && i < 5) paint(frame, on_grid(kSize, kPatch), kRed);
    if (i == 4) paint(frame, on_grid(kSize, kOther), kBlue);
  });
  cv::Mat picture = grey_frame(kSize);
  save("data/empty.png", picture);
  paint(&picture, on_grid(kSize, kOther), kBlue);
  save("data/a,b.png", picture);
  std::string table = "input,frame,time,width,height,name,class,score,x,y,w,h\n";
  Json images = Json::array(), annotations = Json::array();
  for (const Json& line : lines(
           "objects v.avi data/a,b.png data/empty.png --classes cat,dog,a<b,car --csv t.csv --coco "
           "data/coco.json --vtt vtt")) {
    const std::string input = line.at("input");
    const std::string place = (input == "data/a,b.png" ? "\"" + input + "\"" : input) + "," +
                              line.at("frame").dump() + "," + line.at("time").dump() + ",640,360,";
    if (line.at("boxes").empty()) table += place + ",,,,,,\n";
    for (const Json& box : line.at("boxes")) {
      table += place + box.at("name").get<std::string>();
      for (const char* key : {"class", "score", "x", "y", "w", "h"})
        table += "," + box.at(key).dump();
      table += "\n";
      annotations.push_back({{"id", annotations.size()},
                             {"image_id", images.size()},
                             {"category_id", box.at("class")},
                             {"bbox", {box.at("x"), box.at("y"), box.at("w"), box.at("h")}},
                             {"area", box.at("w").get<int>() * box.at("h").get<int>()},
                             {"iscrowd", 0},
                             {"score", box.at("score")}});
    }
    images.push_back(
        {{"id", images.size()},
         {"file_name",
          input == "v.avi" ? "../v.avi-00000" + line.at("frame").dump() + ".png" : input.substr(5)},
         {"width", 640},
         {"height", 360}});
  }
  EXPECT_EQ(text("t.csv"), table);
  ASSERT_EQ(annotations.size(), 5u);
  const Json categories = Json::parse(
      R"([{"id": 0, "name": "cat"}, {"id": 1, "name": "dog"}, {"id": 2, "name": "a<b"}, {"id": 3, "name": "car"}])");
  EXPECT_EQ(Json::parse(text("data/coco.json")),
            Json({{"images", images}, {"annotations", annotations}, {"categories", categories}}));
  EXPECT_EQ(text("vtt/v.vtt"),
            "WEBVTT\n\n00:00:00.200 --> 00:00:00.400\ndog\n"
            "\n00:00:00.400 --> 00:00:00.500\na&lt;b, dog\n");

  out("motion v.avi --period 1 --vtt m.vtt");
  // What was there is gone with the last frame.
  EXPECT_EQ(text("m.vtt"), "WEBVTT\n\n00:00:00.400 --> 00:00:00.500\nmotion\n");
  // A column for each number of a list; instead of the text where that would be.
  const std::string faces = out("landmarks " + kFace + " " + kFaces + " --csv -");
  EXPECT_EQ(faces.substr(0, faces.find('\n')),
            "input,x,y,w,h,x1,y1,x2,y2,x3,y3,x4,y4,x5,y5,pose_0,pose_1,pose_2,points_0,points_1,"
            "points_2,points_3,points_4,points_5,points_6,points_7,points_8,points_9");
  EXPECT_EQ(std::count(faces.begin(), faces.end(), ','), 3 * 27);
  EXPECT_THAT(out("models cry-detection --csv -"),
              AllOf(HasSubstr("task,purpose,file,height,width,channels\ncry-detection,"),
                    HasSubstr(",297,64,1\n")));
  EXPECT_THAT(kelnn("doctor --root models --csv -").out,
              AllOf(HasSubstr("task,path,state,note,problem,to_do\nface-detection,models/"),
                    HasSubstr(",ok,")));
  write("classes/labels.csv", "file,class\n" + kFace + ",0\n");
  EXPECT_THAT(out("eval person-classes --data classes --csv -"),
              HasSubstr("task,data,pictures,accuracy\nperson-classes,classes,1,"));
  expect_refused({{"faces v.avi --csv v.avi", 2, "take the place of the input"},
                  {"faces v.avi --csv - --json", 2, "standard output takes one of"},
                  {"faces v.avi data/empty.png --vtt a.vtt", 2, "outputs go to a directory"}});
}

TEST_F(Outputs, BoxesAreChosenByScoreAndClassAndCutOut) {
  const cv::Scalar dim_red(0, 0, 251);  // scores 0.95
  save_video("v.avi", kSize, 2,
             [](int, cv::Mat* frame) { paint(frame, on_grid(kSize, kPatch), kRed); });
  cv::Mat picture = grey_frame(kSize);
  paint(&picture, on_grid(kSize, kPatch), dim_red);
  paint(&picture, on_grid(kSize, {kRed, 2, 3}), kRed);
  paint(&picture, on_grid(kSize, kOther), kBlue);
  save("p.png", picture);
  const struct {
    const char* options;
    size_t count;
  } cases[] = {{"--conf 0.3", 3},
               {"--conf 0.97", 2},
               {"--only dog", 2},
               {"--only dog --conf 0.97", 1},
               {"--only dog --only bird", 3},
               {"--only car", 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.options);
    const std::string call = std::string("objects p.png --classes cat,dog,bird,car ") + c.options;
    EXPECT_EQ(json(call).at("boxes").size(), c.count);
  }
  for (const Json& line :
       lines("objects p.png v.avi --only dog --classes cat,dog,bird,car --save-crops c")) {
    for (const Json& box : line.at("boxes")) {
      const cv::Mat crop = this->picture(box.at("crop"));
      EXPECT_EQ(crop.size(), cv::Size(box.at("w"), box.at("h")));
      EXPECT_GT(cv::mean(crop)[2], 150) << "red";
    }
  }
  for (const char* name :
       {"c/p.png-0.png", "c/p.png-1.png", "c/v.avi-000000-0.png", "c/v.avi-000001-0.png"}) {
    EXPECT_TRUE(fs::exists(path(name))) << name;
  }
  EXPECT_EQ(file_count("c"), 4u);
  // Below a directory that was named, names may be equal.
  save("d/p.png", picture);
  save("d/in/p.png", picture);
  out("objects d --draw drawn --save-crops crops");
  for (const char* name :
       {"drawn/p.png", "drawn/in/p.png", "crops/p.png-2.png", "crops/in/p.png-2.png"}) {
    EXPECT_TRUE(fs::exists(path(name))) << name;
  }
  const CommandResult quiet = kelnn("persons v.avi --quiet --csv t.csv");
  EXPECT_EQ(quiet.out + quiet.err, "");
  EXPECT_EQ(kelnn("persons v.avi --quiet --csv -").out, text("t.csv"));
  const std::string summary = kelnn("persons v.avi p.png --progress").err;
  EXPECT_THAT(summary, AllOf(HasSubstr("frames/s  0:00 left"),
                             HasSubstr("kelnn: 3 frames, 5 found, "), HasSubstr(" %, finding ")));
  const char* const bound = "the library itself leaves out what is below 0.8";
  expect_refused({{"faces p.png --conf 0.79", 2, bound},
                  {"faces p.png --conf nan", 2, bound},
                  {"faces p.png --conf 1.01", 2, bound},
                  {"faces p.png --only dog", 2, "there is no such class; there are: face"}});
}

// A terminal that is slower than its program would be.
TEST_F(Outputs, ATerminalIsShownHowFarALongWorkIs) {
  const std::string bytes = "tail -c 200000 " + kVideo;
  const std::string script = "(" + bytes + "; sleep 2.2; " + bytes + ") | " + KEL_NN_TEST_PROGRAM +
                             " features - --window 2 --csv f.csv";
  const CommandResult result = run({"/usr/bin/script", "-qec", script, "/dev/null"});
  EXPECT_THAT(result.out, AllOf(HasSubstr("  67%  "), HasSubstr(" left\r\033[K")));
  EXPECT_THAT(
      run({"/usr/bin/script", "-qec", KEL_NN_TEST_PROGRAM + (" motion " + kVideo), "/dev/null"})
          .out,
      HasSubstr(" frames/s; "));
}

}  // namespace
