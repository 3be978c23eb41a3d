// SPDX-License-Identifier: Apache-2.0
#include "evaluation.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "files.h"
#include "frame_sink.h"

namespace kelnn_cli {
void check_is_number(float value, const std::string& path) {
  if (!std::isfinite(value)) throw Failure(path, "the network's values are not numbers");
}

Report begin_report(const EvaluationSettings& settings, size_t file_count, const char* files) {
  return {fmt::format("{}: {} {} of {}\n", settings.task, file_count, files, settings.data),
          {{"task", settings.task}, {"data", settings.data}, {files, file_count}}};
}

void add_figures(const std::vector<Figure>& figures, Report* report) {
  std::vector<std::vector<Json>> lines;
  for (const Figure& figure : figures) {
    lines.push_back({figure.name.words, figure.value});
    report->json[figure.name.key] = figure.value;
  }
  report->text += text_of(lines);
}

void add_table(const Table& table, Report* report) {
  std::vector<std::vector<Json>> lines(1);
  for (const Name& column : table.columns) lines[0].push_back(column.words);
  Json objects = Json::array();
  for (const std::vector<Json>& row : table.rows) {
    lines.push_back(row);
    Json& object = objects.emplace_back(Json::object());
    for (size_t i = 0; i < row.size(); ++i) object[table.columns[i].key] = row[i];
  }
  report->json[table.key] = objects;
  report->text += text_of(lines);
}

std::string text_of(const std::vector<std::vector<Json>>& rows) {
  const auto cell = [](const Json& value) {
    if (value.is_string()) return value.get<std::string>();
    if (!value.is_number_float()) return value.dump();
    return std::isnan(value.get<double>()) ? "-" : fmt::format("{:.4f}", value.get<double>());
  };
  std::vector<size_t> widths;
  for (const std::vector<Json>& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], cell(row[i]).size());
  }
  std::string text;
  for (const std::vector<Json>& row : rows) {
    text += fmt::format("{:{}}", cell(row[0]), widths[0]);
    for (size_t i = 1; i < row.size(); ++i) {
      text += fmt::format("  {:>{}}", cell(row[i]), widths[i]);
    }
    text += "\n";
  }
  return text;
}

void draw_worst(const EvaluationSettings& settings, const std::vector<std::string>& files,
                const std::vector<double>& badness, const std::function<cv::Mat(size_t)>& draw) {
  if (settings.drawings.empty()) return;
  std::vector<size_t> order(badness.size());
  std::iota(order.begin(), order.end(), size_t{0});
  std::stable_sort(order.begin(), order.end(),
                   [&](size_t a, size_t b) { return badness[a] > badness[b]; });
  for (size_t rank = 0; rank < std::min(order.size(), kMaxDrawings); ++rank) {
    std::string name = files[order[rank]];
    std::replace(name.begin(), name.end(), '/', '_');
    const auto sink =
        make_picture(fmt::format("{}{:03}_{}", with_slash(settings.drawings), rank + 1, name));
    sink->write(draw(order[rank]));
    sink->finish();
  }
}

}  // namespace kelnn_cli
