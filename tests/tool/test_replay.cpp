// SPDX-License-Identifier: Apache-2.0
// The recorder in front of whole programs, and kelnn replay on what it wrote.
#include <sys/stat.h>

#include "recording_reader.h"
#include "support/command_test.h"

namespace {

using namespace kelnn_test;
using kelnn_record::Entry;
using kelnn_record::Field;

const std::string kVisitor = kPictures + "../videos/visitor.avi",
                  kCry = kPictures + "../sounds/cry.flac";

// The record as bytes, in front of them their size and check.
std::string bytes_of(const Entry& entry) {
  kelnn_record::Record record;
  record.begin(entry.name.c_str(), entry.header);
  for (const Field& field : entry.fields) {
    record.add(field.kind, field.name.c_str(), field.type, field.value.data(), field.value.size());
  }
  const auto* bytes = reinterpret_cast<const char*>(record.bytes().data());
  const size_t size = record.bytes().size();
  const kelnn_record::RecordHeader header = {static_cast<uint32_t>(size),
                                             kelnn_record::check_of(bytes, size)};
  return std::string(reinterpret_cast<const char*>(&header), sizeof(header)) +
         std::string(bytes, size);
}

std::vector<Entry> entries_of(const std::string& file, std::string* problem = nullptr) {
  kelnn_record::RecordingReader reader({file.begin(), file.end()});
  std::vector<Entry> entries;
  for (Entry entry; reader.next(&entry);) entries.push_back(entry);
  if (problem) *problem = reader.problem();
  return entries;
}

class Replay : public CommandTest {
 protected:
  // Of a program's calls, into rec/.
  CommandResult record(const std::vector<std::string>& settings,
                       const std::vector<std::string>& program) const {
    std::vector<std::string> command = {"/usr/bin/env", "KELNN_RECORD=" + path("rec"),
                                        "LD_PRELOAD=" KEL_NN_TEST_RECORDER,
                                        "KELNN_RECORD_QUEUE_KIB=65536"};
    command.insert(command.end(), settings.begin(), settings.end());
    command.insert(command.end(), program.begin(), program.end());
    return run(command);
  }
  CommandResult record_kelnn(const std::vector<std::string>& settings,
                             const std::string& arguments) const {
    std::vector<std::string> program = {KEL_NN_TEST_PROGRAM};
    std::istringstream words(arguments);
    for (std::string word; words >> word;) program.push_back(word);
    return record(settings, program);
  }
  // {compared, skipped, lost, missing, differing}
  std::vector<int> replayed(const std::string& arguments) const {
    const Json found = Json::parse(kelnn("replay --json " + arguments).out);
    return {found.at("compared"), found.at("skipped"), found.at("lost"), found.at("missing"),
            found.at("differing")};
  }
};

const std::string kWholeInputs = "KELNN_RECORD_INPUTS=whole",
                  kDigests = "KELNN_RECORD_OUTPUTS=digests";

// Every task once, with what its networks give and without; 41 calls, of which 13 need frames or sound.
TEST_F(Replay, EveryTaskGivesAgainWhatItGave) {
  const struct {
    std::vector<std::string> settings;
    int as_recorded, with_networks;  // calls that can be made again
  } cases[] = {{{kWholeInputs}, 41, 41}, {{}, 28, 21}, {{kWholeInputs, kDigests}, 33, 41}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.settings.empty() ? "digests" : c.settings.back());
    fs::remove_all(path("rec"));
    ASSERT_EQ(record(c.settings, {KEL_NN_TEST_EXAMPLES "/digests", path("models/")}).exit_code, 0);
    EXPECT_THAT(replayed("rec"), ElementsAre(c.as_recorded, 41 - c.as_recorded, 0, 0, 0));
    EXPECT_THAT(replayed("--run-networks --root models rec"),
                ElementsAre(c.with_networks, 41 - c.with_networks, 0, 0, 0));
  }
  // Another process, with graphs of its own, records behind them; a directory is one recording.
  save("picture.ppm", grey_frame({64, 64}));
  const CommandResult own =
      record({kWholeInputs}, {KEL_NN_TEST_EXAMPLES "/own_network",
                              kNetworks + "mean_416x256x3.onnx", path("picture.ppm")});
  ASSERT_EQ(own.exit_code, 0) << own.err;
  EXPECT_THAT(replayed("rec"), ElementsAre(33 + 3, 8, 0, 0, 0));
  EXPECT_THAT(replayed("--run-networks --root / rec/kelnn-000002.rec"), ElementsAre(3, 0, 0, 0, 0));
  // Linked before the library instead of preloaded.
  fs::remove_all(path("rec"));
  const CommandResult linked =
      run({"/usr/bin/env", "KELNN_RECORD=rec", KEL_NN_TEST_RECORDED, path("models/")});
  EXPECT_EQ(linked.exit_code, 0) << linked.err;
  EXPECT_THAT(replayed("rec"), ElementsAre(28, 13, 0, 0, 0));
}

