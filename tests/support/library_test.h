// SPDX-License-Identifier: Apache-2.0
// The fixtures: LibraryTest captures what is printed, TaskTest adds a handle, a directory with a
// model file for every task and a scripted runtime.
#ifndef KEL_NN_TESTS_LIBRARY_TEST_H_
#define KEL_NN_TESTS_LIBRARY_TEST_H_

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

#include "kel_nn.h"
#include "support/allocations.h"
#include "support/model_directory.h"
#include "support/scripted_runtime.h"
#include "support/stdout_capture.h"

namespace kelnn_test {

// The message of every reported line in `printed`: "[Error]...", "[Warning]...", "[Info]...",
// without colours and locations; or with the function in front, "f: [Error]...".
std::vector<std::string> messages(const std::string& printed, bool with_functions = false);

// The whole of a located line as it must be printed, with any line number: source path, function
// and tagged message in the given colour ("31" error, "33" warning).
::testing::Matcher<std::string> IsLocatedLine(const std::string& colour, const std::string& path,
                                              const std::string& function,
                                              const std::string& message);

// Whatever a test initialises it releases: no block of the library's may be left at its end.
class LibraryTest : public ::testing::Test {
 protected:
  ~LibraryTest() override { EXPECT_EQ(live_blocks(), live_before_); }
  std::string printed() { return capture_.take(); }
  std::vector<std::string> printed_messages() { return messages(printed()); }
  std::vector<std::string> printed_reports() { return messages(printed(), true); }
  // One error has been printed, and nothing else.
  void expect_error(const std::string& path, const std::string& function,
                    const std::string& message) {
    EXPECT_THAT(printed(), IsLocatedLine("31", path, function, "[Error]" + message));
  }

  long live_before_ = live_blocks();

 private:
  StdoutCapture capture_;
};

class TaskTest : public LibraryTest {
 protected:
  TaskTest();
  ~TaskTest() override;

  ScriptedRuntime& runtime = scripted_runtime();
  TemporaryDirectory models;  // the model root directory
  kel_nn_handle_t handle;
};

}  // namespace kelnn_test

#endif  // KEL_NN_TESTS_LIBRARY_TEST_H_
