// The commands. Each adds itself, its options and its help to the command line; parsing sets
// `chosen`.
#ifndef KEL_NN_TOOLS_COMMAND_H_
#define KEL_NN_TOOLS_COMMAND_H_

#include <CLI/CLI.hpp>
#include <functional>

#include "report.h"
#include "task_catalogue.h"

namespace kelnn_cli {

using Command = std::function<Report()>;

// A command that reports as it goes: JSON one line a report. What fails on the way is complained
// about and makes it return false.
struct Listener {
  std::function<void(const Report&)> report;
  std::function<void(const std::string&)> complain;
};
using StreamingCommand = std::function<bool(const Listener&)>;

void add_classifiers(CLI::App& app, Command* chosen);  // classify-face, classify-person
void add_compare(CLI::App& app, Command* chosen);
void add_doctor(CLI::App& app, Command* chosen);
void add_eval(CLI::App& app, Command* chosen);
void add_feature(CLI::App& app, Command* chosen);
void add_features(CLI::App& app, Command* chosen);
void add_landmarks(CLI::App& app, Command* chosen);
void add_models(CLI::App& app, Command* chosen);
void add_pack(CLI::App& app, Command* chosen);
void add_unpack(CLI::App& app, Command* chosen);
void add_cry(CLI::App& app, StreamingCommand* chosen);
void add_detectors(CLI::App& app, StreamingCommand* chosen);  // faces, objects, persons
void add_motion(CLI::App& app, StreamingCommand* chosen);
void add_watch(CLI::App& app, StreamingCommand* chosen);

// ----- Arguments that several commands have ------------------------------------------------------

constexpr char kDefaultRoot[] = "models/";

inline CLI::Option* add_root(CLI::App* command, std::string* root) {
  *root = kDefaultRoot;
  return command->add_option("--root", *root, "Directory of the model files")
      ->type_name("DIR")
      ->capture_default_str();
}

inline CLI::Validator is_task() {
  return CLI::Validator(
      [](std::string& key) {
        return find_task(key) ? "" : "no task \"" + key + "\"; kelnn models lists them";
      },
      "TASK");
}

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_COMMAND_H_
