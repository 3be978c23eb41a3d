// SPDX-License-Identifier: Apache-2.0
// The command line as a user meets it: exit codes, what goes to which stream, files that are written whole.
#include <csignal>

#include "kel_nn.h"
#include "kel_nn_kit_verify.h"
#include "kel_nn_model_files.h"
#include "support/command_test.h"

namespace {

using namespace kelnn_test;

const std::string kSample = KEL_NN_TEST_SAMPLE_NETWORK;

class CommandLine : public CommandTest {
 protected:
  double compare(const std::string& a, const std::string& b) {
    return std::stod(out("compare --aligned " + kPictures + a + " " + kPictures + b));
  }
  // $0 is the program.
  CommandResult shell(const std::string& script) const {
    return run({"/bin/sh", "-c", script, KEL_NN_TEST_PROGRAM});
  }
};

TEST_F(CommandLine, WrongCallsEndWith2AndWrongInputsWith1) {
  save("good.png", grey_frame({64, 48}));
  save("other.png", grey_frame({64, 48}));
  save("other/good.png", grey_frame({64, 48}));
  save_video("v.avi", {64, 48}, 2, [](int, cv::Mat*) {});
  fs::create_directory(path("none"));
  write("text", "no picture");
  const std::string model = "root/" + std::string(kelnn::kFaceFeatureModel);
  write(model, "no model");
  fs::create_symlink("good.png", path("link.png"));
  write("text.wav", "RIFF, but not for long");
  write("labelled/labels.csv", "file,class\n../good.png,0\n");
  expect_refused({
      {"", 2, "which command?"},
      {"dance", 2, "dance"},
      {"compare one.png", 2, "b is required"},
      {"models --no-such-option", 2, "--no-such-option"},
      {"pack face-features", 2, "network is required"},
      {"pack face-features x.onnx --inspect y.bin", 2, "task excludes --inspect"},
      {"pack face-featurs x.onnx", 2, "no task \"face-featurs\""},
      {"feature good.png --box 1,2,3", 2, "\"1,2,3\" is not X,Y,WIDTH,HEIGHT"},
      {"feature good.png --box 0,0,99999999999,1", 2, "is not X,Y,WIDTH,HEIGHT"},
      {"persons", 2, "input is required"},
      {"persons good.png --limit many", 2, "--limit"},
      {"persons good.png --every 0", 2, "--every"},
      {"objects good.png --classes a,b,c", 2, "\"a,b,c\" is not four names"},
      {"objects good.png --classes a,,c,d,e", 2, "--classes"},
      {"objects good.png --classes a,,c,d", 2, "is not four names"},
      {"faces good.png --classes a,b,c,d", 2, "--classes"},
      {"motion", 2, "input is required"},
      {"motion v.avi --ratio nan", 2, "\"nan\" is not a percentage"},
      {"motion v.avi --ratio 101", 2, "\"101\" is not a percentage"},
      {"watch v.avi --ratio -1", 2, "\"-1\" is not a percentage"},
      {"motion v.avi --period 0", 2, "--period"},
      {"motion v.avi --ratios 1,2", 2, "--sweep"},
      {"motion v.avi --sweep --periods 5,x", 2, "--periods"},
      {"motion v.avi --sweep --draw x.avi", 2, "--draw"},
      {"cry text.wav --threshold -1", 2, "--threshold"},
      {"cry text.wav --threshold nan", 2, "\"nan\" is not a loudness"},
      {"features text.wav", 2, "--png"},
      {"features text.wav --csv x.csv --window -1", 2, "--window"},
      {"eval face-classes", 2, "--data"},
      {"eval person-detection-landscape --data none", 2, "person-detection-landscape"},
      {"eval face-classes --data none --draw x", 2, "nothing is drawn of face-classes"},
      {"eval face-classes --data none --require accuracy=1", 2, "is not NAME>=NUMBER"},
      {"eval face-classes --data none --require accuracy>=high", 2, "is not NAME>=NUMBER"},
      {"eval face-classes --data none --require >=1", 2, "is not NAME>=NUMBER"},

      {"feature missing.png", 1, "missing.png: No such file"},
      {"feature text", 1, "text: not a picture"},
      {"feature good.png", 1, "good.png: no face is found. To do: say where"},
      {"feature --aligned good.png --box 64,0,60,10", 1, "outside the picture, which is 64 x 48"},
      {"feature --aligned good.png --box -20,0,20,10", 1, "outside the picture"},
      {"faces good.png other.png --draw a.png", 2, "outputs go to a directory"},
      {"faces good.png other.png --draw text", 2, "outputs go to a directory"},
      {"faces good.png --draw good.png", 2, "take the place of the input"},
      {"faces good.png other/good.png --draw other/", 2, "take the place of the input"},
      {"landmarks good.png --draw link.png", 2, "link.png: it would take the place of the input"},
      {"features text.wav --csv text.wav", 2, "take the place of the input"},
      {"eval face-classes --data labelled --csv good.png", 2, "take the place of the input"},
      {"doctor --root root --csv " + model, 2, "take the place of the input"},
      {"pack face-features " + model + " --root root", 2, "take the place of the input"},
      {"unpack " + model + " -o " + model, 2, "take the place of the input"},
      {"faces good.png --draw a.xyz", 1, "a.xyz: pictures are written as"},
      {"faces v.avi --draw a.png", 1, "a.png: videos are written as"},
      {"faces v.avi --draw /dev/null/a.avi", 1, "/dev/null: Not a directory"},
      {"motion v.avi --draw a.txt", 1, "a.txt: videos are written as"},
      {"motion v.avi --draw v.avi", 2, "take the place of the input"},
      {"motion nothing.avi", 1, "nothing.avi: No such file"},
      {"motion good.png", 1, "good.png: a picture"},
      {"watch good.png", 1, "good.png: a picture"},
      {"cry text.wav", 1, "text.wav: "},
      {"cry nowhere.wav", 1, "nowhere.wav: "},
      {"cry none", 1, "none: "},
      {"cry -", 1, "shorter than a window"},
      {"eval face-classes --data nowhere", 1, "nowhere/labels.csv: No such file"},

      {"persons good.png --root none", 1, "kelnn pack person-detection-landscape"},
      {"landmarks good.png --root none", 1, "face-landmarks has no model that can be used"},
      {"feature good.png --root none", 1, "kelnn pack face-features"},
      {"classify-face good.png --root none", 1, "face-classes has no model that can be used"},
      {"classify-person good.png --root none", 1, "person-classes has no model that can be used"},
  });
  const CommandResult twins = kelnn("faces good.png other/good.png --draw drawn/");
  EXPECT_EQ(twins.exit_code, 1);
  // What faces prints may begin before the picture; of a directory's name the "/" is left out.
  Json inside = json("feature --aligned good.png --box -20,-3,40,60");
  inside.erase("feature");
  inside.erase("aligned");
  EXPECT_EQ(inside, Json({{"input", "good.png"}, {"x", 0}, {"y", 0}, {"w", 20}, {"h", 48}}));
  out("faces good.png other.png --draw several");
  EXPECT_EQ(file_count("several"), 2u);
  // A model that is not there is told once, with what to type, as a shell takes it.
  const CommandResult none =
      run({KEL_NN_TEST_PROGRAM, "faces", "good.png", "other.png", "--root", "it's none"});
  EXPECT_EQ(none.exit_code, 1);
  const std::string command =
      "To do: kelnn pack face-detection NETWORK.onnx --root 'it'\\''s none/'\n";
  EXPECT_EQ(none.err.find(command), none.err.rfind(command));
  EXPECT_THAT(none.err, HasSubstr(command));
  EXPECT_THAT(twins.err, HasSubstr("other/good.png: the output of another input has the name"));
}

TEST_F(CommandLine, ExplainsItself) {
  EXPECT_EQ(out("--version"), "kelnn 1.3.19\n");
  for (const char* call : {"--help", "pack --help", "doctor --help"}) {
    EXPECT_THAT(out(call), HasSubstr("Usage"));
  }
  const Json models = json("models").at("tasks");
  EXPECT_EQ(models.size(), 12u);
  for (const char* file :
       {kelnn::kFaceFeatureModel, kelnn::kFourClassPortraitModel, kelnn::kCryDetectionModel}) {
    EXPECT_THAT(models.dump(), HasSubstr(file));
  }
}

TEST_F(CommandLine, AResultThatCannotBeWrittenIsAFailure) {
  for (const std::string call :
       {"models >/dev/full", "models >&-", "--version >/dev/full", "--print-manual >/dev/full"}) {
    SCOPED_TRACE(call);
    const CommandResult result = shell("exec \"$0\" " + call);
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_THAT(result.err, HasSubstr("kelnn: cannot write the result: "));
  }
}

// ----- Outputs

TEST_F(CommandLine, OutputsKeepTheirKindTheirPermissionsAndTheirLinks) {
  const std::string network = text_of(kSample);
  const auto mode = [this](const std::string& name) {
    return static_cast<unsigned>(fs::symlink_status(path(name)).permissions());
  };
  write("private", "before");
  fs::permissions(path("private"), fs::perms(0600));
  fs::create_directory(path("far"));
  fs::create_symlink("far/private", path("link"));
  fs::create_symlink("../private", path("far/private"));
  fs::create_symlink("far/new", path("link_to_new"));
  fs::create_symlink("/dev/full", path("full"));
  const CommandResult said = shell(
      "unpack() { \"$0\" unpack face-features -o \"$1\"; }; umask 027; mkfifo pipe; cat pipe "
      ">piped & "
      "unpack pipe && unpack link && unpack link_to_new && wait && umask 0 && unpack open/new");
  EXPECT_EQ(said.exit_code, 0) << said.err;
  for (const char* name : {"piped", "private", "far/new", "open/new"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(text(name), network);
  }
  ASSERT_TRUE(fs::is_fifo(path("pipe"))) << "a device may go the same way";
  for (const char* name : {"link", "far/private", "link_to_new", "full"}) {
    EXPECT_TRUE(fs::is_symlink(path(name))) << name;
  }
  EXPECT_EQ(mode("private"), 0600u);
  EXPECT_EQ(mode("far/new"), 0640u);
  EXPECT_EQ(mode("open/new"), 0666u);
  fs::create_symlink("/proc/self/fd/1", path("stdout"));  // as /dev/stdout is
  EXPECT_EQ(out("unpack face-features -o stdout"), network) << "and nothing else";
  expect_refused({{"unpack face-features -o full", 1, "full: No space left"}});
  EXPECT_EQ(file_count("far") + file_count("open"), 3u);
}

// A recording whose lines fill a pipe that nobody reads: the program waits in its middle.
TEST_F(CommandLine, WhatEndsAVideoLeavesItWholeOrNotAtAll) {
  save_video("v.avi", {32, 32}, 3000, [](int, cv::Mat*) {});
  fs::create_symlink("/dev/full", path("full.avi"));
  const size_t file_count_before = file_count("");
  const struct {
    const char* end;
    int exit_code;
    bool is_finished;
  } cases[] = {{"kill -INT $!; cat <&3 >/dev/null", 128 + SIGINT, true},
               {"kill -TERM $!; cat <&3 >/dev/null", 128 + SIGTERM, true},
               {"kill -HUP $!; cat <&3 >/dev/null", 128 + SIGHUP, true},
               {"kill -STOP $!; kill -INT $!; kill -TERM $!; kill -CONT $!", 128, false},
               {"exec 3<&-", 128, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.end);
    const CommandResult result = shell(
        std::string("mkfifo pipe; env --default-signal=INT,PIPE \"$0\" motion v.avi --period 1 "
                    "--draw drawn.avi >pipe & exec 3<pipe; read line <&3; ") +
        c.end + "; exec 3<&-; wait $!; code=$?; rm pipe; exit $code");
    if (c.is_finished) {
      EXPECT_EQ(result.exit_code, c.exit_code);
    } else {
      EXPECT_GT(result.exit_code, c.exit_code) << "ended by the signal";
    }
    EXPECT_EQ(result.err.find("kelnn: v.avi: interrupted after frame ") != std::string::npos,
              c.is_finished);
    if (c.is_finished) {
      EXPECT_GT(cv::VideoCapture(path("drawn.avi")).get(cv::CAP_PROP_FRAME_COUNT), 1);
    }
    EXPECT_EQ(fs::remove(path("drawn.avi")), c.is_finished);
    EXPECT_EQ(file_count(""), file_count_before) << "nothing temporary stays";
  }
  // Files may grow to 64 blocks of 512 bytes.
  const CommandResult cut = shell("ulimit -f 64; exec \"$0\" motion v.avi --draw drawn.avi");
  EXPECT_EQ(cut.exit_code, 1);
  EXPECT_THAT(cut.err, HasSubstr("drawn.avi: cannot be written: File too large"));
  EXPECT_THAT(kelnn("motion v.avi --draw full.avi").err, HasSubstr("No space left"));
  EXPECT_EQ(file_count(""), file_count_before);
}

// ----- Models

TEST_F(CommandLine, PackChangesTheModelForOneThatFitsOrNotAtAll) {
  expect_refused({{"pack face-features missing.onnx --root own", 1, "missing.onnx: No such file"}});
  expect_refused(
      {{"pack face-features " + kNetworks + "identity.onnx --root own/a/b", 1, "input"}});
  EXPECT_FALSE(fs::exists(path("own"))) << "nor what was made on the way";
  out("pack face-features " + kSample + " --root own");
  const std::string model = "own/" + std::string(kelnn::kFaceFeatureModel), before = text(model);
  out("unpack face-features --root own -o back.onnx");
  EXPECT_EQ(text("back.onnx"), text_of(kSample));

  const struct {
    const char* task;
    std::string network;
    const char* explanation;
  } cases[] = {
      {"face-features", kPictures + "face_a.png", "kelnn: "},
      {"face-features", kNetworks + "unknown_operator.onnx",
       "unknown_operator.onnx: OpenCV cannot import or run the network: Node "
       "[Nonsense@elsewhere]:(nose) "
       "parse error: Can't create layer \"nose\" of type \"elsewhere.Nonsense\"\n"},
      {"face-features", kNetworks + "endless_name.onnx", "cannot import or run the network"},
      {"face-features", kNetworks + "misspelt_operator.onnx", "No Op registered for Rleu"},
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
  for (const auto& c : cases) {
    expect_refused(
        {{std::string("pack ") + c.task + " " + c.network + " --root own", 1, c.explanation}});
  }
  // What is going to be the model is tried, not what lies there by then.
  EXPECT_THAT(kelnn("pack -v face-features " + kNetworks + "identity.onnx --root own").err,
              AllOf(HasSubstr("model: own/.kelnn-"), Not(HasSubstr("model: " + kNetworks))));
  // Files may grow to 64 blocks of 512 bytes, a tenth of the model.
  const CommandResult full =
      shell("ulimit -f 64; exec \"$0\" pack face-features " + kSample + " --root own");
  EXPECT_EQ(full.exit_code, 1);
  EXPECT_THAT(full.err, HasSubstr("File too large"));
  EXPECT_EQ(text(model), before);
  EXPECT_EQ(file_count("own"), 1u);
}

// A network for the board is any bytes. What tells about them is the label, laid out as docs/models.md says.
TEST_F(CommandLine, BoardsModelsAreTheBytesThatTheyWerePackedFrom) {
  const std::string name = kelnn::kFaceFeatureModel, cry = kelnn::kCryDetectionModel;
  std::string network(70001, '\0');
  for (size_t i = 0; i < network.size(); ++i) network[i] = static_cast<char>(i * i >> 3);
  write("net.bin", network);
  write("tiny.bin", "x");
  write("empty.bin", "");
  expect_refused({{"pack face-features empty.bin --raw --root new", 1, "the network is empty"}});
  EXPECT_FALSE(fs::exists(path("new")));
  out("pack face-features net.bin --raw --root new");
  out("pack cry-detection tiny.bin --raw --root new");

  uint8_t* model = nullptr;
  ASSERT_EQ(kel_nn_model_xor_decode_from_file(path("new/" + name).c_str(), &model, 1000,
                                              kelnn::kScrambleKey),
            network.size());
  EXPECT_EQ(std::string(reinterpret_cast<char*>(model), network.size()), network);
  std::free(model);
  // Checksums by Python's zlib.
  const std::vector<uint8_t> label = {0x93, 0x4b, 0x45, 0x4c, 0x4e, 0x4c, 0x0d, 0x0a,
                                      0x01, 0x00, 0x00, 0x00, 0x0b, 0x82, 0x17, 0xa4,
                                      0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                                      0x83, 0x16, 0xdc, 0x8c, 0x61, 0xd0, 0x43, 0x3b};
  const std::string tiny = text("new/" + cry);
  EXPECT_EQ(std::vector<uint8_t>(tiny.begin(), tiny.begin() + 32), label);
  EXPECT_EQ(tiny.substr(32, 968), std::string(968, '\0'));
  EXPECT_EQ(tiny.size(), 3000u);
  for (const auto& [task, bytes] :
       {std::pair("face-features", network), std::pair("cry-detection", std::string("x"))}) {
    out(std::string("unpack ") + task + " --root new -o back");
    EXPECT_EQ(text("back"), bytes);
  }
  EXPECT_EQ(json("pack --inspect face-features --root new"),
            Json({{"path", "new/" + name},
                  {"bytes", 71001},
                  {"label", {{"task", "face-features"}, {"bytes", 70001}, {"crc32", "098649dc"}}},
                  {"scrambled", true},
                  {"content", "bytes for another runtime, the board's"}}));
  const std::string whole = text("new/" + name);

  std::string damaged = whole, relabelled = whole, plain = whole.substr(0, 1000) + network;
  damaged[500 + 1000] ^= 1;
  relabelled[16] ^= 1;
  write("whole/notes/text", "not a model, in a directory that is none");
  const std::string onnx = text("models/" + name);
  struct Case {
    const char* directory;
    std::string file, content;
    int exit_code;
    std::vector<const char*> words;
  };
  const Case cases[] = {
      {"whole/", name, whole, 0, {"1 ok, 11 missing, 0 broken\n"}},
      {"others/", name, std::string(1000, 'a') + network, 0, {"1 ok", "note: no label"}},
      {"cut/", name, whole.substr(0, whole.size() - 1), 1, {"cut off", "1 broken"}},
      {"short/", name, whole.substr(0, 2999), 1, {"only 2999 of at least 3000 bytes"}},
      {"damaged/",
       name,
       damaged,
       1,
       {"some of its bytes", "to do: kelnn pack face-features NETWORK --raw --root damaged/"}},
      {"relabelled/", name, relabelled, 1, {"some of its bytes have changed"}},
      {"plain/", name, plain, 1, {"the model is not scrambled"}},
      {"elsewhere/", cry, whole, 1, {"packed as the model of face-features"}},
      {"misnamed/", "net.bin", whole, 1, {"no task opens", "1 broken", kelnn::kFaceFeatureModel}},
      {"onnx/", name, onnx, 1, {"an ONNX network for a PC"}},
      {"empty/", "unknown", "", 1, {"holds no model of any task"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.directory);
    write(c.directory + c.file, c.content);
    const CommandResult result = kelnn(std::string("doctor --board --root ") + c.directory);
    EXPECT_EQ(result.exit_code, c.exit_code);
    for (const char* words : c.words) EXPECT_THAT(result.out, HasSubstr(words));
  }
  EXPECT_THAT(kelnn("pack --inspect plain/" + name).out, HasSubstr("scrambled  no\n"));
  EXPECT_THAT(out("pack --inspect onnx/" + name), HasSubstr("an ONNX network in a container"));
  EXPECT_THAT(out("pack --inspect others/" + name), HasSubstr("scrambled  unknown\n"));
}

TEST_F(CommandLine, DoctorSaysWhatIsWrongAndWhatToDo) {
  const std::string feature_model = kelnn::kFaceFeatureModel;
  const std::string whole = text("models/" + feature_model);
  std::string changed = whole;
  changed[changed.size() / 2] ^= 1;
  fs::create_directory(path("empty"));
  write("fine/" + feature_model, whole);
  write("cut/" + feature_model, whole.substr(0, whole.size() - 500));
  write("short/" + feature_model, whole.substr(0, 2999));
  write("changed/" + feature_model, changed);
  write("picture/" + feature_model, text_of(kPictures + "face_a_distorted.png"));
  write("bare/" + feature_model, text_of(kSample));
  out("pack face-features bare/" + feature_model + " --raw --root raw/");
  write("other/" + std::string(kelnn::kFaceClassifyModel), whole);
  write("mixed/" + feature_model, whole);
  write("mixed/" + std::string(kelnn::kFaceClassifyModel), whole);
  const struct {
    const char* root;
    int exit_code;
    std::vector<const char*> words;
  } cases[] = {
      {"fine/", 0, {"1 ok, 11 missing, 0 broken", kelnn::kFaceFeatureModel}},
      {"fine", 0, {"1 ok, 11 missing, 0 broken"}},
      {"nowhere/", 1, {"there is no directory"}},
      {"empty/", 1, {"to do: kelnn pack face-detection NETWORK.onnx --root empty/"}},
      {"cut/", 1, {"cut off", "1 broken"}},
      {"short/", 1, {"cut off", "1 broken"}},
      {"changed/", 1, {"damaged", "to do: kelnn pack face-features"}},
      {"picture/", 1, {"not a model that was packed"}},
      {"bare/", 1, {"not a model that was packed"}},
      {"raw/", 1, {"not a model that was packed for a PC"}},
      // 256 values are more than the three of the classes: only the shapes tell.
      {"other/", 1, {"this is a network for face-features"}},
      {"mixed/", 1, {"1 ok, 10 missing, 1 broken"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.root);
    const CommandResult result = kelnn(std::string("doctor --root ") + c.root);
    EXPECT_EQ(result.exit_code, c.exit_code);
    for (const char* words : c.words) EXPECT_THAT(result.out, HasSubstr(words));
  }
  const Json report = json("doctor --root fine/");
  EXPECT_EQ(report.at("ok"), true);
  EXPECT_EQ(report.at("models").size(), 12u);
}

// Whatever is done to a signed directory is refused, and the file is named; by the kit too, which the doctor asks.
TEST_F(CommandLine, ASignedDirectoryIsAsItWasOrRefused) {
  const auto set_up = [this](const std::string& directory) {
    for (const char* file : {"one.bin", "two.bin"})
      write(directory + "/" + file, std::string(5000, file[0]));
  };
  set_up("signed");
  set_up("another");
  write("another/three.bin", "3");
  out("sign --new-key key");
  out("sign --new-key stranger");
  out("sign --key key another");
  EXPECT_THAT(out("sign --key key signed"), HasSubstr("signed/kelnn-models.sig: 2 files signed"));
  EXPECT_EQ(fs::status(path("key")).permissions(), fs::perms(0600));
  const std::string signature = text("signed/kelnn-models.sig");
  const auto turned = [](std::string content, size_t byte) {
    content[byte] ^= 1;
    return content;
  };
  const std::string cut_off = signature.substr(0, signature.size() - 1), two(5000, 't');
  const struct {
    const char* name;
    std::function<void(const std::string&)> tamper;  // given the directory, with "/"
    const char* problem;
  } cases[] = {
      {"nothing", [](const std::string&) {}, ""},
      {"signed again", [&](const std::string&) { out("sign --key key tampered"); }, ""},
      {"changed", [&](const std::string& d) { write(d + "two.bin", turned(two, 4999)); },
       "two.bin: has been changed"},
      {"longer", [&](const std::string& d) { write(d + "two.bin", two + "t"); },
       "two.bin: has been changed"},
      {"missing", [&](const std::string& d) { fs::remove(path(d + "one.bin")); },
       "one.bin: is missing"},
      {"added", [&](const std::string& d) { write(d + "three.bin", ""); },
       "three.bin: has been added"},
      {"a directory added", [&](const std::string& d) { fs::create_directory(path(d + "more")); },
       "more: has been added"},
      {"renamed",
       [&](const std::string& d) { fs::rename(path(d + "one.bin"), path(d + "One.bin")); },
       "one.bin: is missing"},
      {"exchanged", [&](const std::string& d) { write(d + "one.bin", two); },
       "one.bin: has been changed"},
      {"a directory instead",
       [&](const std::string& d) {
         fs::remove(path(d + "one.bin"));
         fs::create_directory(path(d + "one.bin"));
       },
       "one.bin: has been changed"},
      {"a link instead, to the same",
       [&](const std::string& d) {
         fs::remove(path(d + "one.bin"));
         fs::create_symlink(path("signed/one.bin"), path(d + "one.bin"));
       },
       "one.bin: has been changed"},
      {"of another directory",
       [&](const std::string& d) {
         write(d + "kelnn-models.sig", text("another/kelnn-models.sig"));
       },
       "three.bin: is missing"},
      {"by a stranger", [&](const std::string&) { out("sign --key stranger tampered"); },
       "kelnn-models.sig: not signed by this key"},
      {"no signature", [&](const std::string& d) { fs::remove(path(d + "kelnn-models.sig")); },
       "kelnn-models.sig: is missing"},
      {"list changed",
       [&](const std::string& d) { write(d + "kelnn-models.sig", turned(signature, 20)); },
       "kelnn-models.sig: not signed"},
      {"signature changed",
       [&](const std::string& d) {
         write(d + "kelnn-models.sig", turned(signature, signature.size() - 2));
       },
       "kelnn-models.sig: not signed"},
      {"cut off", [&](const std::string& d) { write(d + "kelnn-models.sig", cut_off); },
       "kelnn-models.sig: not signed"},
      {"empty", [&](const std::string& d) { write(d + "kelnn-models.sig", ""); },
       "kelnn-models.sig: cut off"},
      {"endless",
       [&](const std::string& d) { write(d + "kelnn-models.sig", std::string(300000, 'k')); },
       "kelnn-models.sig: too long"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove_all(path("tampered"));
    fs::copy(path("signed"), path("tampered"));
    c.tamper("tampered/");
    const Json found =
        Json::parse(kelnn("doctor --board --json --verify key.pub --root tampered").out);
    const std::string problem = found.at("models").empty() ? found.at("problem") : Json("");
    EXPECT_THAT(problem, HasSubstr(c.problem));
    EXPECT_EQ(problem.empty(), *c.problem == '\0');
    EXPECT_EQ(found.at("models").empty(), *c.problem != '\0');  // nothing of it was looked at
    char said[200];
    EXPECT_EQ(kel_nn_kit_verify_models(path("tampered").c_str(),
                                       text("key.pub").substr(19, 64).c_str(), said, sizeof(said)),
              *c.problem ? -1 : 0);
  }
  // As loaded by the library: models that are fine, in a directory that is.
  fs::copy(path("models"), path("fine"));
  out("sign --key key fine");
  EXPECT_THAT(out("doctor --verify key.pub --root fine"), HasSubstr("12 ok"));
  fs::permissions(path("stranger"), fs::perms(0640));
  fs::create_directory(path("nothing"));
  fs::create_directory(path("links"));
  fs::create_symlink(path("signed/one.bin"), path("links/one.bin"));
  write("half.pub", text("key.pub").substr(0, 60));
  write("taken.pub", "");
  for (int i = 0; i < 860; ++i) write("many/" + std::string(240, 'm') + std::to_string(i), "");
  expect_refused(
      {{"sign --new-key key", 1, "key"},
       {"sign --new-key taken", 1, "taken.pub: File exists"},
       {"sign --key stranger signed", 1, "stranger: others may read or write the secret key"},
       {"sign --key key.pub signed", 1, "key.pub: "},
       {"sign --key key nothing", 1, "there is nothing to sign"},
       {"sign --key key links", 1, "links/one.bin: only files can be signed"},
       {"sign --key key nowhere", 1, "nowhere/: No such file"},
       {"sign --key key many", 1, "too many files: their list may have 262004 bytes at most"},
       {"sign signed", 2, "--key is required"},
       {"doctor --verify half.pub --root signed", 1, "half.pub: not a kelnn public key"},
       {"doctor --verify key --root signed", 1, "key: not a kelnn public key"}});
  EXPECT_FALSE(fs::exists(path("taken")));
  for (const char* wrong : {"", "00", "zz"})
    EXPECT_EQ(kel_nn_kit_verify_models("x", wrong, nullptr, 0), -1);
  EXPECT_EQ(kel_nn_kit_verify_models(nullptr, "00", nullptr, 0), -1);
}

// Without a root: what $KELNN_MODELS names, else the user's directory. Packed there, found there.
TEST_F(CommandLine, KnowsWhereModelsAre) {
  struct Case {
    std::vector<std::string> environment;
    const char* directory;
  };
  const std::string at = path("");
  const Case cases[] = {
      {{"HOME=" + at + "a"}, "a/.local/share/kelnn/models/"},
      {{"HOME=" + at + "b", "XDG_DATA_HOME=" + at + "b/data"}, "b/data/kelnn/models/"},
      {{"HOME=" + at + "c", "XDG_DATA_HOME=data"}, "c/.local/share/kelnn/models/"},
      {{"HOME=" + at + "a", "KELNN_MODELS=" + at + "d"}, "d/"},
  };
  const std::string face = kPictures + "face_a.png";
  for (const auto& c : cases) {
    SCOPED_TRACE(c.directory);
    const auto run_there = [&](const std::vector<std::string>& arguments) {
      std::vector<std::string> call = {"/usr/bin/env", "-u", "KELNN_MODELS", "-u", "XDG_DATA_HOME"};
      call.insert(call.end(), c.environment.begin(), c.environment.end());
      call.push_back(KEL_NN_TEST_PROGRAM);
      call.insert(call.end(), arguments.begin(), arguments.end());
      return run(call);
    };
    const CommandResult packed = run_there({"pack", "face-features", kSample});
    EXPECT_THAT(packed.out, HasSubstr(at + c.directory + kelnn::kFaceFeatureModel)) << packed.err;
    EXPECT_EQ(run_there({"feature", "--aligned", face}).exit_code, 0);
    const CommandResult other = run_there({"classify-face", face});
    EXPECT_EQ(other.exit_code, 1);
    EXPECT_THAT(run_there({"doctor"}).out, Not(HasSubstr("--root")));
    EXPECT_THAT(other.err, AllOf(HasSubstr("looked in "), HasSubstr(at + c.directory),
                                 Not(HasSubstr("--root"))));  // to do: pack it there
  }
}

// ----- Faces

TEST_F(CommandLine, APictureResemblesItsDistortedCopyMoreThanAnother) {
  EXPECT_NEAR(compare("face_a.png", "face_a.png"), 1.0, 1e-6);
  const double copy = compare("face_a.png", "face_a_distorted.png");
  EXPECT_GT(copy, compare("face_a.png", "face_b.png") + 0.1);
  EXPECT_LT(copy, 0.9999);

  const CommandResult program = run({KEL_NN_TEST_EXAMPLES "/compare_faces", "models/",
                                     kPictures + "face_a.pgm", kPictures + "face_a_distorted.pgm"});
  ASSERT_THAT(program.out, HasSubstr("similarity ")) << program.err;
  EXPECT_NEAR(std::stod(program.out.substr(program.out.find("similarity ") + 11)),
              compare("face_a.pgm", "face_a_distorted.pgm"), 1e-6);
}

TEST_F(CommandLine, OnlyTheResultGoesToStandardOutput) {
  const CommandResult result = kelnn("--json compare --aligned " + kPictures + "face_b.png " +
                                     kPictures + "both_faces.png --box-b 180,50,120,120");
  ASSERT_EQ(result.exit_code, 0);
  EXPECT_GT(Json::parse(result.out).at("similarity"), 0.95);
  EXPECT_EQ(result.err, "") << "what the library says is held back";
  const std::string call = "feature --aligned " + kPictures + "face_a.png";
  EXPECT_THAT(kelnn(call + " -v").err,
              AllOf(HasSubstr("* KELNN v1.3.19 2023/03/07 *"), Not(HasSubstr("\033"))));
  write("broken/" + std::string(kelnn::kFaceFeatureModel),
        text("models/" + std::string(kelnn::kFaceClassifyModel)));
  EXPECT_THAT(kelnn(call + " --root broken").err, HasSubstr("\n[Error]"));
  // The root needs its "/" only where the library itself is asked; a command adds it.
  const std::string feature = out("feature --aligned " + kPictures + "face_a.png --root models");
  EXPECT_EQ(std::count(feature.begin(), feature.end(), '\n'), 256);
}

}  // namespace
