// SPDX-License-Identifier: Apache-2.0
#include "support/model_directory.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "kel_nn_model_files.h"

namespace kelnn_test {
namespace {

const char* const kModelFiles[] = {
    kelnn::kFaceDetectionModel,
    kelnn::kFaceLandmarksModel,
    kelnn::kFaceFeatureModel,
    kelnn::kFaceClassifyModel,
    kelnn::kPersonDetectionLandscapeModel,
    kelnn::kPersonDetectionSquareModel,
    kelnn::kPersonDetectionPortraitModel,
    kelnn::kPersonClassifyModel,
    kelnn::kFourClassLandscapeModel,
    kelnn::kFourClassSquareModel,
    kelnn::kFourClassPortraitModel,
    kelnn::kCryDetectionModel,
};

}  // namespace

TemporaryDirectory::TemporaryDirectory() {
  const char* base = std::getenv("TMPDIR");
  path_ = std::string(base ? base : "/tmp") + "/kelnn_test_XXXXXX";
  if (!mkdtemp(&path_[0])) std::abort();
}

TemporaryDirectory::~TemporaryDirectory() {
  if (std::system(("rm -rf '" + path_ + "'").c_str()) != 0) std::perror(path_.c_str());
}

std::string TemporaryDirectory::write(const std::string& name, const std::string& content) const {
  std::ofstream(file(name), std::ios::binary) << content;
  return file(name);
}

void write_model_files(const TemporaryDirectory& directory) {
  for (const char* name : kModelFiles) directory.write(name, std::string(3000, 'm'));
}

}  // namespace kelnn_test
