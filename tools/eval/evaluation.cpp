#include "evaluation.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "files.h"
#include "formatted.h"

namespace kelnn_cli {
EvaluationProgress::EvaluationProgress(const EvaluationSettings& settings, size_t file_count)
    : bar_(settings.task, static_cast<int64_t>(file_count), "files", settings.wants_progress) {}

void EvaluationProgress::add_file() { bar_.show(++done_); }

void check_is_number(float value, const std::string& path) {
  if (!std::isfinite(value)) throw Failure(path, "the network's values are not numbers");
}

Report begin_report(const EvaluationSettings& settings, size_t file_count, const char* files) {
  Report report;
  report.text = settings.task + ": " + std::to_string(file_count) + " " + files + " of " +
                settings.data + "\n";
  report.json = {{"task", settings.task}, {"data", settings.data}, {files, file_count}};
  return report;
}

std::string figure_text(double value) { return std::isnan(value) ? "-" : formatted("%.4f", value); }

void add_figures(const std::vector<Figure>& figures, Report* report) {
  TextTable table;
  for (const Figure& figure : figures) {
    table.push_back({figure.words, figure_text(figure.value)});
    report->json[figure.key] = figure.value;
  }
  report->text += text_of(table);
}

std::string text_of(const TextTable& table) {
  std::vector<size_t> widths;
  for (const std::vector<std::string>& row : table) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  std::string text;
  for (const std::vector<std::string>& row : table) {
    for (size_t i = 0; i < row.size(); ++i) {
      const std::string padding(widths[i] - row[i].size(), ' ');
      text += i == 0 ? row[i] + padding : "  " + padding + row[i];
    }
    text += "\n";
  }
  return text;
}

std::vector<size_t> worst_first(const std::vector<double>& badness) {
  std::vector<size_t> order(badness.size());
  std::iota(order.begin(), order.end(), size_t{0});
  std::stable_sort(order.begin(), order.end(),
                   [&](size_t a, size_t b) { return badness[a] > badness[b]; });
  order.resize(std::min(order.size(), kMaxDrawings));
  return order;
}

std::string drawing_path(const EvaluationSettings& settings, size_t rank, const std::string& file) {
  std::string name = file;
  std::replace(name.begin(), name.end(), '/', '_');
  const std::string number = std::to_string(rank + 1);
  return with_slash(settings.drawings) + std::string(3 - std::min<size_t>(3, number.size()), '0') +
         number + "_" + name;
}

}  // namespace kelnn_cli
