// SPDX-License-Identifier: Apache-2.0
// A reported line: where and who in the line's colour, then the text.
#include "kel_nn_log.h"

#include <stdio.h>  // flockfile

#include <cstdarg>
#include <cstddef>

namespace {

// A function as every compiler's lines show it: "void* f(size_t*)", where some write
// "void *f(size_t *)". A bare name stays as it is.
struct FunctionName {
  char text[128];

  explicit FunctionName(const char* function) {
    size_t length = 0;
    for (const char* p = function; *p && length + 2 < sizeof(text); ++p) {
      const bool space_before_star = p[0] == ' ' && p[1] == '*';
      if (space_before_star) continue;
      text[length++] = *p;
      const bool name_after_star =
          p[0] == '*' && p[1] != '*' && p[1] != ' ' && p[1] != ',' && p[1] != ')';
      if (name_after_star) text[length++] = ' ';
    }
    text[length] = '\0';
  }
};

void report(int colour, const char* tag, const char* source_path, const char* function, int line,
            const char* format, va_list arguments) {
  const FunctionName name(function);
  flockfile(stdout);
  std::printf("\033[0;%dm%s: In function: '%s': %d\n[%s]", colour, source_path, name.text, line,
              tag);
  std::vprintf(format, arguments);
  std::printf("\n\033[0m");
  funlockfile(stdout);
}

}  // namespace

void kelnn::report_error(const char* source_path, const char* function, int line,
                         const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  report(31, "Error", source_path, function, line, format, arguments);
  va_end(arguments);
}

void kelnn::report_warning(const char* source_path, const char* function, int line,
                           const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  report(33, "Warning", source_path, function, line, format, arguments);
  va_end(arguments);
}
