#include "labels.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <map>
#include <sstream>

#include "files.h"
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

std::vector<std::string> split(const std::string& line) {
  std::vector<std::string> fields(1);
  for (const char c : line) {
    if (c == ',') {
      fields.emplace_back();
    } else {
      fields.back() += c;
    }
  }
  return fields;
}

std::string joined(const std::vector<std::string>& fields) {
  std::string line;
  for (const std::string& field : fields) line += (line.empty() ? "" : ",") + field;
  return line;
}

template <typename Number>
bool parse(const std::string& text, Number* value) {
  const char* end = text.data() + text.size();
  const std::from_chars_result result = std::from_chars(text.data(), end, *value);
  return result.ec == std::errc() && result.ptr == end;
}

}  // namespace

double LabelRow::number(size_t column) const {
  double value;
  if (!parse(fields_[column], &value) || !std::isfinite(value)) {
    fail("\"" + fields_[column] + "\" is no number for " + columns_[column]);
  }
  return value;
}

int LabelRow::whole_number(size_t column, int max) const {
  int value;
  if (!parse(fields_[column], &value) || value < 0 || value > max) {
    fail("\"" + fields_[column] + "\" for " + columns_[column] + ", which goes from 0 to " +
         std::to_string(max));
  }
  return value;
}

bool LabelRow::is_empty_from(size_t column) const {
  return std::all_of(fields_.begin() + static_cast<std::ptrdiff_t>(column), fields_.end(),
                     [](const std::string& field) { return field.empty(); });
}

void LabelRow::fail(const std::string& problem) const { throw Failure(place_, problem); }

std::string path_of(const std::string& directory, const LabelRow& row) {
  return (fs::path(directory) / row.file()).string();
}

Labels read_labels(const std::string& directory, const LabelColumns& columns,
                   RowsPerFile rows_per_file) {
  const std::string path = (fs::path(directory) / kLabelFile).string();
  const std::vector<std::string> lines = lines_of(path);
  const auto place = [&](size_t line) { return path + ":" + std::to_string(line); };

  std::vector<std::string> all_columns = columns.required;
  all_columns.insert(all_columns.end(), columns.optional.begin(), columns.optional.end());
  const std::string short_header = joined(columns.required), long_header = joined(all_columns);
  const std::string header = lines.empty() ? "" : lines[0];
  if (header != short_header && header != long_header) {
    throw Failure(place(1), "the columns must be " + short_header +
                                (columns.optional.empty() ? "" : " or " + long_header));
  }

  Labels labels;
  labels.has_optional = !columns.optional.empty() && header == long_header;
  const size_t width = split(header).size();
  std::map<std::string, size_t> line_of_file;
  for (size_t i = 1; i < lines.size(); ++i) {
    if (lines[i].empty()) continue;
    const LabelRow row(place(i + 1), split(lines[i]), all_columns);
    const size_t count = split(lines[i]).size();
    if (count != width) {
      row.fail(std::to_string(count) + " fields, not the header's " + std::to_string(width));
    }
    const auto [earlier, is_new] = line_of_file.insert({row.file(), i + 1});
    if (!is_new && rows_per_file == RowsPerFile::kOne) {
      row.fail(row.file() + " has been in line " + std::to_string(earlier->second));
    }
    if (is_new && !fs::is_regular_file(path_of(directory, row))) {
      row.fail("there is no file \"" + row.file() + "\"");
    }
    labels.rows.push_back(row);
  }
  if (labels.rows.empty()) throw Failure(path, "no labels after the header");
  std::stable_sort(labels.rows.begin(), labels.rows.end(),
                   [](const LabelRow& a, const LabelRow& b) { return a.file() < b.file(); });
  return labels;
}

}  // namespace kelnn_cli
