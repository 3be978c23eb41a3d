// The command line as a user meets it: exit codes, what goes to which stream, files that are written whole.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "kel_nn_model_files.h"
#include "support/run_command.h"

namespace {

namespace fs = std::filesystem;
using kelnn_test::CommandResult;
using kelnn_test::run_kelnn;
using kelnn_test::text_of;
using nlohmann::json;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

const std::string kPictures = KEL_NN_TEST_PICTURES "/";
const std::string kSample = KEL_NN_TEST_SAMPLE_NETWORK;
const std::string kNetworks = KEL_NN_TEST_NETWORKS "/";

class CommandLine : public ::testing::Test {
 protected:
  CommandLine() {
    char path[] = "/tmp/kelnn_test_XXXXXX";
    if (!mkdtemp(path)) std::abort();
    directory_ = path;
    root_ = directory_ / "models/";
    model_ = root_ / kelnn::kFaceFeatureModel;
  }
  ~CommandLine() override { fs::remove_all(directory_); }

  void pack_sample() {
    const CommandResult packed = run_kelnn({"pack", "face-features", kSample, "--root", root_});
    ASSERT_EQ(packed.exit_code, 0) << packed.err;
  }
  CommandResult doctor() { return run_kelnn({"doctor", "--root", root_}); }
  double compare(const std::string& a, const std::string& b) {
    const CommandResult result =
        run_kelnn({"compare", kPictures + a, kPictures + b, "--root", root_});
    EXPECT_EQ(result.exit_code, 0) << result.err;
    return std::stod(result.out);
  }
  size_t file_count() const {
    return std::distance(fs::directory_iterator(root_), fs::directory_iterator());
  }

  fs::path directory_, root_, model_;
};

// ----- Being called

TEST_F(CommandLine, AnswersWrongUsageWith2AndOneMessage) {
  const std::vector<std::string> calls[] = {
      {},
      {"dance"},
      {"compare", "one.png"},
      {"models", "--no-such-option"},
      {"pack", "face-featurs", "x.onnx"},
      {"feature", "x.png", "--box", "1,2,3"},
      {"feature", "x.png", "--box", "0,0,99999999999,1"},
  };
  for (const auto& call : calls) {
    const CommandResult result = run_kelnn(call);
    SCOPED_TRACE(result.err);
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, StartsWith("kelnn: "));
  }
}

TEST_F(CommandLine, ExplainsItself) {
  EXPECT_EQ(run_kelnn({"--version"}).out, "kelnn 1.3.19\n");
  for (const std::vector<std::string>& call :
       {std::vector<std::string>{"--help"}, {"pack", "--help"}, {"doctor", "--help"}}) {
    const CommandResult result = run_kelnn(call);
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_THAT(result.out, HasSubstr("Usage"));
  }
}

TEST_F(CommandLine, ListsEveryTasksFile) {
  const json models = json::parse(run_kelnn({"models", "--json"}).out).at("models");
  ASSERT_EQ(models.size(), 12u);
  EXPECT_THAT(models.dump(),
              AllOf(HasSubstr(kelnn::kFaceFeatureModel), HasSubstr(kelnn::kFourClassPortraitModel),
                    HasSubstr(kelnn::kCryDetectionModel)));
}

// ----- Models

TEST_F(CommandLine, PackAndUnpackGiveTheNetworkBack) {
  pack_sample();
  EXPECT_EQ(file_count(), 1u);
  const fs::path back = directory_ / "back.onnx";
  ASSERT_EQ(run_kelnn({"unpack", "face-features", "--root", root_, "-o", back}).exit_code, 0);
  EXPECT_EQ(text_of(back), text_of(kSample));
}

TEST_F(CommandLine, ANetworkThatDoesNotFitLeavesTheOldModelAlone) {
  pack_sample();
  const std::string before = text_of(model_);
  for (const std::string& network :
       {kNetworks + "identity.onnx", kPictures + "face_a.png", std::string("missing.onnx")}) {
    const CommandResult result = run_kelnn({"pack", "face-features", network, "--root", root_});
    SCOPED_TRACE(result.err);
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("kelnn: "));
    EXPECT_EQ(text_of(model_), before);
    EXPECT_EQ(file_count(), 1u);
  }
}

