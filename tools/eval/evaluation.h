// SPDX-License-Identifier: Apache-2.0
// How good a task's network is on labelled data: what the library makes of every file, put beside its
// label. docs/evaluation.md defines the figures.
#ifndef KEL_NN_TOOLS_EVALUATION_H_
#define KEL_NN_TOOLS_EVALUATION_H_

#include <functional>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "detector.h"
#include "labels.h"
#include "progress_bar.h"
#include "report.h"

namespace kelnn_cli {

struct EvaluationSettings {
  std::string task, root, data;
  std::string drawings;  // where to draw the worst pictures; none: nowhere
  bool wants_progress = false;
};

constexpr size_t kMaxDrawings = 50;

// The text is a table, the JSON one object with the same numbers; null where a figure is of nothing, as
// the recall of a class that no label has.
struct Report {
  std::string text;  // whole lines
  Json json;
};

Report evaluate_detector(const EvaluationSettings& settings,
                         decltype(make_face_detector)* make_detector, int class_count);
Report evaluate_landmarks(const EvaluationSettings& settings);
Report evaluate_features(const EvaluationSettings& settings);
Report evaluate_face_classes(const EvaluationSettings& settings);
Report evaluate_person_classes(const EvaluationSettings& settings);
Report evaluate_cry(const EvaluationSettings& settings);

// ----- What several of them need -----------------------------------------------------------------

// Looks at each file; fewer are done before a bar is read.
template <typename Files, typename Look>
void for_each_file(const EvaluationSettings& settings, const Files& files, const Look& look) {
  ProgressBar bar(settings.task, static_cast<int64_t>(files.size()), "files",
                  settings.wants_progress);
  int64_t done = 0;
  for (const auto& file : files) {
    look(file);
    bar.show(++done);
  }
}

// Where a network's values would make figures meaningless: a Failure that names the file.
void check_is_number(float value, const std::string& path);

// What every report's text and JSON begin with.
Report begin_report(const EvaluationSettings& settings, size_t file_count, const char* files);

// A line "words  value" for each figure, "-" for what is not a number; also at the JSON's top level.
struct Name {
  const char* key;    // of the JSON
  const char* words;  // of the text
};
struct Figure {
  Name name;
  double value;
};
void add_figures(const std::vector<Figure>& figures, Report* report);

// Cells are words, counts or figures. The JSON has an object for each row.
struct Table {
  const char* key;
  std::vector<Name> columns;
  std::vector<std::vector<Json>> rows;
};
void add_table(const Table& table, Report* report);

// Of columns as wide as their cells, the first one to the left, the others to the right.
std::string text_of(const std::vector<std::vector<Json>>& rows);

// Where drawings are wanted: the worst files, as "DIR/001_cat.png", ... which sort by how bad they are.
// `badness` has a value for each of `files`, `draw` gives the picture of one by its index.
void draw_worst(const EvaluationSettings& settings, const std::vector<std::string>& files,
                const std::vector<double>& badness, const std::function<cv::Mat(size_t)>& draw);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_EVALUATION_H_
