#include "support/library_test.h"

#include <unistd.h>

#include <algorithm>
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

std::vector<std::string> messages(const std::string& printed) {
  std::vector<std::string> found;
  for (size_t at = 0; at < printed.size();) {
    const size_t end = std::min(printed.find('\n', at), printed.size());
    std::string line = printed.substr(at, end - at);
    for (const char* tag : {"[Error]", "[Warning]", "[Info]"}) {
      const size_t start = line.find(tag);
      if (start != std::string::npos) found.push_back(line.substr(start));
    }
    at = end + 1;
  }
  return found;
}

::testing::Matcher<std::string> IsLocatedLine(const std::string& colour, const std::string& path,
                                              const std::string& function,
                                              const std::string& message) {
  const auto without_line_number = [](const std::string& printed) {
    const size_t start = printed.find("': ") + 3, end = printed.find('\n');
    const bool has_number =
        start < end && end < printed.size() &&
        std::all_of(&printed[start], &printed[end], [](char c) { return '0' <= c && c <= '9'; });
    return has_number ? std::string(printed).replace(start, end - start, "N") : printed;
  };
  return ::testing::ResultOf(without_line_number, "\033[0;" + colour + "m" + path +
                                                      ": In function: '" + function + "': N\n" +
                                                      message + "\n\033[0m");
}

TaskTest::TaskTest() {
  runtime = ScriptedRuntime();
  // Any bytes do: the scripted runtime does not read them.
  for (const char* name : kModelFiles) models.write(name, std::string(3000, 'm'));
  kel_nn_set_model_root_dir(models.with_slash().c_str());
  handle = kel_nn_handle_create();
  printed();
}

TaskTest::~TaskTest() { kel_nn_handle_destroy(handle); }

}  // namespace kelnn_test
