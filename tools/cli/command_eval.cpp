// kelnn eval: how good a task's network is on labelled data.
#include <cmath>
#include <cstdlib>
#include <map>
#include <memory>

#include "command.h"
#include "evaluation.h"
#include "formatted.h"

namespace kelnn_cli {
namespace {

struct EvaluatedTask {
  const char* key;
  Report (*evaluate)(const EvaluationSettings&);
  bool draws = false;
};
constexpr EvaluatedTask kTasks[] = {
    {"face-detection", evaluate_detector, true},
    {"person-detection", evaluate_detector, true},
    {"four-class-detection", evaluate_detector, true},
    {"face-landmarks", evaluate_landmarks, true},
    {"face-features", evaluate_features},
    {"face-classes", evaluate_face_classes},
    {"person-classes", evaluate_person_classes},
    {"cry-detection", evaluate_cry},
};

const EvaluatedTask* find(const std::string& key) {
  for (const EvaluatedTask& task : kTasks) {
    if (key == task.key) return &task;
  }
  return nullptr;
}

// "accuracy>=0.95" or "false_alarm_rate<=0.01".
struct Requirement {
  std::string text, name;
  bool is_minimum = false;
  double limit = 0;
};

bool parse_requirement(const std::string& text, Requirement* requirement) {
  const size_t relation = text.find_first_of("<>");
  if (relation == 0 || relation == std::string::npos || text[relation + 1] != '=') return false;
  const std::string number = text.substr(relation + 2);
  char* end = nullptr;
  *requirement = {text, text.substr(0, relation), text[relation] == '>',
                  std::strtod(number.c_str(), &end)};
  return !number.empty() && *end == '\0' && std::isfinite(requirement->limit);
}

// Why it is not met, or nothing.
std::string shortfall(const Requirement& requirement, const Json& figures) {
  const auto figure = figures.find(requirement.name);
  if (figure == figures.end() || !figure->is_number()) {
    std::string names;
    for (const auto& [name, value] : figures.items()) {
      if (value.is_number()) names += (names.empty() ? "" : ", ") + name;
    }
    return requirement.text + " is required, but there is no figure " + requirement.name +
           "; there are " + names;
  }
  const double value = figure->get<double>();
  if (requirement.is_minimum ? value >= requirement.limit : value <= requirement.limit) return "";
  return requirement.text + " is required, but it is " +
         (std::isnan(value) ? "not defined" : formatted("%.6g", value));
}

struct Options {
  EvaluationSettings settings;
  std::vector<Requirement> requirements;
};

Report evaluate(const Options& options) {
  Report report = find(options.settings.task)->evaluate(options.settings);
  for (const Requirement& requirement : options.requirements) {
    const std::string complaint = shortfall(requirement, report.json);
    if (complaint.empty()) continue;
    report.complaint += (report.ok ? "" : "\n") + complaint;
    report.ok = false;
  }
  return report;
}

CLI::Validator is_evaluated_task() {
  return CLI::Validator(
      [](std::string& key) {
        if (find(key)) return std::string();
        std::string keys;
        for (const EvaluatedTask& task : kTasks) keys += std::string(" ") + task.key;
        return "no task \"" + key + "\"; there are" + keys;
      },
      "TASK");
}

CLI::Validator is_requirement() {
  return CLI::Validator(
      [](std::string& text) {
        Requirement parsed;
        return parse_requirement(text, &parsed)
                   ? ""
                   : "\"" + text + "\" is not NAME>=NUMBER or NAME<=NUMBER";
      },
      "");
}

}  // namespace

void add_eval(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "eval",
      "Measures how good a task's network is on labelled data: a directory with pictures or "
      "sounds\n"
      "and a file labels.csv, comma separated, whose first line names the columns:\n"
      "  face-detection, person-detection, four-class-detection\n"
      "                  file,class,x,y,w,h    a line a box, in pixels; nothing but the file and\n"
      "                                        commas where there is no object\n"
      "  face-landmarks  file,x1,y1,x2,y2,x3,y3,x4,y4,x5,y5    in pixels: eyes, nose tip, mouth\n"
      "                                        corners, left ones first; yaw,pitch,roll in "
      "degrees\n"
      "                                        may follow\n"
      "  face-features   file,person           every pair of pictures is compared\n"
      "  face-classes    file,class            0, 1 or 2\n"
      "  person-classes  file,class            0 a person, 1 not\n"
      "  cry-detection   file,cry,kind         1 a cry in every 3 s, 0 in none; the kind is any "
      "word\n"
      "docs/evaluation.md tells what the figures mean. A figure of nothing is -, null with "
      "--json.\n"
      "A bad line, or a file that is missing, is an error.");
  command->add_option("task", options->settings.task, "Which task: face-detection, ... as above")
      ->required()
      ->check(is_evaluated_task());
  command->add_option("--data", options->settings.data, "Directory of the labelled data")
      ->required()
      ->type_name("DIR");
  CLI::Option* draw =
      command
          ->add_option("--draw", options->settings.drawings,
                       "Draw the " + std::to_string(kMaxDrawings) +
                           " worst pictures, the worst first: labels green, what was found\n"
                           "blue where it matches and orange where it does not; of detectors and\n"
                           "landmarks")
          ->type_name("DIR");
  command
      ->add_option_function<std::vector<std::string>>(
          "--require",
          [options](const std::vector<std::string>& texts) {
            for (const std::string& text : texts) {
              options->requirements.emplace_back();
              parse_requirement(text, &options->requirements.back());
            }
          },
          "What a figure has to be, by its name in the JSON, or the exit code is 1:\n"
          "accuracy>=0.95, false_alarm_rate<=0.01, ... May be given several times")
      ->type_name("CONDITION")
      ->allow_extra_args(false)
      ->check(is_requirement());
  command->add_flag("--progress", options->settings.wants_progress,
                    "Show on standard error how far it is, also when that is no terminal");
  add_root(command, &options->settings.root);
  command->callback([=] {
    if (!draw->empty() && !find(options->settings.task)->draws) {
      throw CLI::ValidationError("--draw", "nothing is drawn of " + options->settings.task);
    }
    *chosen = [options] { return evaluate(*options); };
  });
}

}  // namespace kelnn_cli
