// SPDX-License-Identifier: Apache-2.0
// kelnn as a user runs it: in a directory of the test's own, where models/ has a model of each task.
#ifndef KEL_NN_TESTS_COMMAND_TEST_H_
#define KEL_NN_TESTS_COMMAND_TEST_H_

#include <gmock/gmock.h>

#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <numeric>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/videoio.hpp>
#include <random>
#include <sstream>

#include "support/patches.h"

namespace kelnn_test {

namespace fs = std::filesystem;
using Json = nlohmann::json;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::Pointwise;

struct CommandResult {
  int exit_code;  // -1: ended by a signal
  std::string out, err;
};

std::string text_of(const std::string& path);  // a whole file, bytes as they are

const std::string kNetworks = KEL_NN_TEST_NETWORKS "/", kPictures = KEL_NN_TEST_PICTURES "/";
constexpr double kFramesPerSecond = 10;  // of the videos

// ----- Sound: 16 bits, mono. A cry is what is high, to the network of make_test_networks.py.

using Samples = std::vector<int16_t>;
constexpr double kLowHz = 500, kHighHz = 5900;
// Half a second on, half a second off, above a little noise: features tell what changes, and a tone
// that never stops is not seen.
Samples beeps(double hz, double seconds, int rate = 16000);
std::string pcm_of(const Samples& samples);

// Samples at 16 kHz in the container of videos, beside frames that OpenCV has made JPEGs of, kFramesPerSecond of them a second.
std::string avi_of(const std::string& samples, const std::vector<cv::Mat>& frames = {});

class CommandTest : public ::testing::Test {
 protected:
  CommandTest();
  ~CommandTest() override;

  // Spaces separate the arguments.
  CommandResult kelnn(const std::string& arguments, const std::string& input = "") const;
  CommandResult run(std::vector<std::string> command, const std::string& input = "") const;
  // What it printed; it must have succeeded.
  std::string out(const std::string& arguments) const;
  // The same with --json: all lines, or the only one.
  std::vector<Json> lines(const std::string& arguments) const;
  Json json(const std::string& arguments) const;

  // Calls that must end with the code, the message and no result.
  struct Call {
    std::string arguments;
    int exit_code;
    std::string message;
  };
  void expect_refused(const std::vector<Call>& calls) const;

  std::string path(const std::string& name) const { return directory_ / name; }
  std::string text(const std::string& name) const { return text_of(path(name)); }
  size_t file_count(const std::string& name) const;
  void write(const std::string& name, const std::string& content) const;
  void save(const std::string& name, const cv::Mat& picture) const;
  cv::Mat picture(const std::string& name) const;
  void save_video(const std::string& name, cv::Size size, int count,
                  const std::function<void(int, cv::Mat*)>& paint) const;

 private:
  fs::path directory_;
};

}  // namespace kelnn_test

#endif  // KEL_NN_TESTS_COMMAND_TEST_H_