TEST_F(Replay, TellsTheFirstCallThatDiffersAndWhere) {
  ASSERT_EQ(record({kWholeInputs}, {KEL_NN_TEST_EXAMPLES "/digests", path("models/")}).exit_code,
            0);
  const std::string file = text("rec/kelnn-000001.rec");
  const struct {
    const char *function, *field;
    size_t byte;  // whose lowest bit is turned
    const char *value, *recorded, *now;
  } cases[] = {
      {"kel_nn_pir_filter_process", "result", 0, "result", "", ""},
      {"kel_nn_face_feature_extract", "feature", 4 * 255, "feature[255]", "0x", "0x"},
      {"kel_nn_crydet_process", "network_input", 0, "network_input", "19008 bytes of digest",
       "19008 bytes of digest"},
      {"kel_nn_persondet_init", "returned", 0, "returned", "1", "0"},
      {"kel_nn_facelm_process", "pose", 3, "pose[0]", "0x", "0x"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.field);
    std::string edited = file.substr(0, sizeof(kelnn_record::FileHeader));
    uint64_t number = 0;  // of the call
    for (Entry entry : entries_of(file)) {
      for (Field& field : entry.fields) {
        if (number > 0 || entry.name != c.function || field.name != c.field) continue;
        field.value[c.byte] ^= 1;
        number = entry.header.number;
      }
      edited += bytes_of(entry);
    }
    write("edited.rec", edited);
    const CommandResult result = kelnn("replay --json edited.rec");
    EXPECT_EQ(result.exit_code, 1);
    const Json difference = Json::parse(result.out).at("difference");
    EXPECT_EQ(difference.at("call"), number);
    EXPECT_EQ(difference.at("function"), c.function);
    EXPECT_EQ(difference.at("value"), c.value);
    EXPECT_THAT(difference.at("recorded").get<std::string>(), HasSubstr(c.recorded));
    EXPECT_THAT(difference.at("replayed").get<std::string>(), HasSubstr(c.now));
    EXPECT_NE(difference.at("recorded"), difference.at("replayed"));
    EXPECT_THAT(kelnn("replay edited.rec").out,
                HasSubstr(std::string("  value     ") + c.value + "\n"));
  }
  // Names are the recording's, and may be what a terminal would obey.
  std::vector<Entry> calls = entries_of(file);
  for (Entry& entry : calls) {
    if (entry.name == "kel_nn_pir_filter_process") entry.fields.back().name = "\033[2J\u009b";
  }
  std::string forged = file.substr(0, sizeof(kelnn_record::FileHeader));
  for (const Entry& entry : calls) forged += bytes_of(entry);
  write("edited.rec", forged);
  EXPECT_THAT(kelnn("replay edited.rec").out, HasSubstr("  value     \\x1b[2J\\x9b\n"));
}

