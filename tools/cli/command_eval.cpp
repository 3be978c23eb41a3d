// SPDX-License-Identifier: Apache-2.0
// kelnn eval: how good a task's network is on labelled data.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "evaluation.h"
#include "kel_nn.hpp"

namespace kelnn_cli {
namespace {

constexpr char kDetectorFigures[] =
    "pictures, labelled, found, matches, mean_average_precision, precision, recall, mean_iou, "
    "false_detections_per_picture";
constexpr char kLandmarkFigures[] =
    "pictures, mean_point_error, percentile_95_point_error, left_eye_error, right_eye_error, "
    "nose_error, left_mouth_error, right_mouth_error, yaw_error, pitch_error, roll_error";

constexpr char kClasses[] = ",class,average_precision";

struct EvaluatedTask {
  const char* key;
  const char* figures;  // that may be required; known before they are computed
  Evaluation (*evaluate)(const EvaluationSettings&);
  bool draws = false;
  const char* parts = "";  // columns of a table with a line for each of them
};
constexpr EvaluatedTask kTasks[] = {
    {"face-detection", kDetectorFigures, evaluate_detector<kel_nn::FaceDetector, 1>, true,
     kClasses},
    {"person-detection", kDetectorFigures, evaluate_detector<kel_nn::PersonDetector, 1>, true,
     kClasses},
    {"four-class-detection", kDetectorFigures, evaluate_detector<kel_nn::ObjectDetector, 4>, true,
     kClasses},
    {"face-landmarks", kLandmarkFigures, evaluate_landmarks, true},
    {"face-features",
     "pictures, same_pairs, different_pairs, equal_error_rate, equal_error_threshold, "
     "true_accept_rate, mean_same_similarity, mean_different_similarity",
     evaluate_features},
    {"face-features-whole",
     "pictures, same_pairs, different_pairs, equal_error_rate, equal_error_threshold, "
     "true_accept_rate, mean_same_similarity, mean_different_similarity, without_face, "
     "equal_error_rate_of_boxes",
     evaluate_whole_faces},
    {"face-classes", "pictures, accuracy", evaluate_face_classes},
    {"person-classes", "pictures, accuracy", evaluate_person_classes},
    {"cry-detection",
     "sounds, sounds_below_16_khz, windows, cries, too_quiet, heard_as_cry, accuracy, recall, "
     "false_alarm_rate",
     evaluate_cry, false, ",kind"},
};

const EvaluatedTask* find(const std::string& key) {
  for (const EvaluatedTask& task : kTasks) {
    if (key == task.key) return &task;
  }
  return nullptr;
}

// Figures have four digits, and are "-" where they are of nothing.
std::string cell(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (!value.is_number_float()) return value.dump();
  return std::isnan(value.get<double>()) ? "-" : fmt::format("{:.4f}", value.get<double>());
}

// Lists of cells, in columns as wide as they are: the first to the left, the others to the right.
std::string aligned(const Json& rows) {
  std::vector<size_t> widths;
  for (const Json& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], cell(row[i]).size());
  }
  std::string text;
  for (const Json& row : rows) {
    text += fmt::format("{:{}}", cell(row[0]), widths[0]);
    for (size_t i = 1; i < row.size(); ++i) {
      text += fmt::format("  {:>{}}", cell(row[i]), widths[i]);
    }
    text += "\n";
  }
  return text;
}

// Objects with the same names.
std::string table(const Json& objects) {
  Json rows(1, Json::array());
  for (const auto& [name, value] : objects[0].items()) rows[0].push_back(name);
  for (const Json& object : objects) {
    Json& row = rows.emplace_back(Json::array());
    for (const Json& value : object) row.push_back(value);
  }
  return aligned(rows);
}

// A line for each figure, or list of them by class, then tables of those that have several figures each.
std::string report_text(const Json& report) {
  Json lines;
  std::string tables;
  for (const auto& [name, value] : report.items()) {
    if (value.is_string()) continue;
    const Json list = value.is_array() ? value : Json::array({value});
    if (list[0].is_object()) {
      if (list.size() > 1) tables += table(list);  // a single line says nothing new
      continue;
    }
    for (const Json& row : list[0].is_array() ? list : Json::array({list})) {
      Json& line = lines.emplace_back(Json::array({name}));
      line.insert(line.end(), row.begin(), row.end());
    }
  }
  return filled("{task}: {data}\n", report) + aligned(lines) + tables;
}

void check_names(const std::vector<Requirement>& requirements, const EvaluatedTask& task) {
  for (const Requirement& requirement : requirements) {
    if (fmt::format(", {}, ", task.figures).find(", " + requirement.figure + ", ") ==
        std::string::npos) {
      throw UsageError(fmt::format("{} is required, but there is no figure {}; there are {}",
                                   requirement.text, requirement.figure, task.figures));
    }
  }
}

// Why it is not met, or nothing.
std::string shortfall(const Requirement& requirement, const Json& figures) {
  const double value = figures.at(requirement.figure).get<double>();
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
  const EvaluatedTask& task = *find(options.settings.task);
  check_names(options.requirements, task);
  std::string columns = fmt::format("task,data{},{}", task.parts, task.figures);
  columns.erase(std::remove(columns.begin(), columns.end(), ' '), columns.end());
  reporter->begin({columns, {}, {}, labelled_files(options.settings.data)});
  const auto [report, draw] = task.evaluate(options.settings);
  reporter->report(report, report_text);
  bool ok = true;
  for (const Requirement& requirement : options.requirements) {
    const std::string complaint = shortfall(requirement, report);
    if (complaint.empty()) continue;
    reporter->complain(complaint);
    ok = false;
  }
  draw();
  return ok;
}

}  // namespace kelnn_cli
