// SPDX-License-Identifier: Apache-2.0
#include "support/library_test.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

namespace kelnn_test {
namespace {

// What a check says goes to standard output, which these tests capture: it is said here too.
class FailuresToStandardError : public ::testing::EmptyTestEventListener {
  void OnTestPartResult(const ::testing::TestPartResult& result) override {
    if (!result.failed()) return;
    std::fprintf(stderr, "%s:%d: %s\n", result.file_name() ? result.file_name() : "",
                 result.line_number(), result.message());
  }
};
[[maybe_unused]] const bool g_is_listening = [] {
  ::testing::UnitTest::GetInstance()->listeners().Append(new FailuresToStandardError);
  return true;
}();

}  // namespace

std::vector<std::string> messages(const std::string& printed, bool with_functions) {
  std::vector<std::string> found;
  std::istringstream lines(printed);
  std::string function;
  for (std::string line; std::getline(lines, line);) {
    const size_t name = line.find("': "), start = line.find("function: '");
    if (name != line.npos && start != line.npos)
      function = line.substr(start + 11, name - start - 11) + ": ";
    for (const char* tag : {"[Error]", "[Warning]", "[Info]"}) {
      const size_t text = line.find(tag);
      if (text != line.npos) found.push_back((with_functions ? function : "") + line.substr(text));
    }
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
  write_model_files(models);
  kel_nn_set_model_root_dir(models.with_slash().c_str());
  live_before_ = live_blocks();  // the directory before has been released
  handle = kel_nn_handle_create();
  printed();
}

TaskTest::~TaskTest() { kel_nn_handle_destroy(handle); }

}  // namespace kelnn_test