// Wherever the power went, and whichever byte has changed: what is in front of it is whole.
TEST_F(Replay, WhatIsTornOrDamagedIsDroppedAndTold) {
  ASSERT_EQ(record_kelnn({}, "motion --limit 4 --period 2 " + kVisitor).exit_code, 0);
  const std::string file = text("rec/kelnn-000001.rec");
  std::vector<size_t> ends = {sizeof(kelnn_record::FileHeader)};
  for (const Entry& entry : entries_of(file)) ends.push_back(ends.back() + bytes_of(entry).size());
  ASSERT_EQ(ends.back(), file.size());
  std::string problem;
  for (size_t at = ends[0]; at < file.size(); ++at) {
    const size_t whole = std::upper_bound(ends.begin(), ends.end(), at) - ends.begin() - 1;
    const bool is_between = ends[whole] == at;
    ASSERT_EQ(entries_of(file.substr(0, at), &problem).size(), whole) << at;
    ASSERT_EQ(problem, is_between ? ""
                                  : "the last record is torn: " + std::to_string(at - ends[whole]) +
                                        " bytes dropped");
    std::string changed = file;
    changed[at] ^= 0x10;
    ASSERT_EQ(entries_of(changed, &problem).size(), whole) << at;
    ASSERT_NE(problem, "") << at;
  }
  write("torn.rec", file.substr(0, file.size() - 1));
  const CommandResult torn = kelnn("replay torn.rec");
  EXPECT_EQ(torn.exit_code, 0);
  EXPECT_THAT(torn.err, HasSubstr("torn.rec: the last record is torn: "));
  // Whole, but never written: a network of which nothing is told, a handle without a number.
  const auto call = [](const char* name, uint64_t number, std::vector<Field> fields) {
    Entry entry = {{number, 0, 0, 0, 0, 0}, name, std::move(fields)};
    return bytes_of(entry);
  };
  using kelnn_record::Kind;
  using kelnn_record::Type;
  const auto integers = [](const char* name, const std::vector<int32_t>& values) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(values.data());
    return Field{Kind::kArgument, Type::kIntegers, name, {bytes, bytes + 4 * values.size()}};
  };
  const Field model = {Kind::kArgument, Type::kText, "network_model", {'m'}},
              one = integers("graph", {1}), scrambled = integers("scrambled", {1}),
              none = integers("handle", {0});
  write("forged.rec",
        file.substr(0, ends[1]) +
            call("kel_nne_graph_init", 1,
                 {one, model, scrambled, integers("network_loaded", {-1, 1})}) +
            call("kel_nne_graph_init", 2,
                 {integers("graph", {2}), model, scrambled, integers("network_loaded", {})}) +
            call("kel_nn_handle_create", 3, {none}) + call("kel_nn_handle_destroy", 4, {none}));
  EXPECT_EQ(kelnn("replay forged.rec").exit_code, 1);
  write("text.rec", "no recording at all");
  write("later.rec", std::string("KELNNREC\2\0\0\0\1\0\0\0", 16));
  fs::create_directory(path("empty"));
  expect_refused({{"replay text.rec", 1, "text.rec: not a recording"},
                  {"replay later.rec", 1, "later.rec: a recording of version 2, not 1"},
                  {"replay empty", 1, "empty: no recording"},
                  {"replay nowhere.rec", 1, "nowhere.rec"},
                  {"replay", 2, "recording"}});
}

// A ring: old files go, the tasks that are initialised are told again.
TEST_F(Replay, TheFilesKeepWithinTheirLimit) {
  std::string pictures;
  for (int i = 0; i < 150; ++i) pictures += " " + kPictures + "face_a.png";
  ASSERT_EQ(
      record_kelnn({kWholeInputs, "KELNN_RECORD_LIMIT_MIB=1"}, "landmarks --root models" + pictures)
          .exit_code,
      0);
  uintmax_t size = 0;
  for (const fs::directory_entry& file : fs::directory_iterator(path("rec")))
    size += file.file_size();
  EXPECT_LE(size, 1u << 20);
  EXPECT_GE(size, 700u << 10);
  EXPECT_FALSE(fs::exists(path("rec/kelnn-000001.rec")));
  const std::vector<int> found = replayed("rec");
  EXPECT_GE(found[0], 50);  // compared
  EXPECT_GE(found[3], 50);  // missing
  EXPECT_GE(found[0] + found[3], 150);
  EXPECT_EQ(found[1] + found[2] + found[4], 0);

  // What follows from frames and sound that are gone is not compared; a window of sound begins anew.
  const std::string sounds = kPictures + "../sounds";
  for (const std::string& call : {"motion " + kVisitor, "cry --root models " + sounds}) {
    fs::remove_all(path("rec"));
    ASSERT_EQ(record_kelnn({kWholeInputs, "KELNN_RECORD_LIMIT_MIB=1"}, call).exit_code, 0);
    const std::vector<int> rest = replayed("rec");
    EXPECT_GT(rest[0], 0) << call;
    EXPECT_GT(rest[1], 0) << call;
    EXPECT_GT(rest[3], 0) << call;
    EXPECT_EQ(rest[2] + rest[4], 0) << call;
  }
}

