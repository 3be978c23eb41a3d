// How good a task's network is on labelled data: what the library makes of every file, put beside its
// label. docs/evaluation.md defines the figures.
#ifndef KEL_NN_TOOLS_EVALUATION_H_
#define KEL_NN_TOOLS_EVALUATION_H_

#include <nlohmann/json.hpp>
#include <string>

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
inline const std::string& text_of(const Report& report) { return report.text; }
inline const Json& json_of(const Report& report) { return report.json; }

Report evaluate_detector(const EvaluationSettings& settings);
Report evaluate_landmarks(const EvaluationSettings& settings);
Report evaluate_features(const EvaluationSettings& settings);
Report evaluate_face_classes(const EvaluationSettings& settings);
Report evaluate_person_classes(const EvaluationSettings& settings);
Report evaluate_cry(const EvaluationSettings& settings);

// ----- What several of them need -----------------------------------------------------------------

// Files that have been looked at; fewer are done before a bar is read.
class EvaluationProgress {
 public:
  EvaluationProgress(const EvaluationSettings& settings, size_t file_count);
  void add_file();

 private:
  ProgressBar bar_;
  int64_t done_ = 0;
};

// Where a network's values would make figures meaningless: a Failure that names the file.
void check_is_number(float value, const std::string& path);

// What every report's text and JSON begin with.
Report begin_report(const EvaluationSettings& settings, size_t file_count, const char* files);

// "0.9123", or "-" for what is not a number.
std::string figure_text(double value);

// A line "name  value" for each figure, also added to the JSON's top level.
struct Figure {
  const char* key;    // of the JSON
  const char* words;  // of the text
  double value;
};
void add_figures(const std::vector<Figure>& figures, Report* report);

using TextTable = std::vector<std::vector<std::string>>;  // rows of cells
std::string text_of(
    const TextTable& table);  // the first column to the left, the others to the right

// The places of `badness` in the order of what is worst; as many as are drawn.
std::vector<size_t> worst_first(const std::vector<double>& badness);

// "DIR/001_cat.png" for the worst picture: they sort by how bad they are.
std::string drawing_path(const EvaluationSettings& settings, size_t rank, const std::string& file);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_EVALUATION_H_
