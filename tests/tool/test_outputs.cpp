// SPDX-License-Identifier: Apache-2.0
// What comes out of kelnn for other programs: JSON after its schema, tables, labels, subtitles, crops.
#include <charconv>

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
  cv::Mat patches = grey_frame({640, 360});
  paint(&patches, on_grid(patches.size(), {kRed, 6, 3}), kRed);
  save("patches.png", patches);
  const struct {
    const char* definition;
    std::string call;
  } cases[] = {
      {"detections", "faces patches.png " + kFaces},
      {"detections", "persons patches.png"},
      {"detections", "objects --every 20 patches.png " + kVideo},
      {"motion", "motion " + kVideo},
      {"motion_sweep", "motion --sweep --periods 5 --limit 20 " + kVideo},
      {"watch", "watch --always --limit 30 " + kVideo},
      {"landmarks", "landmarks " + kFace + " patches.png"},
      {"feature", "feature " + kFace},
      {"face_class", "classify-face " + kFace},
      {"person_class", "classify-person " + kFace},
      {"comparison", "compare " + kFace + " " + kFaces + " --box-b 180,50,120,120"},
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
  const std::string said = out("feature " + kFace + " --json");
  const Json feature = Json::parse(said).at("feature");
  ASSERT_EQ(feature.size(), 256u);
  for (const Json& number : feature) {
    char digits[32] = {};
    std::to_chars(digits, digits + sizeof(digits) - 1, number.get<float>());
    EXPECT_THAT(said,
                HasSubstr(std::string(" ") + digits + (number == feature.back() ? "\n" : ",")));
  }
}

}  // namespace
