// SPDX-License-Identifier: Apache-2.0
// Label files of any content: refused with the place of what is wrong, or rows that hold what the header promises, and that
// are the same when they are written anew.
#include "labels.h"
#include "report.h"
#include "support/input.h"
#include "support/model_directory.h"

using namespace kelnn_fuzz;
using namespace kelnn_cli;

namespace {

const LabelColumns kColumns[] = {{{"file", "class"}, {}},
                                 {{"file", "class", "x", "y", "w", "h"}, {}},
                                 {{"file", "x1", "y1"}, {"yaw", "pitch"}}};

const kelnn_test::TemporaryDirectory& directory() {
  static const kelnn_test::TemporaryDirectory labelled;
  static const bool has_files = [] {
    for (const char* name : {"a", "b.png", "c,\"d\""}) labelled.write(name, "");
    return true;
  }();
  EXPECT(has_files);
  return labelled;
}

// False: refused.
bool is_read(const std::string& text, const LabelColumns& columns, RowsPerFile rows,
             Labels* labels) {
  const std::string file = directory().write("labels.csv", text);
  try {
    *labels = read_labels(directory().with_slash(), columns, rows);
    return true;
  } catch (const Failure& failure) {
    EXPECT(std::string(failure.what()).rfind(file, 0) == 0);
    return false;
  }
}

std::string line_of(const std::vector<std::string>& fields) {
  std::string line;
  for (const std::string& field : fields) {
    line += line.empty() ? "\"" : ",\"";
    for (const char c : field) line += c == '"' ? "\"\"" : std::string(1, c);
    line += '"';
  }
  return line + "\r\n";
}

void look_at(const LabelRow& row, size_t column) {
  try {
    EXPECT(std::isfinite(row.number(column)));
    const int whole = row.whole_number(column, 3);
    EXPECT(whole >= 0 && whole <= 3);
  } catch (const Failure& failure) {
    EXPECT(failure.problem()[0] == '"');
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  const RowsPerFile rows = input.yes() ? RowsPerFile::kMany : RowsPerFile::kOne;
  const LabelColumns& columns = kColumns[input.number(0, 2)];
  Labels labels, again;
  if (!is_read(input.ConsumeRemainingBytesAsString(), columns, rows, &labels)) return 0;
  std::vector<std::string> header = columns.required;
  if (labels.has_optional)
    header.insert(header.end(), columns.optional.begin(), columns.optional.end());
  std::string text = line_of(header);
  EXPECT(!labels.rows.empty());
  for (const LabelRow& row : labels.rows) {
    std::vector<std::string> fields;
    for (size_t column = 0; column < header.size(); ++column) {
      fields.push_back(row.text(column));
      look_at(row, column);
    }
    text += line_of(fields);
  }
  EXPECT(is_read(text, columns, rows, &again));
  EXPECT(again.has_optional == labels.has_optional && again.rows.size() == labels.rows.size());
  for (size_t i = 0; i < labels.rows.size(); ++i) {
    for (size_t column = 0; column < header.size(); ++column)
      EXPECT(again.rows[i].text(column) == labels.rows[i].text(column));
  }
  return 0;
}
