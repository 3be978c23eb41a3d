// SPDX-License-Identifier: Apache-2.0
// Labelled data: a directory with a file labels.csv that says what is in the other files.
#pragma once

#include <string>
#include <vector>

namespace kelnn_cli {

// One line. Everything that is wrong with it is a Failure that names the file, the line and the
// column.
class LabelRow {
 public:
  LabelRow(const std::string& place, std::vector<std::string> fields,
           const std::vector<std::string>& columns)
      : place_(place), fields_(std::move(fields)), columns_(columns) {}

  const std::string& file() const { return fields_[0]; }  // as it stands in the file
  const std::string& text(size_t column) const { return fields_[column]; }
  double number(size_t column) const;
  int whole_number(size_t column, int max) const;  // from 0
  bool is_empty_from(size_t column) const;         // it and all after it
  [[noreturn]] void fail(const std::string& problem) const;

 private:
  std::string place_;
  std::vector<std::string> fields_;
  std::vector<std::string> columns_;
};

struct LabelColumns {
  std::vector<std::string> required;  // "file" is the first
  std::vector<std::string> optional;  // all of them or none
};

enum class RowsPerFile { kOne, kMany };

struct Labels {
  std::vector<LabelRow> rows;  // at least one; in the order of the files' names
  bool has_optional;
};

// Every row names a file that is there.
Labels read_labels(const std::string& directory, const LabelColumns& columns, RowsPerFile rows);

// The same where the second column is a class below `class_count`, and a file has one.
std::vector<LabelRow> read_class_labels(const std::string& directory, const LabelColumns& columns,
                                        int class_count);

std::string path_of(const std::string& directory, const std::string& file);

// All that is read: the labels and the files that they name, whatever the columns.
std::vector<std::string> labelled_files(const std::string& directory);

}  // namespace kelnn_cli
