// SPDX-License-Identifier: Apache-2.0
// How good a task's network is on labelled data: what the library makes of every file, put beside its
// label. docs/evaluation.md defines the figures.
#pragma once

#include <array>
#include <cmath>
#include <functional>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "labels.h"
#include "progress_bar.h"
#include "report.h"

namespace kelnn_cli {

struct EvaluationSettings {
  std::string task, root, data;
  std::string drawings;  // where to draw the worst pictures; none: nowhere
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

// Looks at each file.
template <typename Files, typename Look>
void for_each_file(const EvaluationSettings& settings, const Files& files, const Look& look) {
  ProgressBar bar(settings.task, static_cast<int64_t>(files.size()), "files");
  int64_t done = 0;
  for (const auto& file : files) {
    look(file);
    bar.show(++done);
  }
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
