// SPDX-License-Identifier: Apache-2.0
#include "support/stdout_capture.h"

#include <unistd.h>

#include <cstdlib>

namespace kelnn_test {

StdoutCapture::StdoutCapture() {
  std::fflush(stdout);
  saved_ = dup(STDOUT_FILENO);
  file_ = std::tmpfile();
  if (saved_ < 0 || !file_ || dup2(fileno(file_), STDOUT_FILENO) < 0) {
    std::perror("capturing standard output");
    std::abort();
  }
}

StdoutCapture::~StdoutCapture() {
  std::fflush(stdout);
  dup2(saved_, STDOUT_FILENO);
  close(saved_);
  std::fclose(file_);
}

std::string StdoutCapture::take() {
  std::fflush(stdout);
  std::string text;
  char buffer[4096];
  lseek(STDOUT_FILENO, 0, SEEK_SET);
  for (ssize_t n; (n = read(STDOUT_FILENO, buffer, sizeof(buffer))) > 0;) text.append(buffer, n);
  if (ftruncate(STDOUT_FILENO, 0) != 0) std::abort();
  lseek(STDOUT_FILENO, 0, SEEK_SET);
  return text;
}

}  // namespace kelnn_test
