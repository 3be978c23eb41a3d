// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <regex>
#include <sstream>

#include "commands.h"
#include "frame_source.h"
#include "gallery.h"
#include "kel_nn.h"
#include "kel_nn_kit.h"
#include "manual.h"
#include "model_search.h"
#include "numbers.h"
#include "task_catalogue.h"

namespace kelnn_cli {
namespace {

// ----- Adding commands

// The command line in the making; parsing it sets `chosen`.
struct Commands {
  CLI::App* app;
  std::function<bool(Reporter*)>* chosen;
  ResultPaths* files;

  // Parsing fills the options, which live as long as the command does.
  template <typename Options>
  std::pair<CLI::App*, Options*> add(bool (*run)(const Options&, Reporter*), const char* name,
                                     const std::string& help) const {
    const auto options = std::make_shared<Options>();
    CLI::App* command = app->add_subcommand(name, help);
    command->callback([chosen = chosen, options, run] {
      *chosen = [options, run](Reporter* reporter) { return run(*options, reporter); };
    });
    return {command, options.get()};
  }
};

// In the list of all commands each gets one line: the first of its description.
class ShortList : public CLI::Formatter {
  std::string make_subcommand(const CLI::App* command) const override {
    const std::string description = command->get_description();
    std::stringstream line;
    CLI::detail::format_help(line, command->get_name(),
                             description.substr(0, description.find('\n')), column_width_);
    return line.str();
  }
};

// ----- Values that are read from a text; false: it is none

constexpr int64_t kMaxMegabytes = 1000000000;

std::vector<std::string> split(const std::string& list) {
  std::vector<std::string> parts;
  std::istringstream stream(list);
  for (std::string part; std::getline(stream, part, ',');) parts.push_back(part);
  return parts;
}

bool read_box(const std::string& text, kel_nn::Rect* box) {
  const std::vector<std::string> parts = split(text);
  return parts.size() == 4 && parse_number(parts[0], &box->x) && parse_number(parts[1], &box->y) &&
         parse_number(parts[2], &box->w) && parse_number(parts[3], &box->h) && box->w > 0 &&
         box->h > 0;
}

bool read_requirement(const std::string& text, Requirement* requirement) {
  const size_t relation = text.find_first_of("<>");
  if (relation == 0 || relation == std::string::npos || text[relation + 1] != '=') return false;
  *requirement = {text, text.substr(0, relation), text[relation] == '>', 0};
  return parse_number(text.substr(relation + 2), &requirement->limit) &&
         std::isfinite(requirement->limit);
}

// "nv12:640x360", "rgb:320x240@12.5".
bool read_raw_format(const std::string& text, std::string* of_ffmpeg) {
  static const std::regex form(
      R"((nv12|i420|grey|rgb|bgr):(\d{1,5})x(\d{1,5})(?:@(\d{1,4}(?:\.\d{1,9})?))?)");  // a star would take a stack as deep as the text is long
  static const std::map<std::string, const char*> in_ffmpeg = {
      {"nv12", "nv12"}, {"i420", "yuv420p"}, {"grey", "gray"}, {"rgb", "rgb24"}, {"bgr", "bgr24"}};
  std::smatch part;
  if (!std::regex_match(text, part, form)) return false;
  const int width = std::stoi(part[2]), height = std::stoi(part[3]);
  const double rate = part[4].matched ? std::stod(part[4]) : kUsualFramesPerSecond;
  *of_ffmpeg = fmt::format("pixel_format={},video_size={}x{},framerate={}", in_ffmpeg.at(part[1]),
                           width, height, rate);
  return std::min(width, height) >= 1 && std::max(width, height) <= KEL_NN_KIT_MAX_SIDE &&
         rate > 0 && rate <= kMaxFramesPerSecond;
}

bool read_four_names(const std::string& text, std::vector<std::string>* names) {
  *names = split(text + ",");
  return names->size() == 4 && std::count(names->begin(), names->end(), "") == 0;
}

bool read_megabytes(const std::string& text, int64_t* bytes) {
  int64_t megabytes = 0;
  if (!parse_number(text, &megabytes) || megabytes < 1 || megabytes > kMaxMegabytes) return false;
  *bytes = megabytes * 1000000;
  return true;
}

// "127.0.0.1:8080", "[::1]:8080", "localhost:8080", ":8080", "8080", nothing.
bool read_page_address(const std::string& text, PageOptions* page) {
  static const std::regex form(
      R"((?:(\d{1,3}(?:\.\d{1,3}){3}|localhost|\[([0-9a-fA-F:.]{2,45})\])?:)?(\d{1,5}))");
  std::smatch part;
  if (text.empty()) return true;
  if (!std::regex_match(text, part, form)) return false;
  if (part[2].matched) {
    page->host = part[2];
  } else if (part[1].length() > 0 && part[1] != "localhost") {
    page->host = part[1];
  }
  page->port = std::stoi(part[3]);
  return page->port <= 65535;
}

constexpr int64_t kMaxFrames = 1000000000;
constexpr int kMaxPeriod = 1000000, kMaxStep = 1000000;  // frames
constexpr float kLongest = 1e9, kLoudest = 1e9;          // seconds, a window's loudness

// ----- Adding options

template <typename Value>
CLI::Option* option(CLI::App* command, const char* name, Value* value, const char* type,
                    const std::string& help) {
  return command->add_option(name, *value, help)->type_name(type);
}

template <typename Value>
CLI::Option* argument(CLI::App* command, const char* name, Value* value, const char* type,
                      const std::string& help) {
  return option(command, name, value, type, help)->required();
}

// One whose text is read by a function of our own.
template <typename Value, typename Take>
CLI::Option* read_option(CLI::App* command, const char* name, const char* type, const char* what,
                         const std::string& help, bool (*read)(const std::string&, Value*),
                         const Take& take) {
  const auto take_all = [=](const CLI::results_t& texts) {
    for (const std::string& text : texts) {
      Value value;
      if (!read(text, &value)) {
        throw CLI::ValidationError(name, fmt::format("\"{}\" is not {}", text, what));
      }
      take(value);
    }
    return true;
  };
  return command->add_option(name, take_all, help)->type_name(type);
}

// May be given several times.
template <typename Value>
void read_options(CLI::App* command, const char* name, const char* type, const char* what,
                  const std::string& help, bool (*read)(const std::string&, Value*),
                  std::vector<Value>* values) {
  read_option(command, name, type, what, help, read,
              [values](const Value& value) { values->push_back(value); })
      ->expected(1, CLI::detail::expected_max_vector_size)
      ->allow_extra_args(false);
}

// What is asked for without the others.
void let_replace(CLI::Option* option, const std::vector<CLI::Option*>& others) {
  for (CLI::Option* other : others) option->excludes(other);
  option->each([others](const std::string&) {
    for (CLI::Option* other : others) other->required(false);
  });
}

// No text but a number passes, and no NaN.
CLI::Validator from_to(float least, float most, const std::string& what) {
  const auto problem = [=](const std::string& text) {
    float number = 0;
    const bool is_fine = parse_number(text, &number) && number >= least && number <= most;
    return is_fine ? "" : fmt::format("\"{}\" is not {}", text, what);
  };
  return CLI::Validator(problem, "");
}

const CLI::Validator kPercentage = from_to(0, 100, "a percentage from 0 to 100");

// ----- Options that several commands have

void add_root(CLI::App* command, std::string* root) {
  *root = models_to_read();
  option(command, "--root", root, "DIR",
         "Directory of the model files. Without it: $KELNN_MODELS; else the user's\n"
         "directory, else the installed one, whichever has models");
}

void add_root_to_write(CLI::App* command, std::string* root) {
  *root = models_to_write();
  option(command, "--root", root, "DIR",
         "Directory of the model files. Without it: $KELNN_MODELS, else the user's\n"
         "directory, ~/.local/share/kelnn/models");
}

void add_gallery(CLI::App* command, std::string* gallery) {
  *gallery = gallery_of_user();
  option(command, "--gallery", gallery, "FILE",
         "The gallery. Without it the user's, ~/.local/share/kelnn/gallery.db");
}

void add_same_person(CLI::App* command, float* threshold) {
  option(command, "--threshold", threshold, "SIMILARITY",
         "How alike faces of one person have to be, from -1 to 1: kelnn eval face-features\n"
         "measures what is right for a network")
      ->check(CLI::Range(-1.0, 1.0))
      ->capture_default_str();
}

// What inputs there are, by name and in other ways.
CLI::Option* add_inputs(CLI::App* command, const char* name, InputList* inputs, const char* type,
                        const std::string& help) {
  CLI::Option* names = argument(command, name, &inputs->names, type, help);
  option(command, "--glob", &inputs->glob, "PATTERN",
         "What to take of a directory, by name: '*.raw', 'cam?_*.mp4'. Without it: what has\n"
         "a usual extension");
  command
      ->add_flag("-0,--null", inputs->is_null_separated,
                 "Take the names on standard input, too, each of which a zero byte ends, as\n"
                 "find -print0 writes them")
      ->each([names](const std::string&) { names->required(false); });
  return names;
}

void add_lenient(CLI::App* command, InputSettings* input) {
  command->add_flag(
      "--lenient", input->is_lenient,
      "Go on with what would mislead, and tell: damaged and cut-off files, recordings\n"
      "too short for a decision");
}

void add_part(CLI::App* command, InputSettings* input) {
  option(command, "--start", &input->start, "SECONDS", "Begin there")
      ->check(from_to(0, kLongest, "a number of seconds"));
  option(command, "--duration", &input->duration, "SECONDS", "End so much later")
      ->check(from_to(0, kLongest, "a number of seconds"));
  add_lenient(command, input);
}

enum HasSubtitles { kNoSubtitles, kWithSubtitles };

// As files besides the text, or instead of it.
void add_result_files(const Commands& commands, CLI::App* command, HasSubtitles subtitles) {
  option(command, "--csv", &commands.files->csv, "FILE",
         "Write a table, whose columns are named as with --json; - prints it instead of\n"
         "the text");
  if (subtitles == kNoSubtitles) return;
  option(command, "--vtt", &commands.files->vtt, "OUT",
         "Write WebVTT, subtitles for players, of what is found; for several inputs a\n"
         "directory");
}

void add_frame_options(CLI::App* command, FrameOptions* frames) {
  option(command, "--every", &frames->step, "N", "Look at every Nth frame only")
      ->check(CLI::Range(1, kMaxStep));
  add_part(command, &frames->input);
  read_option(command, "--raw", "PIXELS:WxH[@RATE]",
              "PIXELS:WIDTHxHEIGHT or PIXELS:WIDTHxHEIGHT@RATE",
              "The inputs are raw frames: nv12, i420, grey, rgb or bgr, their width and height,\n"
              "and if they are not 25 a second, @ and how many. - is standard input then",
              read_raw_format,
              [raw = &frames->input.raw](const std::string& of_ffmpeg) { *raw = of_ffmpeg; });
  option(command, "--limit", &frames->limit, "N", "Look at this many frames of an input at most")
      ->check(CLI::Range(int64_t{1}, kMaxFrames));
}

CLI::Option* add_task(CLI::App* command, std::string* task, const char* help) {
  return option(command, "task", task, "TASK", help)
      ->check(CLI::Validator(
          [](std::string& key) {
            return find_task(key) ? "" : "no task \"" + key + "\"; kelnn models lists them";
          },
          ""));
}

constexpr char kBoxForm[] = "X,Y,WIDTH,HEIGHT";

constexpr char kVideoHelp[] =
    "Video files, directories of them, streams as rtsp://... or http://..., cameras as camera:0,\n"
    "camera:1, ..., - for a list of those on standard input";

// ----- Model files

void add_model_files(const Commands& commands) {
  const auto [models, listed] =
      commands.add(list_models, "models",
                   "Lists the tasks: the file, input and outputs of each.\n"
                   "Inputs are in the order of ONNX: 1, channels, height, width.");
  add_task(models, &listed->task, "One task (default: all)");
  add_result_files(commands, models, kNoSubtitles);

  const auto [pack, packed] = commands.add(
      kelnn_cli::pack, "pack",
      "Makes an ONNX network the model of a task.\n"
      "Checks that the network runs and has the shapes of the task, and writes it under the\n"
      "file name of the task. The directory is made when there is none. The old model stays\n"
      "until the new one is whole. With --raw it takes what a vendor's converter wrote for the\n"
      "board, which nothing here can run.");
  CLI::Option* task = add_task(pack, &packed->task, "The task; kelnn models lists them");
  CLI::Option* network = argument(pack, "network", &packed->network, "FILE", "The ONNX file");
  pack->add_flag("--raw", packed->is_raw, "Pack the bytes of the file as they are, unchecked");
  CLI::Option* inspected = option(
      pack, "--inspect", &packed->inspected, "TASK|FILE",
      "Pack nothing; show what is in a model: its label, whether it is scrambled and whole,\n"
      "and what kind of network it has");
  let_replace(inspected, {task->required(), network});
  add_root_to_write(pack, &packed->root);

  const auto [unpack, unpacked] = commands.add(
      kelnn_cli::unpack, "unpack", "Gets the network back out of a model, as it was packed.");
  argument(unpack, "model", &unpacked->model, "TASK|FILE", "A task, or the path of a model file");
  argument(unpack, "-o,--output", &unpacked->output, "FILE", "The file to write");
  add_root(unpack, &unpacked->root);

  const auto [sign, signing] = commands.add(
      kelnn_cli::sign, "sign",
      "Signs a directory of models (Ed25519), so that it can be verified where it is used.\n"
      "The signature covers the names, sizes and digests of all files in it and is written beside\n"
      "them. kelnn doctor --verify checks it, and on a camera kel_nn_kit_verify_models() does.");
  CLI::Option* key = option(sign, "--key", &signing->key, "FILE", "The secret key to sign with");
  CLI::Option* directory =
      option(sign, "directory", &signing->root, "DIR", "The models' directory");
  CLI::Option* new_key = option(
      sign, "--new-key", &signing->new_key, "FILE",
      "Sign nothing; make a secret key, FILE, that only its owner may read, and FILE.pub to\n"
      "verify with. Neither may exist");
  let_replace(new_key, {key->required(), directory});
  signing->root = models_to_write();

  const auto [doctor, examined] = commands.add(
      kelnn_cli::doctor, "doctor",
      "Says what is wrong with a directory of models, and what to do.\n"
      "Looks at every task's model the way the library does: which file it opens, and whether\n"
      "the file is there, whole, loads and has the task's shapes. Succeeds when at least one\n"
      "model is there and all that are there are fine.");
  doctor->add_flag(
      "--board", examined->is_for_board,
      "The board's models, which cannot be loaded here: look at names, sizes and labels");
  option(doctor, "--verify", &examined->public_key, "KEY.pub",
         "Refuse the directory unless it is as it was when it was signed with this key's pair");
  add_result_files(commands, doctor, kNoSubtitles);
  add_root(doctor, &examined->root);
}

// ----- Cut-outs of pictures

constexpr char kCentreSquare[] =
    "\nOf each picture the centre square is taken, or each box, and scaled to 112 x 112.\n";
constexpr char kAlignedFaces[] =
    "\nThe surest face of a picture is found, or each box taken, its landmarks are found, and it "
    "is\n"
    "turned and scaled by them to 112 x 112: aligned. --aligned takes what is ready.\n";

void add_aligned(CLI::App* command, bool* is_ready) {
  command->add_flag("--aligned", *is_ready,
                    "The pictures are crops as the network wants them, or have them in their\n"
                    "centre square or in the boxes");
}

std::pair<CLI::App*, CutOutOptions*> add_cut_out(const Commands& commands,
                                                 bool (*run)(const CutOutOptions&, Reporter*),
                                                 const char* name, const std::string& help,
                                                 const char* taken = kCentreSquare,
                                                 bool can_draw = false) {
  const auto [command, options] = commands.add(
      run, name,
      help + taken +
          "A picture that cannot be read is complained about, the others are still done, and\n"
          "the exit code is 1. With --json an object a line where there are several.");
  add_inputs(command, "picture", &options->pictures, "FILE",
             "Picture files, directories of them, - for a list of those on standard input");
  add_lenient(command, &options->input);
  read_options(command, "--box", "X,Y,W,H", kBoxForm,
               "Which part of the picture, as faces prints it: what of it lies in the picture is\n"
               "taken. May be given several times",
               read_box, &options->boxes);
  if (can_draw) {
    option(command, "--draw", &options->out, "OUT",
           "Write the picture with the points, as parts of the cut-out from 0 to 1; for\n"
           "several pictures a directory");
  }
  add_result_files(commands, command, kNoSubtitles);
  add_root(command, &options->root);
  return {command, options};
}

void add_cut_outs(const Commands& commands) {
  const auto [command, options] = commands.add(
      compare, "compare",
      std::string("Prints how alike two faces are: 1 is the most, -1 the least.\n"
                  "From which value on they are the same person depends on the model.") +
          kAlignedFaces);
  argument(command, "a", &options->picture_a, "FILE", "A picture file");
  argument(command, "b", &options->picture_b, "FILE", "Another one");
  read_option(command, "--box-a", "X,Y,W,H", kBoxForm, "Where the face is in the first picture",
              read_box, [options = options](const kel_nn::Rect& box) { options->box_a = box; });
  read_option(command, "--box-b", "X,Y,W,H", kBoxForm, "Where the face is in the second picture",
              read_box, [options = options](const kel_nn::Rect& box) { options->box_b = box; });
  add_aligned(command, &options->is_ready);
  add_lenient(command, &options->input);
  add_result_files(commands, command, kNoSubtitles);
  add_root(command, &options->root);

  add_cut_out(
      commands, landmarks, "landmarks",
      "Finds eyes, nose and mouth of a face, and which way it looks.\n"
      "Prints the model's five points, x and y, and the three values of the pose as the\n"
      "model gives them. If all ten values are from 0 to 1 they are taken for parts of the\n"
      "cut-out, 0 its left or top edge and 1 its right or bottom edge, and pixels of the\n"
      "picture are printed as well.",
      kCentreSquare, true);
  const auto [features, of_features] =
      add_cut_out(commands, feature, "feature",
                  "Prints the 256 numbers that stand for a face, one a line.", kAlignedFaces);
  add_aligned(features, &of_features->is_ready);
  add_cut_out(commands, classify_face, "classify-face",
              "Tells which of three classes a face belongs to.\n"
              "Prints the class, 0 to 2, and its score (0 to 1), which does not depend on the\n"
              "other classes. What the classes are comes with the model.");
  add_cut_out(commands, classify_person, "classify-person",
              "Tells how probable a person is in a picture.\n"
              "Prints the probability (0 to 1) of the first of two classes. Which of them is a\n"
              "person comes with the model.");
}

// ----- Frames

constexpr char kDetectorHelp[] =
    R"(Of each frame: its size, how many there are, and of each box its class, score (0 to 1),
left and top edge and size in pixels. With --json an object a line for each frame, as it
comes. Frames may have any size up to 16384 pixels a side.
An input that cannot be read is complained about, the others are still done, and the
exit code is 1.)";

// What there is to say of boxes: which of them, and where they go.
void add_boxes(const Commands& commands, CLI::App* command, DetectOptions* options,
               float least_score) {
  option(command, "--draw", &options->out, "OUT",
         "Write the frames with what was found: a picture, or a video (.mp4, .webm, .avi); for\n"
         "several inputs a directory. Landmarks are taken for parts of their face's box");
  option(command, "--save-crops", &options->crops, "DIR",
         "Write what is in each box as DIR/INPUT-NUMBER.png; of videos as\n"
         "DIR/INPUT-FRAME-NUMBER.png");
  option(command, "--conf", &options->least_score, "SCORE",
         fmt::format("Leave out boxes with lower scores: from {} on, since the library leaves out\n"
                     "what is below that by itself",
                     least_score))
      ->check(from_to(least_score, 1,
                      fmt::format("a score from {0} to 1; the library itself leaves out what is "
                                  "below {0}",
                                  least_score)));
  option(command, "--only", &options->only, "CLASS",
         "Leave out boxes of other classes than this; may be given several times")
      ->allow_extra_args(false);
  add_result_files(commands, command, kWithSubtitles);
  option(command, "--coco", &commands.files->coco, "FILE",
         "Write the boxes as COCO's JSON, as tools for labels read it");
  add_frame_options(command, &options->frames);
  add_root(command, &options->root);
}

std::pair<CLI::App*, DetectOptions*> add_detector(const Commands& commands,
                                                  bool (*run)(const DetectOptions&, Reporter*),
                                                  const char* name, const std::string& what,
                                                  const std::vector<std::string>& class_names,
                                                  float least_score) {
  const auto [command, options] = commands.add(
      run, name, "Finds " + what + " in pictures, videos and camera frames.\n" + kDetectorHelp);
  options->class_names = class_names;
  add_inputs(command, "input", &options->inputs, "INPUT", std::string("Pictures. ") + kVideoHelp);
  add_boxes(commands, command, options, least_score);
  return {command, options};
}

void add_detectors(const Commands& commands) {
  using kel_nn::FaceDetector, kel_nn::GridDetector;
  add_detector(commands, detect_faces, "faces", "the faces", {"face"}, FaceDetector::kLeastScore);
  add_detector(commands, detect_persons, "persons", "the people", {"person"},
               GridDetector::kLeastScore);
  const auto [command, options] =
      add_detector(commands, detect_objects, "objects", "objects of four classes",
                   {"class 0", "class 1", "class 2", "class 3"}, GridDetector::kLeastScore);
  read_option(
      command, "--classes", "A,B,C,D", "four names with commas between them",
      "What the model's four classes are called", read_four_names,
      [options = options](const std::vector<std::string>& names) { options->class_names = names; });
}

void add_motion_settings(CLI::App* command, MotionSettings* settings) {
  option(command, "--ratio", &settings->ratio, "PERCENT",
         "From how many changed pixels on a frame votes for motion, in per cent of the\n"
         "halved frame")
      ->check(kPercentage)
      ->capture_default_str();
  option(command, "--period", &settings->period, "N", "Frames to a decision, by majority")
      ->check(CLI::Range(1, kMaxPeriod))
      ->capture_default_str();
}

void add_motion(const Commands& commands) {
  const auto [command, options] = commands.add(
      motion, "motion",
      "Tells motion in a recording or of a camera; needs no model.\n"
      "At the end of each period: motion or still, the share of the halved frame's pixels\n"
      "that changed (more than half of the period's frames reach it: motion is where it is at\n"
      "least the ratio), and the largest share. With --json an object a line.\n"
      "--sweep counts how many decisions of a recording say motion with each of several ratios\n"
      "and periods, to choose both without filming again.");
  add_inputs(command, "input", &options->inputs, "INPUT", kVideoHelp);
  add_motion_settings(command, &options->settings);
  CLI::Option* sweep = command->add_flag("--sweep", options->wants_sweep,
                                         "Count decisions for a grid of ratios and periods");
  option(command, "--draw", &options->out, "OUT",
         "Write a video (.mp4, .webm, .avi) with the changed pixels in red")
      ->excludes(sweep);
  option(command, "--ratios", &options->ratios, "A,B,...", "Ratios to try, in per cent")
      ->delimiter(',')
      ->check(kPercentage)
      ->needs(sweep)
      ->capture_default_str();
  option(command, "--periods", &options->periods, "A,B,...", "Periods to try, in frames")
      ->delimiter(',')
      ->check(CLI::Range(1, kMaxPeriod))
      ->needs(sweep)
      ->capture_default_str();
  add_result_files(commands, command, kWithSubtitles);
  add_frame_options(command, &options->frames);
}

void add_page(CLI::App* command, WatchOptions* options) {
  read_option(
      command, "--page", "[ADDRESS:PORT]",
      "ADDRESS:PORT, as 127.0.0.1:8080 or [::1]:8080; without one, --page is to be the last word",
      "Show it in a browser: the newest frame with what was found, motion, sound, the last\n"
      "events and their clips; at http://127.0.0.1:8080/, or there. Another address than this\n"
      "machine's own takes --page-token",
      read_page_address, [options](const PageOptions& page) { options->page = page; })
      ->expected(0, 1);
  option(command, "--page-token", &options->page_token, "TOKEN",
         "Who looks has to know this, from 16 to 128 letters, digits, - and _, as\n"
         "http://...:8080/?token=TOKEN or typed into the page. Without it: $KELNN_PAGE_TOKEN")
      ->envname("KELNN_PAGE_TOKEN")
      ->check(CLI::Validator(
          [](const std::string& token) {
            static const std::regex form("[A-Za-z0-9_-]{16,128}");
            return std::regex_match(token, form)
                       ? ""
                       : "a token has from 16 to 128 letters, digits, - and _";
          },
          ""));
}

void add_watch(const Commands& commands) {
  const auto [command, options] = commands.add(
      watch, "watch",
      "Looks as a camera would: motion, then people and faces; and listens for cries.\n"
      "From a period with motion until one without it looks for people and for faces, and at\n"
      "each face for its landmarks and, aligned by them, its features. Prints every frame on\n"
      "which motion was decided or something was found, or 3 s of the input's sound ended; with\n"
      "--json an object a line, with the landmarks and features. What is found is followed from\n"
      "frame to frame, by a number; what it does is an event, told once: entered, left,\n"
      "recognised, of faces that kelnn enroll has made known, and cry. Tasks whose model is\n"
      "missing are left out, with a note.");
  add_inputs(command, "input", &options->inputs, "INPUT", kVideoHelp);
  add_motion_settings(command, &options->settings);
  command->add_flag("--always", options->is_always_awake, "Look for people and faces in any frame");
  add_gallery(command, &options->gallery);
  add_same_person(command, &options->threshold);
  option(command, "--on-event", &options->on_event, "COMMAND",
         "Run this with each event, as --json prints it, on its standard input: one after the\n"
         "other, 10 s for each; 100 may wait, and others are left out");
  CLI::Option* clips =
      option(command, "--clips", &options->clips.directory, "DIR",
             "Write the 5 s before and after each event to DIR, as INPUT-FRAME.clip.mp4: the\n"
             "event has its name, and an event \"clip\" tells when it is complete");
  read_option(command, "--clips-limit", "MB", "a number of megabytes, from 1 on",
              "How much room the clips in DIR may take; the oldest go. Without it 1000",
              read_megabytes,
              [clips = &options->clips](int64_t bytes) { clips->most_bytes = bytes; })
      ->needs(clips);
  add_page(command, options);
  add_boxes(commands, command, options, kel_nn::GridDetector::kLeastScore);
}

// ----- Faces that are known by name

void add_galleries(const Commands& commands) {
  const auto [enroll, known] = commands.add(
      kelnn_cli::enroll, "enroll",
      "Makes a face known by name, from pictures of it, for kelnn who.\n"
      "The surest face of each picture is taken, or what is in the box, and its features, aligned\n"
      "by its landmarks, are kept in a gallery, a file of SQLite that you alone may read. Several\n"
      "pictures of a person, in different light and from different sides, are better than one.\n"
      "A gallery belongs to the model that it was begun with.");
  CLI::Option* name = argument(enroll, "name", &known->name, "NAME", "Who it is");
  CLI::Option* pictures =
      add_inputs(enroll, "picture", &known->pictures, "FILE",
                 "Picture files, directories of them, - for a list of those on standard input");
  read_option(enroll, "--box", "X,Y,W,H", kBoxForm,
              "Where the face is in each picture, as faces prints it", read_box,
              [known = known](const kel_nn::Rect& box) { known->box = box; });
  add_aligned(enroll, &known->is_ready);
  CLI::Option* list =
      enroll->add_flag("--list", known->wants_list, "Enroll nobody; show who is known");
  let_replace(list, {name, pictures});
  let_replace(enroll->add_flag("--remove", known->is_removal, "Forget the person instead"),
              {pictures, list});
  add_lenient(enroll, &known->input);
  add_gallery(enroll, &known->gallery);
  add_root(enroll, &known->root);

  const auto [who, asked] = commands.add(
      kelnn_cli::who, "who",
      "Tells whose faces are in pictures, videos and camera frames.\n"
      "Each face is found, aligned and compared with every face that kelnn enroll has made known;\n"
      "one that is like none of them is \"unknown\". Prints the name of the nearest, how alike "
      "they\n"
      "are (1 is the most) and where it is; with --json an object a line for each frame.");
  add_inputs(who, "input", &asked->inputs, "INPUT", std::string("Pictures. ") + kVideoHelp);
  add_same_person(who, &asked->threshold);
  option(who, "--draw", &asked->out, "OUT",
         "Write the frames with boxes and names: a picture, or a video (.mp4, .webm, .avi); for\n"
         "several inputs a directory");
  add_result_files(commands, who, kWithSubtitles);
  add_frame_options(who, &asked->frames);
  add_gallery(who, &asked->gallery);
  add_root(who, &asked->root);
}

// ----- Sound

constexpr char kSoundHelp[] =
    "Sound files (WAV, FLAC, Ogg, MP3, M4A, ...), videos and streams with sound, directories of\n"
    "them; - is bare samples on standard input: 16 bits, low byte first, mono at 16 kHz";

void add_cry(const Commands& commands) {
  const auto [command, options] = commands.add(
      cry, "cry",
      "Listens for a baby's cry.\n"
      "Prints the probability, from 0 to 1, for every 3 seconds of sound as soon as they are\n"
      "over, and how loud they were; with --json an object a line. What is too quiet for the\n"
      "gate is not shown to the network: 0.00001. Seconds left over at the end are told; it is\n"
      "an error when there are no others.");
  add_inputs(command, "input", &options->sounds, "FILE", kSoundHelp);
  add_part(command, &options->input);
  option(command, "--threshold", &options->threshold, "LOUDNESS",
         "The gate: the least loudness, a sum over every tenth sample's size (0 to\n"
         "32768). Less than the default counts as the default")
      ->check(from_to(0, kLoudest, "a loudness of 0 or more"))
      ->default_str(fmt::format("{:.0f}", kLowestGate));
  add_result_files(commands, command, kWithSubtitles);
  add_root(command, &options->root);
}

void add_features(const Commands& commands) {
  const auto [command, options] = commands.add(
      features, "features",
      "Shows what the cry detector's network sees of sound.\n"
      "Of 3 seconds: 297 rows, one for every 10 ms, of 64 bytes, the energy in 64 mel channels.\n"
      "128 is a channel's mean over the window. Needs no model.");
  add_inputs(command, "input", &options->sounds, "FILE", kSoundHelp);
  add_lenient(command, &options->input);
  option(command, "--window", &options->window, "N", "Which 3 seconds: 0 is the first")
      ->check(CLI::Range(uint64_t{0}, uint64_t{1} << 32).description(""))
      ->capture_default_str();
  CLI::Option_group* results = command->add_option_group("Results", "At least one");
  option(results, "--png", &options->png, "FILE",
         "Where to write the picture; of several sounds a directory");
  option(results, "--csv", &options->csv, "FILE",
         "Where to write the numbers, the first line has Hz; of several sounds a directory");
  results->require_option(1, 2);
}

// ----- Evaluation

constexpr char kEvalHelp[] =
    R"(Measures how good a task's network is on labelled data: a directory with pictures or sounds
and a file labels.csv, comma separated, whose first line names the columns:
  face-detection, person-detection, four-class-detection
                  file,class,x,y,w,h    a line a box, in pixels; nothing but the file and
                                        commas where there is no object
  face-landmarks  file,x1,y1,x2,y2,x3,y3,x4,y4,x5,y5    in pixels: eyes, nose tip, mouth
                                        corners, left ones first; yaw,pitch,roll in degrees
                                        may follow
  face-features   file,person           every pair of pictures is compared
  face-features-whole                   the same of whole photographs: the surest face of each
                                        is found and aligned
  face-classes    file,class            0, 1 or 2
  person-classes  file,class            0 a person, 1 not
  cry-detection   file,cry,kind         1 a cry in every 3 s, 0 in none; the kind is any word
docs/evaluation.md tells what the figures mean. A figure of nothing is -, null with --json.
A bad line, or a file that is missing, is an error.)";

