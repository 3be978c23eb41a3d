// A reported line: where and who in the line's colour, then the text.
#include "kel_nn_log.h"

#include <stdio.h>  // flockfile

#include <cstdarg>

void kelnn::report(Severity severity, const char* source_path, const char* function, int line,
                   const char* format, ...) {
  const bool is_error = severity == Severity::kError;
  va_list arguments;
  va_start(arguments, format);
  flockfile(stdout);
  std::printf("\033[0;%dm%s: In function: '%s': %d\n[%s]", is_error ? 31 : 33, source_path,
              function, line, is_error ? "Error" : "Warning");
  std::vprintf(format, arguments);
  std::fputs("\n\033[0m", stdout);
  funlockfile(stdout);
  va_end(arguments);
}