// Neither a queue that is full nor a disk changes what the application gets.
TEST_F(Replay, WhatHasNoRoomIsCountedAndTold) {
  const std::string call = "motion " + kVisitor;
  const std::string result = out(call);
  const struct {
    const char* name;
    std::string setting, limit;
    int most_lost;
  } cases[] = {
      {"queue", "KELNN_RECORD_QUEUE_KIB=64", "unlimited", 84},  // a frame is larger
      {"disk", "KELNN_RECORD_LIMIT_MIB=64", "1000", 84},        // of 512 bytes or 1024: some frames
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove_all(path("rec"));
    const CommandResult recorded = run({"/bin/sh", "-c",
                                        "ulimit -f " + std::string(c.limit) +
                                            " && exec env LD_PRELOAD=" KEL_NN_TEST_RECORDER
                                            " KELNN_RECORD=rec KELNN_RECORD_INPUTS=whole " +
                                            c.setting + " " KEL_NN_TEST_PROGRAM " " + call});
    EXPECT_EQ(recorded.exit_code, 0) << recorded.err;
    EXPECT_EQ(recorded.out, result);
    const std::vector<int> found = replayed("rec");
    EXPECT_GT(found[2], 70);
    EXPECT_LE(found[2], c.most_lost);
    EXPECT_EQ(found[0] + found[1] + found[2], 84 + 4);  // handle and filter are made and released
    EXPECT_EQ(found[3] + found[4], 0);
  }
  // A program that ends while a thread of it is in a call.
  EXPECT_EQ(record({}, {KEL_NN_TEST_ENDS_IN_A_CALL}).exit_code, 0);
  write("file", "");
  const CommandResult nowhere = run({"/usr/bin/env", "LD_PRELOAD=" KEL_NN_TEST_RECORDER,
                                     "KELNN_RECORD=file", KEL_NN_TEST_PROGRAM, "motion", kVisitor});
  EXPECT_EQ(nowhere.out, result);
  EXPECT_THAT(nowhere.err, HasSubstr("libkelnn_record: cannot record to file: "));
}

// Labels of what was found, by which what is found in the pictures and sounds is right.
TEST_F(Replay, ExportsLabelledData) {
  save_video("v.avi", {640, 360}, 6, [](int i, cv::Mat* frame) {
    if (i >= 2) paint(frame, on_grid({640, 360}, {kRed, 6 + i, 3}), kRed);
  });
  ASSERT_EQ(record_kelnn({kWholeInputs}, "persons --root models v.avi").exit_code, 0);
  ASSERT_EQ(record_kelnn({kWholeInputs}, "cry --root models " + kCry).exit_code, 0);
  ASSERT_EQ(
      record_kelnn({kWholeInputs}, "landmarks --root models " + kPictures + "face_a.png").exit_code,
      0);
  EXPECT_THAT(out("replay --export exported rec"), HasSubstr(" pictures and sounds exported\n"));
  const Json persons = json("eval person-detection --data exported/person-detection --root models");
  EXPECT_EQ(persons.at("pictures"), 6);
  EXPECT_GE(persons.at("labelled"), 4);
  EXPECT_EQ(persons.at("found"), persons.at("labelled"));
  EXPECT_EQ(persons.at("matches"), persons.at("labelled"));
  EXPECT_LT(json("eval face-landmarks --data exported/face-landmarks --root models")
                .at("mean_point_error"),
            0.001);
  EXPECT_EQ(json("eval cry-detection --data exported/cry-detection --root models").at("accuracy"),
            1.0);
  // Another process, whose calls are counted from 1 again.
  ASSERT_EQ(
      record_kelnn({kWholeInputs}, "landmarks --root models " + kPictures + "face_b.png").exit_code,
      0);
  out("replay --export two rec");
  const Json both = json("eval face-landmarks --data two/face-landmarks --root models");
  EXPECT_EQ(both.at("pictures"), 2);
  EXPECT_LT(both.at("mean_point_error"), 0.001);
  // What is left of a ring: for what frames faces are told has been said in a file that is gone.
  fs::remove_all(path("rec"));
  ASSERT_EQ(record_kelnn({kWholeInputs, "KELNN_RECORD_LIMIT_MIB=4"}, "faces --root models v.avi")
                .exit_code,
            0);
  out("replay --export rest rec/kelnn-000002.rec");
  EXPECT_GE(json("eval face-detection --data rest/face-detection --root models").at("pictures"), 1);
  fs::remove_all(path("rec"));
  ASSERT_EQ(record_kelnn({}, "landmarks --root models " + kPictures + "face_a.png").exit_code, 0);
  expect_refused({{"replay --quiet --export nothing rec", 1, "nothing to export"}});
}

}  // namespace
