// SPDX-License-Identifier: Apache-2.0
// The library's lines on standard output: red errors, yellow warnings, green information.
//
// Macros, because a line names the file, function and line of the one who reports. The exported
// function reports, so that its own name is shown; the helpers below it return a status. What all
// lines have in common is one function's, so that a line costs a call and its own text.
#ifndef KEL_NN_LOG_H_
#define KEL_NN_LOG_H_

#include <cstdio>

// The path from the root of the tree, which the build gives for every source.
#ifndef KEL_NN_SOURCE_PATH
#define KEL_NN_SOURCE_PATH __FILE__
#endif

// How a line names its function. The engine shows whole signatures and defines its own before this.
#ifndef KEL_NN_LOG_FUNCTION
#define KEL_NN_LOG_FUNCTION __func__
#endif

namespace kelnn {

// Prints the whole line, which lines of other threads do not interrupt. A function's whole
// signature is shown in the same way whatever compiler has spelt it.
__attribute__((format(printf, 4, 5))) void report_error(const char* source_path,
                                                        const char* function, int line,
                                                        const char* format, ...);
__attribute__((format(printf, 4, 5))) void report_warning(const char* source_path,
                                                          const char* function, int line,
                                                          const char* format, ...);

}  // namespace kelnn

#define KEL_NN_ERROR(...) KEL_NN_ERROR_OF(KEL_NN_LOG_FUNCTION, __VA_ARGS__)
// An error under the name of a stage that is no function here.
#define KEL_NN_ERROR_OF(stage, ...) \
  kelnn::report_error(KEL_NN_SOURCE_PATH, stage, __LINE__, __VA_ARGS__)
#define KEL_NN_WARNING(...) \
  kelnn::report_warning(KEL_NN_SOURCE_PATH, KEL_NN_LOG_FUNCTION, __LINE__, __VA_ARGS__)
#define KEL_NN_INFO(format, ...) std::printf("\033[0;32m[Info]" format "\n\033[0m", ##__VA_ARGS__)

// Reports an error and returns `result` from the function when `condition` holds.
#define KEL_NN_FAIL_IF(condition, result, ...) \
  do {                                         \
    if (condition) {                           \
      KEL_NN_ERROR(__VA_ARGS__);               \
      return result;                           \
    }                                          \
  } while (0)

#endif  // KEL_NN_LOG_H_
