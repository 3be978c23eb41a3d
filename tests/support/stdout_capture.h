// SPDX-License-Identifier: Apache-2.0
// Collects what goes to the process's standard output, C streams and file descriptor alike.
#ifndef KEL_NN_TESTS_STDOUT_CAPTURE_H_
#define KEL_NN_TESTS_STDOUT_CAPTURE_H_

#include <cstdio>
#include <string>

namespace kelnn_test {

class StdoutCapture {
 public:
  StdoutCapture();
  ~StdoutCapture();  // standard output is itself again
  StdoutCapture(const StdoutCapture&) = delete;
  StdoutCapture& operator=(const StdoutCapture&) = delete;

  std::string take();  // what was printed since the last take()

 private:
  int saved_;
  std::FILE* file_;
};

}  // namespace kelnn_test

#endif  // KEL_NN_TESTS_STDOUT_CAPTURE_H_