void add_eval(const Commands& commands) {
  const auto [command, options] = commands.add(eval, "eval", kEvalHelp);
  EvaluationSettings* settings = &options->settings;
  argument(command, "task", &settings->task, "TASK", "Which task: face-detection, ... as above")
      ->check(CLI::IsMember(evaluated_tasks()).description(""));
  argument(command, "--data", &settings->data, "DIR", "Directory of the labelled data");
  option(command, "--draw", &settings->drawings, "DIR",
         fmt::format("Draw the {} worst pictures, the worst first: labels green, what was found\n"
                     "blue where it matches and orange where it does not; of detectors and\n"
                     "landmarks",
                     kMaxDrawings))
      ->check(CLI::Validator(
          [settings](std::string&) {
            return can_draw(settings->task) ? "" : "nothing is drawn of " + settings->task;
          },
          ""));
  option(command, "--jobs", &settings->jobs, "N",
         "Processes that share the files. Results do not depend on it")
      ->check(CLI::Range(1, 256))
      ->capture_default_str();
  read_options(command, "--require", "CONDITION", "NAME>=NUMBER or NAME<=NUMBER",
               "What a figure has to be, by its name, or the exit code is 1: accuracy>=0.95,\n"
               "false_alarm_rate<=0.01, ... May be given several times",
               read_requirement, &options->requirements);
  add_result_files(commands, command, kNoSubtitles);
  add_root(command, &settings->root);
}

