// SPDX-License-Identifier: Apache-2.0
// A directory for a test's files, and the files that every task finds in it.
#ifndef KEL_NN_TESTS_MODEL_DIRECTORY_H_
#define KEL_NN_TESTS_MODEL_DIRECTORY_H_

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "kel_nn_model_files.h"

namespace kelnn_test {

// A directory that goes away with its content.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    if (!mkdtemp(&path_[0])) std::abort();
  }
  ~TemporaryDirectory() { std::filesystem::remove_all(path_); }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  std::string write(const std::string& name, const std::string& content) const {
    std::ofstream(file(name), std::ios::binary) << content;
    return file(name);
  }
  std::string with_slash() const { return path_ + "/"; }

 private:
  std::string path_ = std::filesystem::temp_directory_path() / "kelnn_test_XXXXXX";
};

// Writes a model file for every task. Any bytes do: the scripted runtime does not read them.
inline void write_model_files(const TemporaryDirectory& directory) {
  for (const char* name :
       {kelnn::kFaceDetectionModel, kelnn::kFaceLandmarksModel, kelnn::kFaceFeatureModel,
        kelnn::kFaceClassifyModel, kelnn::kPersonDetectionLandscapeModel,
        kelnn::kPersonDetectionSquareModel, kelnn::kPersonDetectionPortraitModel,
        kelnn::kPersonClassifyModel, kelnn::kFourClassLandscapeModel, kelnn::kFourClassSquareModel,
        kelnn::kFourClassPortraitModel, kelnn::kCryDetectionModel}) {
    directory.write(name, std::string(3000, 'm'));
  }
}

}  // namespace kelnn_test

#endif  // KEL_NN_TESTS_MODEL_DIRECTORY_H_
