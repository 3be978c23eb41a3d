// Runs a program as a user would: arguments in, exit code, standard output and standard error out.
#ifndef KEL_NN_TESTS_RUN_COMMAND_H_
#define KEL_NN_TESTS_RUN_COMMAND_H_

#include <string>
#include <vector>

namespace kelnn_test {

struct CommandResult {
  int exit_code;  // -1: ended by a signal
  std::string out, err;
};

// `input` goes to the program's standard input.
CommandResult run_command(const std::vector<std::string>& arguments, const std::string& input = "");

// The same for the kelnn that was built.
CommandResult run_kelnn(std::vector<std::string> arguments, const std::string& input = "");

std::string text_of(const std::string& path);  // a whole file, bytes as they are

}  // namespace kelnn_test

#endif  // KEL_NN_TESTS_RUN_COMMAND_H_
