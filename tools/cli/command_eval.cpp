// SPDX-License-Identifier: Apache-2.0
// kelnn eval: how good a task's network is on labelled data.
#include <fmt/format.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "evaluation.h"

namespace kelnn_cli {
namespace {

template <decltype(make_face_detector)* kMakeDetector, int kClassCount>
Report evaluate(const EvaluationSettings& settings) {
  return evaluate_detector(settings, kMakeDetector, kClassCount);
}

struct EvaluatedTask {
  const char* key;
  Report (*evaluate)(const EvaluationSettings&);
  bool draws = false;
};
constexpr EvaluatedTask kTasks[] = {
    {"face-detection", evaluate<make_face_detector, 1>, true},
    {"person-detection", evaluate<make_person_detector, 1>, true},
    {"four-class-detection", evaluate<make_object_detector, 4>, true},
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

// Why it is not met, or nothing.
std::string shortfall(const Requirement& requirement, const Json& figures) {
  const auto figure = figures.find(requirement.figure);
  if (figure == figures.end() || !figure->is_number()) {
    std::vector<std::string> names;
    for (const auto& [name, value] : figures.items()) {
      if (value.is_number()) names.push_back(name);
    }
    return fmt::format("{} is required, but there is no figure {}; there are {}", requirement.text,
                       requirement.figure, fmt::join(names, ", "));
  }
  const double value = figure->get<double>();
  if (requirement.is_minimum ? value >= requirement.limit : value <= requirement.limit) return "";
  return fmt::format("{} is required, but it is {}", requirement.text,
                     std::isnan(value) ? "not defined" : fmt::format("{:.6g}", value));
}

}  // namespace

std::vector<std::string> evaluated_tasks() {
  std::vector<std::string> keys;
  for (const EvaluatedTask& task : kTasks) keys.push_back(task.key);
  return keys;
}

bool can_draw(const std::string& evaluated_task) {
  const EvaluatedTask* task = find(evaluated_task);
  return task && task->draws;
}

bool eval(const EvalOptions& options, Reporter* reporter) {
  const Report report = find(options.settings.task)->evaluate(options.settings);
  reporter->report(report.json, [&](const Json&) { return report.text; });
  bool ok = true;
  for (const Requirement& requirement : options.requirements) {
    const std::string complaint = shortfall(requirement, report.json);
    if (complaint.empty()) continue;
    reporter->complain(complaint);
    ok = false;
  }
  return ok;
}

}  // namespace kelnn_cli
