// SPDX-License-Identifier: Apache-2.0
#include "labels.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <sstream>

#include "files.h"
#include "numbers.h"
#include "report.h"

namespace kelnn_cli {
namespace {

namespace fs = std::filesystem;

constexpr char kLabelFile[] = "labels.csv";
constexpr char kByteOrderMark[] = "\xef\xbb\xbf";  // spreadsheets write it

std::vector<std::string> lines_of(const std::string& path) {
  const Bytes bytes = read_file(path);
  std::string text(bytes.begin(), bytes.end());
  if (text.rfind(kByteOrderMark, 0) == 0) text.erase(0, 3);
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
  }
  return lines;
}

std::string place_of_line(const std::string& path, size_t index) {
  return fmt::format("{}:{}", path, index + 1);
}

// A field in quotation marks may have commas, and a quotation mark as two of them.
std::vector<std::string> split(const std::string& line, const std::string& place) {
  std::vector<std::string> fields(1);
  bool is_quoted = false;
  for (size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (c == '"' && is_quoted && line[i + 1] == '"') {
      fields.back() += line[++i];
    } else if (c == '"' && (is_quoted || fields.back().empty())) {
      is_quoted = !is_quoted;
    } else if (c == ',' && !is_quoted) {
      fields.emplace_back();
    } else {
      fields.back() += c;
    }
  }
  if (is_quoted) throw Failure(place, "a quotation mark that is not closed");
  return fields;
}

}  // namespace

double LabelRow::number(size_t column) const {
  double value;
  if (!parse_number(fields_[column], &value) || !std::isfinite(value)) {
    fail(fmt::format("\"{}\" is no number for {}", fields_[column], columns_[column]));
  }
  return value;
}

int LabelRow::whole_number(size_t column, int max) const {
  int value;
  if (!parse_number(fields_[column], &value) || value < 0 || value > max) {
    fail(fmt::format("\"{}\" for {}, which goes from 0 to {}", fields_[column], columns_[column],
                     max));
  }
  return value;
}

bool LabelRow::is_empty_from(size_t column) const {
  return std::all_of(fields_.begin() + static_cast<std::ptrdiff_t>(column), fields_.end(),
                     [](const std::string& field) { return field.empty(); });
}

void LabelRow::fail(const std::string& problem) const { throw Failure(place_, problem); }

std::string path_of(const std::string& directory, const std::string& file) {
  return (fs::path(directory) / file).string();
}

std::vector<std::string> labelled_files(const std::string& directory) {
  const std::string path = path_of(directory, kLabelFile);
  const std::vector<std::string> lines = lines_of(path);
  std::vector<std::string> files = {path};
  for (size_t i = 0; i < lines.size(); ++i) {
    files.push_back(path_of(directory, split(lines[i], place_of_line(path, i)).front()));
  }
  return files;
}

Labels read_labels(const std::string& directory, const LabelColumns& columns,
                   RowsPerFile rows_per_file) {
  const std::string path = path_of(directory, kLabelFile);
  const std::vector<std::string> lines = lines_of(path);

  std::vector<std::string> all_columns = columns.required;
  all_columns.insert(all_columns.end(), columns.optional.begin(), columns.optional.end());
  const std::vector<std::string> header =
      split(lines.empty() ? "" : lines[0], place_of_line(path, 0));
  if (header != columns.required && header != all_columns) {
    std::string wanted = fmt::format("{}", fmt::join(columns.required, ","));
    if (!columns.optional.empty()) wanted += fmt::format(" or {}", fmt::join(all_columns, ","));
    throw Failure(place_of_line(path, 0), "the columns must be " + wanted);
  }

  Labels labels;
  labels.has_optional = header.size() > columns.required.size();
  std::map<std::string, size_t> line_of_file;
  for (size_t i = 1; i < lines.size(); ++i) {
    if (lines[i].empty()) continue;
    const std::vector<std::string> fields = split(lines[i], place_of_line(path, i));
    const LabelRow row(place_of_line(path, i), fields, all_columns);
    if (fields.size() != header.size()) {
      row.fail(fmt::format("{} fields, not the header's {}", fields.size(), header.size()));
    }
    const auto [earlier, is_new] = line_of_file.insert({row.file(), i + 1});
    if (!is_new && rows_per_file == RowsPerFile::kOne) {
      row.fail(fmt::format("{} has been in line {}", row.file(), earlier->second));
    }
    std::error_code error;  // of a name that is too long
    if (is_new && !fs::is_regular_file(path_of(directory, row.file()), error)) {
      row.fail(fmt::format("there is no file \"{}\"", row.file()));
    }
    labels.rows.push_back(row);
  }
  if (labels.rows.empty()) throw Failure(path, "no labels after the header");
  std::stable_sort(labels.rows.begin(), labels.rows.end(),
                   [](const LabelRow& a, const LabelRow& b) { return a.file() < b.file(); });
  return labels;
}

std::vector<LabelRow> read_class_labels(const std::string& directory, const LabelColumns& columns,
                                        int class_count) {
  std::vector<LabelRow> rows = read_labels(directory, columns, RowsPerFile::kOne).rows;
  for (const LabelRow& row : rows) row.whole_number(1, class_count - 1);  // or a Failure
  return rows;
}

}  // namespace kelnn_cli
