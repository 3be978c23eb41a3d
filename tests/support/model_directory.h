// SPDX-License-Identifier: Apache-2.0
// A directory for a test's files, and the files that every task finds in it.
#ifndef KEL_NN_TESTS_MODEL_DIRECTORY_H_
#define KEL_NN_TESTS_MODEL_DIRECTORY_H_

#include <string>

namespace kelnn_test {

// A directory that goes away with its content.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  std::string write(const std::string& name, const std::string& content) const;  // returns the path
  std::string with_slash() const { return path_ + "/"; }

 private:
  std::string path_;
};

// Writes a model file for every task. Any bytes do: the scripted runtime does not read them.
void write_model_files(const TemporaryDirectory& directory);

}  // namespace kelnn_test

#endif  // KEL_NN_TESTS_MODEL_DIRECTORY_H_
