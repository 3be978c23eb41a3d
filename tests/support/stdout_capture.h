// SPDX-License-Identifier: Apache-2.0
// Collects what goes to the process's standard output, C streams and file descriptor alike.
#ifndef KEL_NN_TESTS_STDOUT_CAPTURE_H_
#define KEL_NN_TESTS_STDOUT_CAPTURE_H_

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace kelnn_test {

class StdoutCapture {
 public:
  StdoutCapture() {
    std::fflush(stdout);
    if (saved_ < 0 || !file_ || dup2(fileno(file_), STDOUT_FILENO) < 0) std::abort();
  }
  ~StdoutCapture() {  // standard output is itself again
    std::fflush(stdout);
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
    std::fclose(file_);
  }
  StdoutCapture(const StdoutCapture&) = delete;
  StdoutCapture& operator=(const StdoutCapture&) = delete;

  std::string take() {  // what was printed since the last take()
    std::fflush(stdout);
    std::string text(static_cast<size_t>(lseek(STDOUT_FILENO, 0, SEEK_END)), '\0');
    const ssize_t size = pread(STDOUT_FILENO, &text[0], text.size(), 0);
    if (size != static_cast<ssize_t>(text.size()) || ftruncate(STDOUT_FILENO, 0) != 0) std::abort();
    lseek(STDOUT_FILENO, 0, SEEK_SET);
    return text;
  }

 private:
  const int saved_ = dup(STDOUT_FILENO);
  std::FILE* const file_ = std::tmpfile();
};

}  // namespace kelnn_test

#endif  // KEL_NN_TESTS_STDOUT_CAPTURE_H_
