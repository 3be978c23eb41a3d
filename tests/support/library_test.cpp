#include "support/library_test.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <regex>

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
  static const std::regex line("\\[(Error|Warning|Info)\\][^\n]*");
  std::vector<std::string> found;
  for (std::sregex_iterator it(printed.begin(), printed.end(), line), end; it != end; ++it) {
    found.push_back(it->str());
  }
  return found;
}

::testing::Matcher<std::string> IsLocatedLine(const std::string& colour, const std::string& path,
                                              const std::string& function,
                                              const std::string& message) {
  const std::string quoted_function =
      std::regex_replace(function, std::regex("[*()\\[\\].]"), std::string("\\$&"));
  const std::string quoted_message =
      std::regex_replace(message, std::regex("[*()\\[\\].?\\\\]"), std::string("\\$&"));
  return ::testing::MatchesRegex("\x1b\\[0;" + colour + "m" + path + ": In function: '" +
                                 quoted_function + "': [0-9]+\n" + quoted_message + "\n\x1b\\[0m");
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