TEST_F(CommandLine, PackSaysWhichShapeDoesNotFit) {
  struct Case {
    std::string task, network;
    const char* explanation;
  };
  const Case cases[] = {
      {"face-features", kNetworks + "identity.onnx",
       "the input is [1, 3, 2, 5] instead of [1, 1, 112, 112]"},
      {"face-features", kNetworks + "mean_112x112x1.onnx", "has 1 values instead of 256"},
      {"face-landmarks", kSample, "the network has 1 outputs instead of 2"},
      {"person-detection-portrait", kNetworks + "persons_landscape.onnx",
       "the input is [1, 3, 256, 416] instead of [1, 3, 416, 256]"},
      // 8 * 13 cells of 18 values, where four classes need 27.
      {"four-class-detection-landscape", kNetworks + "persons_landscape.onnx",
       "has 1872 values instead of 2808"},
      {"person-detection-landscape", kNetworks + "persons_values_outside.onnx",
       "do not lie side by side"},
  };
  for (const Case& c : cases) {
    const CommandResult result = run_kelnn({"pack", c.task, c.network, "--root", root_});
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_THAT(result.err, HasSubstr(c.explanation));
  }
  EXPECT_FALSE(fs::exists(root_));
}

TEST_F(CommandLine, AFullDiskLeavesTheOldModelAlone) {
  pack_sample();
  const std::string before = text_of(model_);
  // Files may grow to 64 blocks of 512 bytes, a tenth of the model.
  const CommandResult result = kelnn_test::run_command(
      {"/bin/sh", "-c", "trap '' XFSZ; ulimit -f 64; exec \"$@\"", "sh", KEL_NN_TEST_PROGRAM,
       "pack", "face-features", kSample, "--root", root_});
  EXPECT_EQ(result.exit_code, 1);
  EXPECT_THAT(result.err, HasSubstr("File too large"));
  EXPECT_EQ(text_of(model_), before);
  EXPECT_EQ(file_count(), 1u);
}

TEST_F(CommandLine, AResultThatCannotBeWrittenIsAFailure) {
  for (const char* redirection : {">/dev/full", ">&-"}) {
    SCOPED_TRACE(redirection);
    const std::string call = std::string("exec \"$0\" models ") + redirection;
    const CommandResult result =
        kelnn_test::run_command({"/bin/sh", "-c", call, KEL_NN_TEST_PROGRAM});
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_THAT(result.err, HasSubstr("kelnn: cannot write the result: "));
  }
}

TEST_F(CommandLine, DoctorIsContentWithAModelThatWorks) {
  pack_sample();
  const CommandResult result = doctor();
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_THAT(result.out, AllOf(HasSubstr("1 ok, 11 missing, 0 broken"), HasSubstr(model_)));
  const CommandResult as_json = run_kelnn({"doctor", "--json", "--root", root_});
  EXPECT_TRUE(json::accept(as_json.out)) << as_json.out;
}

TEST_F(CommandLine, DoctorSaysWhatIsWrongAndWhatToDo) {
  EXPECT_THAT(doctor().out, HasSubstr("there is no directory"));
  fs::create_directory(root_);
  EXPECT_THAT(doctor().out, HasSubstr("kelnn pack TASK NETWORK.onnx --root"));
  EXPECT_EQ(doctor().exit_code, 1);

  pack_sample();
  std::string without_slash = root_;
  without_slash.pop_back();
  const CommandResult beside = run_kelnn({"doctor", "--root", without_slash});
  EXPECT_EQ(beside.exit_code, 1);
  EXPECT_THAT(beside.out, HasSubstr("does not end with \"/\""));

  const std::string whole = text_of(model_);
  struct Case {
    const char* name;
    std::string content;
    const char* explanation;
  };
  std::string changed = whole;
  changed[changed.size() / 2] ^= 1;
  const Case cases[] = {
      {"cut off", whole.substr(0, whole.size() - 500), "cut off"},
      {"nearly nothing left", whole.substr(0, 2999), "cut off"},
      {"one bit changed", changed, "damaged"},
      {"a picture", text_of(kPictures + "face_a_distorted.png"), "not a model that was packed"},
      {"a bare network", text_of(kSample), "not a model that was packed"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::ofstream(model_, std::ios::binary) << c.content;
    const CommandResult result = doctor();
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_THAT(result.out,
                AllOf(HasSubstr(c.explanation), HasSubstr("to do: kelnn pack face-features"),
                      HasSubstr("1 broken")));
  }
}

TEST_F(CommandLine, DoctorKnowsWhoseNetworkItIs) {
  pack_sample();
  fs::rename(model_, root_ / kelnn::kFaceClassifyModel);
  // 256 values are more than the three of the classes: only the shapes tell.
  EXPECT_THAT(doctor().out, HasSubstr("this is a network for face-features"));
}

// ----- Faces

TEST_F(CommandLine, APictureResemblesItsDistortedCopyMoreThanAnother) {
  pack_sample();
  EXPECT_NEAR(compare("face_a.png", "face_a.png"), 1.0, 1e-6);
  const double copy = compare("face_a.png", "face_a_distorted.png");
  EXPECT_GT(copy, compare("face_a.png", "face_b.png") + 0.1);
  EXPECT_LT(copy, 0.9999);
}

TEST_F(CommandLine, OnlyTheResultGoesToStandardOutput) {
  pack_sample();
  const CommandResult result =
      run_kelnn({"--json", "compare", kPictures + "face_b.png", kPictures + "both_faces.png",
                 "--box-b", "180,50,120,120", "--root", root_});
  ASSERT_EQ(result.exit_code, 0);
  EXPECT_GT(json::parse(result.out).at("similarity").get<double>(), 0.95);
  EXPECT_THAT(result.err, HasSubstr("* KELNN v1.3.19 2023/03/07 *"));

  // The root needs its "/" only where the library itself is asked; a command adds it.
  std::string without_slash = root_;
  without_slash.pop_back();
  const CommandResult feature =
      run_kelnn({"feature", kPictures + "face_a.png", "--root", without_slash});
  EXPECT_EQ(std::count(feature.out.begin(), feature.out.end(), '\n'), 256);
}

TEST_F(CommandLine, SaysWhyThereIsNoResult) {
  struct Case {
    std::vector<std::string> arguments;
    const char* explanation;
  };
  const std::string face = kPictures + "face_a.png";
  const Case no_model = {{"feature", face, "--root", root_}, "kelnn pack face-features"};
  EXPECT_THAT(run_kelnn(no_model.arguments).err, HasSubstr(no_model.explanation));
  pack_sample();
  const Case cases[] = {
      {{"feature", "missing.png", "--root", root_}, "missing.png: No such file"},
      {{"feature", kSample, "--root", root_}, "not a picture"},
      {{"feature", face, "--box", "200,0,100,50", "--root", root_}, "224 x 224"},
  };
  for (const Case& c : cases) {
    const CommandResult result = run_kelnn(c.arguments);
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr(c.explanation));
  }
}

