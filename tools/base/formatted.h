// A number as text.
#ifndef KEL_NN_TOOLS_FORMATTED_H_
#define KEL_NN_TOOLS_FORMATTED_H_

#include <cstdio>
#include <string>

namespace kelnn_cli {

inline std::string formatted(const char* format, double value) {
  char text[64];
  std::snprintf(text, sizeof(text), format, value);
  return text;
}

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_FORMATTED_H_
