// Runs the kelnn that was built, as a user would.
#ifndef KEL_NN_TESTS_COMMAND_LINE_H_
#define KEL_NN_TESTS_COMMAND_LINE_H_

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace kelnn_test {

struct CommandResult {
  int exit_code;  // -1: it did not end by itself
  std::string out, err;
};

inline std::string shell_quoted(const std::string& word) {
  std::string quoted = "'";
  for (const char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

inline std::string text_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

// `directory`, ending in "/", takes what it prints.
inline CommandResult run_kelnn(const std::string& directory,
                               const std::vector<std::string>& arguments) {
  const std::string out = directory + "out", err = directory + "err";
  std::string line = shell_quoted(KEL_NN_TEST_COMMAND);
  for (const std::string& argument : arguments) line += " " + shell_quoted(argument);
  line += " >" + shell_quoted(out) + " 2>" + shell_quoted(err);
  const int status = std::system(line.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text_of(out), text_of(err)};
}

}  // namespace kelnn_test

#endif  // KEL_NN_TESTS_COMMAND_LINE_H_