// Without a root: what $KELNN_MODELS names, else the user's directory. Packed there, found there.
TEST_F(CommandLine, KnowsWhereModelsAre) {
  struct Case {
    std::vector<std::string> environment;
    const char* directory;
  };
  const std::string at = directory_.string() + "/";
  const Case cases[] = {
      {{"HOME=" + at + "a"}, "a/.local/share/kelnn/models/"},
      {{"HOME=" + at + "b", "XDG_DATA_HOME=" + at + "b/data"}, "b/data/kelnn/models/"},
      {{"HOME=" + at + "c", "XDG_DATA_HOME=data"}, "c/.local/share/kelnn/models/"},
      {{"HOME=" + at + "a", "KELNN_MODELS=" + at + "d"}, "d/"},
  };
  const std::string face = kPictures + "face_a.png";
  for (const Case& c : cases) {
    SCOPED_TRACE(c.directory);
    const auto run = [&c](const std::vector<std::string>& arguments) {
      std::vector<std::string> call = {"/usr/bin/env", "-u", "KELNN_MODELS", "-u", "XDG_DATA_HOME"};
      call.insert(call.end(), c.environment.begin(), c.environment.end());
      call.push_back(KEL_NN_TEST_PROGRAM);
      call.insert(call.end(), arguments.begin(), arguments.end());
      return kelnn_test::run_command(call);
    };
    const std::string model = at + c.directory + kelnn::kFaceFeatureModel;
    const CommandResult packed = run({"pack", "face-features", kSample});
    EXPECT_THAT(packed.out, HasSubstr(model)) << packed.err;
    EXPECT_EQ(run({"feature", face}).exit_code, 0);
    const CommandResult other = run({"classify-face", face});
    EXPECT_EQ(other.exit_code, 1);
    EXPECT_THAT(other.err, HasSubstr("looked in "));
    EXPECT_THAT(other.err, HasSubstr(at + c.directory));
    EXPECT_THAT(other.err, Not(HasSubstr("--root"))) << "to do: pack it there";
  }
}

TEST_F(CommandLine, TheProgramInCAgrees) {
  pack_sample();
  const CommandResult result =
      kelnn_test::run_command({KEL_NN_TEST_EXAMPLES "/compare_faces", root_,
                               kPictures + "face_a.pgm", kPictures + "face_a_distorted.pgm"});
  EXPECT_EQ(result.exit_code, 0) << result.err;
  const size_t at = result.out.find("similarity ");
  ASSERT_NE(at, std::string::npos) << result.out;
  EXPECT_NEAR(std::stod(result.out.substr(at + 11)), compare("face_a.pgm", "face_a_distorted.pgm"),
              1e-6);
}

}  // namespace
