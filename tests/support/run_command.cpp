#include "support/run_command.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

extern char** environ;

namespace kelnn_test {
namespace {

std::string content(std::FILE* file) {
  std::string text;
  char buffer[4096];
  std::rewind(file);
  for (size_t n; (n = std::fread(buffer, 1, sizeof(buffer), file)) > 0;) text.append(buffer, n);
  std::fclose(file);
  return text;
}

}  // namespace

// Files instead of pipes: nobody waits for anybody.
CommandResult run_command(const std::vector<std::string>& arguments, const std::string& input) {
  std::FILE* in = std::tmpfile();
  std::FILE* out = std::tmpfile();
  std::FILE* err = std::tmpfile();
  if (!in || !out || !err) std::abort();
  std::fwrite(input.data(), 1, input.size(), in);
  std::rewind(in);

  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fileno(in), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, fileno(out), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, fileno(err), STDERR_FILENO);
  pid_t pid = 0;
  int status = -1;
  if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0) {
    waitpid(pid, &status, 0);
  }
  posix_spawn_file_actions_destroy(&actions);
  std::fclose(in);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, content(out), content(err)};
}

CommandResult run_kelnn(std::vector<std::string> arguments, const std::string& input) {
  arguments.insert(arguments.begin(), KEL_NN_TEST_PROGRAM);
  return run_command(arguments, input);
}

std::string text_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace kelnn_test
