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

// The places of `badness` in the order of what is worst; as many as are drawn.
std::vector<size_t> worst_first(const std::vector<double>& badness);

// "DIR/001_cat.png" for the worst picture: they sort by how bad they are.
std::string drawing_path(const EvaluationSettings& settings, size_t rank, const std::string& file);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_EVALUATION_H_