// ----- Recordings from the field

void add_replay(const Commands& commands) {
  const auto [command, options] = commands.add(
      kelnn_cli::replay, "replay",
      "Makes the calls of a recording again and compares what they give.\n"
      "A recording is what libkelnn_record.so wrote on a camera: docs/recording.md. Its calls\n"
      "are made through the library of this PC, over the outputs of networks as recorded or,\n"
      "with --run-networks, over this PC's models. Tells the first call that gives another\n"
      "value, and where; the exit code is then 1. A torn or damaged end is dropped and told.");
  argument(command, "recording", &options->recordings, "FILE|DIR",
           "Recordings in their order, or the directory that they are in");
  command->add_flag("--run-networks", options->runs_networks,
                    "Run the networks too; needs a recording of whole inputs");
  option(command, "--export", &options->out, "DIR",
         "Write what the tasks were given as pictures and sounds, and what they found as\n"
         "labels.csv, in a directory for each task; needs a recording of whole inputs");
  add_root(command, &options->root);
}

}  // namespace

CommandLine parse(int argc, char** argv) {
  CommandLine line;
  CLI::App app("On-device neural-network tasks on a PC: model files, pictures and sound.", "kelnn");
  app.formatter(std::make_shared<ShortList>());
  app.require_subcommand(0, 1);  // none is told below, in better words
  app.fallthrough();
  app.set_version_flag("--version",
                       fmt::format("kelnn {}.{}.{}", KEL_NN_VERSION_MAJOR, KEL_NN_VERSION_MINOR,
                                   KEL_NN_VERSION_PATCH),
                       "Print the version and exit");
  app.add_flag("--json", line.report.wants_json, "Print the result as JSON");
  app.add_flag("-v,--verbose", line.report.is_verbose,
               "Show what the library says while all is well, too, on standard error");
  app.add_flag("-q,--quiet", line.report.is_quiet,
               "No text, progress or summary; errors and what --json and files get stay");
  app.add_flag(
      "--progress", line.report.wants_progress,
      "Show on standard error how far it is, and a summary, also when that is no terminal");
  app.footer(
      "kelnn COMMAND --help tells more. Exit codes: 0 fine, 1 failed, 2 called wrongly,\n"
      "130 interrupted (SIGINT), 143 ended (SIGTERM): no file is left half written.");
  for (const auto add : {add_model_files, add_cut_outs, add_eval, add_detectors, add_motion,
                         add_watch, add_galleries, add_cry, add_features, add_replay}) {
    add({&app, &line.command, &line.report.files});
  }
  const std::vector<std::string> words(argv + 1, argv + argc);
  std::string problem;
  bool wrote_nothing = false;
  try {
    if (!words.empty() && words[0] == "--complete") {  // of shells
      std::cout << completions(app, {words.begin() + 1, words.end()});
      throw CLI::Success();
    }
    if (!words.empty() && words[0] == "--print-manual") {  // of the build
      std::cout << manual_page(app);
      throw CLI::Success();
    }
    app.parse(argc, argv);
    if (line.command) {
      line.name = app.get_subcommands().front()->get_name();
    } else {
      problem = "which command?\n\n" + app.help();
    }
  } catch (const CLI::Success& wanted) {  // --help, --version
    line.exit_code = app.exit(wanted);
    std::cout.flush();
    wrote_nothing = !std::cout || std::fflush(stdout) != 0;
    if (wrote_nothing) problem = fmt::format("cannot write the result: {}", std::strerror(errno));
  } catch (const CLI::ParseError& error) {
    problem = fmt::format("{}\nkelnn --help tells how it is called.", error.what());
    line.command = nullptr;
  }
  if (!problem.empty()) {
    fmt::print(stderr, "kelnn: {}\n", problem);
    line.exit_code = wrote_nothing ? kFailed : kBadUsage;
  }
  return line;
}

}  // namespace kelnn_cli
