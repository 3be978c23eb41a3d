// SPDX-License-Identifier: Apache-2.0
// How good a task's network is on labelled data: what the library makes of every file, put beside its
// label. docs/evaluation.md defines the figures.
#pragma once

#include <array>
#include <cmath>
#include <cstring>
#include <functional>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "labels.h"
#include "report.h"

namespace kelnn_cli {

struct EvaluationSettings {
  std::string task, root, data;
  std::string drawings;  // where to draw the worst pictures; none: nowhere
  int jobs = 1;          // processes
};

constexpr size_t kMaxDrawings = 50;

struct Evaluation {
  Json report;
  std::function<void()> draw = [] {};  // the worst pictures, once the report is out
};

// Each reports one object: what was looked at, counts and figures by their names, and lists of them by class or
// kind. Null where a figure is of nothing, as the recall of a class that no label has.
template <typename Task, int kClassCount>  // kel_nn::FaceDetector, PersonDetector or ObjectDetector
Evaluation evaluate_detector(const EvaluationSettings& settings);
Evaluation evaluate_landmarks(const EvaluationSettings& settings);
Evaluation evaluate_features(const EvaluationSettings& settings);
Evaluation evaluate_whole_faces(const EvaluationSettings& settings);  // found and aligned first
Evaluation evaluate_face_classes(const EvaluationSettings& settings);
Evaluation evaluate_person_classes(const EvaluationSettings& settings);
Evaluation evaluate_cry(const EvaluationSettings& settings);

// ----- What several of them need -----------------------------------------------------------------

// What is found in a file, by its index; none: it is to be asked for again, after the others. `is_first`: not this time.
template <typename Result>
using LookAt = std::function<std::optional<Result>(size_t file, bool is_first)>;

// What is found in each of so many files. settings.jobs processes share them: `begin` is called in each, and loads what is
// needed there. Where one of them fails all is done once more in this one, which tells of the first failure that it meets.
std::vector<std::string> found_bytes(const EvaluationSettings& settings, size_t file_count,
                                     const std::function<LookAt<std::string>()>& begin);

template <typename Result>
std::vector<std::vector<Result>> found_in_files(
    const EvaluationSettings& settings, size_t file_count,
    const std::function<LookAt<std::vector<Result>>()>& begin) {
  static_assert(std::is_trivially_copyable<Result>::value, "processes tell its bytes");
  const auto begin_bytes = [&begin]() -> LookAt<std::string> {
    return [look = begin()](size_t file, bool is_first) -> std::optional<std::string> {
      const std::optional<std::vector<Result>> found = look(file, is_first);
      if (!found) return std::nullopt;
      return std::string(reinterpret_cast<const char*>(found->data()),
                         found->size() * sizeof(Result));
    };
  };
  std::vector<std::vector<Result>> all;
  for (const std::string& bytes : found_bytes(settings, file_count, begin_bytes)) {
    all.emplace_back(bytes.size() / sizeof(Result));
    if (bytes.empty()) continue;  // there is no address then
    std::memcpy(static_cast<void*>(all.back().data()), bytes.data(), bytes.size());
  }
  return all;
}

// Where a network's values would make figures meaningless: a Failure that names the file.
template <typename Values>
void check_are_numbers(const Values& values, const std::string& path) {
  for (const float value : values) {
    if (!std::isfinite(value)) throw Failure(path, "the network's values are not numbers");
  }
}

// Where drawings are wanted: the worst files, as "DIR/001_cat.png", ... which sort by how bad they are.
// `badness` has a value for each of `files`, `draw` gives the picture of one by its index. A UsageError when a drawing would
// take the place of one of the files.
void draw_worst(const EvaluationSettings& settings, const std::vector<std::string>& files,
                const std::vector<double>& badness, const std::function<cv::Mat(size_t)>& draw);

}  // namespace kelnn_cli
