// SPDX-License-Identifier: Apache-2.0
// The commands: functions from plain options to reports. They return whether all is as it should be,
// which is the exit code, and throw what keeps them from their work.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "clips.h"
#include "evaluation.h"
#include "inputs.h"
#include "live_page.h"
#include "motion.h"
#include "reporter.h"
#include "sound_window.h"

namespace kelnn_cli {

// ----- Model files

struct ModelsOptions {
  std::string task;  // none: all
};
bool list_models(const ModelsOptions& options, Reporter* reporter);

struct PackOptions {
  std::string task, network, root;
  bool is_raw = false;    // not ONNX, but what the board's runtime reads
  std::string inspected;  // a task or a file to look at, instead of packing
};
bool pack(const PackOptions& options, Reporter* reporter);

struct UnpackOptions {
  std::string model, root, output;  // `model`: a task or a file
};
bool unpack(const UnpackOptions& options, Reporter* reporter);

struct SignOptions {
  std::string key, new_key, root;
};
bool sign(const SignOptions& options, Reporter* reporter);
// What keeps the directory from being the one that was signed; none: it is.
std::string signature_problem(const std::string& directory, const std::string& public_key_path);

struct DoctorOptions {
  std::string root, public_key;
  bool is_for_board = false;
};
bool doctor(const DoctorOptions& options, Reporter* reporter);

// ----- Cut-outs of pictures

struct CutOutOptions {
  InputList pictures;
  InputSettings input;
  std::vector<kel_nn::Rect> boxes;  // of each picture; none: its centre square
  std::string root, out;
  bool is_ready = false;  // feature: the pictures are crops as its network wants them
};
bool landmarks(const CutOutOptions& options, Reporter* reporter);
bool feature(const CutOutOptions& options, Reporter* reporter);
bool classify_face(const CutOutOptions& options, Reporter* reporter);
bool classify_person(const CutOutOptions& options, Reporter* reporter);

struct CompareOptions {
  std::string picture_a, picture_b, root;
  kel_nn::Rect box_a = {}, box_b = {};  // no width: the surest face
  bool is_ready = false;
  InputSettings input;
};
bool compare(const CompareOptions& options, Reporter* reporter);

// ----- Faces that are known by name

// Where the sample network's error rates are equal: models/face_features.
constexpr float kSamePerson = 0.65f;

struct EnrollOptions {
  std::string name, gallery, root;
  InputList pictures;
  kel_nn::Rect box = {};  // of each picture; no width: the surest face
  InputSettings input;
  bool is_ready = false, wants_list = false, is_removal = false;
};
bool enroll(const EnrollOptions& options, Reporter* reporter);
std::string feature_network(
    const std::string& root);  // the file of the model that a gallery belongs to

// ----- Frames of pictures, videos and cameras

struct FrameOptions {
  int step = 1;       // every how many frames one is looked at
  int64_t limit = 0;  // frames to look at in each input; 0: all
  InputSettings input;
};

struct DetectOptions {
  InputList inputs;
  std::vector<std::string> class_names;
  std::vector<std::string> only;  // names of classes; none: all
  float least_score = 0;
  std::string root, out, crops;
  FrameOptions frames;
};
bool detect_faces(const DetectOptions& options, Reporter* reporter);
bool detect_persons(const DetectOptions& options, Reporter* reporter);
bool detect_objects(const DetectOptions& options, Reporter* reporter);

struct WatchOptions : DetectOptions {
  WatchOptions() { class_names = {"person", "face"}; }
  MotionSettings settings;
  bool is_always_awake = false;
  std::string gallery;
  float threshold = kSamePerson;
  std::string on_event;  // a command for a shell; none: nobody is told
  ClipSettings clips;
  std::optional<PageOptions> page;
  std::string page_token;
};
bool watch(const WatchOptions& options, Reporter* reporter);

struct MotionOptions {
  InputList inputs;
  std::string out;
  MotionSettings settings;
  FrameOptions frames;
  bool wants_sweep = false;
  std::vector<float> ratios = {0.5, 1, 2, 5};  // of the sweep
  std::vector<int> periods = {5, 10, 25};
};
bool motion(const MotionOptions& options, Reporter* reporter);

struct WhoOptions {
  InputList inputs;
  std::string gallery, root, out;
  float threshold = kSamePerson;
  FrameOptions frames;
};
bool who(const WhoOptions& options, Reporter* reporter);

// ----- Sound

struct CryOptions {
  InputList sounds;
  InputSettings input;
  std::string root;
  float threshold = kLowestGate;
};
bool cry(const CryOptions& options, Reporter* reporter);

struct FeaturesOptions {
  InputList sounds;
  InputSettings input;
  std::string png, csv;  // of several sounds: directories
  uint64_t window = 0;
};
bool features(const FeaturesOptions& options, Reporter* reporter);

// ----- Recordings from the field

struct ReplayOptions {
  std::vector<std::string> recordings;  // files and directories
  bool runs_networks = false;
  std::string root, out;  // models to run; where pictures and sounds go
};
bool replay(const ReplayOptions& options, Reporter* reporter);

// ----- Evaluation

// "accuracy>=0.95" or "false_alarm_rate<=0.01".
struct Requirement {
  std::string text, figure;
  bool is_minimum = false;
  double limit = 0;
};

struct EvalOptions {
  EvaluationSettings settings;
  std::vector<Requirement> requirements;
};
bool eval(const EvalOptions& options, Reporter* reporter);
std::vector<std::string> evaluated_tasks();
bool can_draw(const std::string& evaluated_task);

}  // namespace kelnn_cli
