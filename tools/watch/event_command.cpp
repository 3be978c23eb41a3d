// SPDX-License-Identifier: Apache-2.0
#include "event_command.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

extern char** environ;

namespace kelnn_cli {
namespace {

constexpr std::chrono::milliseconds kNap{10};

struct Descriptor {
  ~Descriptor() {
    if (number >= 0) close(number);
  }
  int number = -1;
};

// In a process group of its own, which Ctrl-C does not reach: it may finish.
int start(const std::string& command, int input, pid_t* pid) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
  // Descriptor 1 may lead to where the library's lines of this moment are caught.
  if (fcntl(STDERR_FILENO, F_GETFD) >= 0) {
    posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
  }
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t usual;
  sigemptyset(&usual);
  for (const int signal : {SIGXFSZ, SIGPIPE}) sigaddset(&usual, signal);
  posix_spawnattr_setsigdefault(&attributes, &usual);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF);
  std::string words[] = {"sh", "-c", command};
  char* const argv[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
  const int error = posix_spawn(pid, "/bin/sh", &actions, &attributes, argv, environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

}  // namespace

EventCommand::EventCommand(const std::string& command, const Limits& limits)
    : command_(command), limits_(limits), thread_([this] { work(); }) {}

EventCommand::~EventCommand() {
  if (thread_.joinable()) finish();
}

void EventCommand::give(const std::string& line) {
  const std::lock_guard<std::mutex> lock(lock_);
  if (waiting_.size() >= limits_.most_waiting) {
    return note(kLeftOut,
                fmt::format("{} events are waiting; others are left out", waiting_.size()));
  }
  waiting_.push_back(line + "\n");
  changed_.notify_all();
}

std::vector<std::string> EventCommand::problems() {
  const std::lock_guard<std::mutex> lock(lock_);
  std::vector<std::string> problems;
  problems.swap(problems_);
  return problems;
}

std::string EventCommand::finish() {
  {
    const std::lock_guard<std::mutex> lock(lock_);
    is_over_ = true;
    end_ = Clock::now() + limits_.patience;
    changed_.notify_all();
  }
  thread_.join();
  const size_t all = fates_[kTaken] + fates_[kFailed] + fates_[kTooSlow] + fates_[kLeftOut];
  if (fates_[kTaken] == all) return "";
  return fmt::format("of {} events {} were taken; {} failed, {} took too long, {} were left out",
                     all, fates_[kTaken], fates_[kFailed], fates_[kTooSlow], fates_[kLeftOut]);
}

void EventCommand::note(Fate fate, const std::string& problem) {
  if (fates_[fate]++ == 0 && !problem.empty()) {
    problems_.push_back(fmt::format("--on-event {}: {}", command_, problem));
  }
}

void EventCommand::work() {
  std::unique_lock<std::mutex> lock(lock_);
  for (;;) {
    changed_.wait(lock, [this] { return is_over_ || !waiting_.empty(); });
    if (waiting_.empty()) return;
    const std::string line = waiting_.front();
    waiting_.pop_front();
    std::string problem = "nobody waits for it any more";
    Fate fate = kLeftOut;
    if (!is_over_ || Clock::now() < end_) {
      lock.unlock();
      fate = run(line, &problem);
      lock.lock();
    }
    note(fate, fate == kTaken ? "" : problem);
  }
}

bool EventCommand::is_waited_for(Clock::time_point since) {
  const std::lock_guard<std::mutex> lock(lock_);
  return Clock::now() < since + limits_.patience && !(is_over_ && Clock::now() >= end_);
}

EventCommand::Fate EventCommand::run(const std::string& line, std::string* problem) {
  Descriptor out, in;
  int ends[2];
  pid_t pid = 0;
  // A pipe holds 64 KiB, a line has far less: it is written before anybody reads.
  int error = pipe2(ends, O_CLOEXEC | O_NONBLOCK) == 0 ? 0 : errno;
  if (error == 0) {
    out.number = ends[0];
    in.number = ends[1];
    fcntl(out.number, F_SETFL, 0);  // the command's end waits, as usual
    const bool is_written =
        write(in.number, line.data(), line.size()) == static_cast<ssize_t>(line.size());
    error = is_written ? start(command_, out.number, &pid) : EMSGSIZE;
  }
  if (error != 0) {
    *problem = std::string("cannot be started: ") + std::strerror(error);
    return kFailed;
  }
  close(in.number);
  in.number = -1;
  const Clock::time_point since = Clock::now();
  int status = 0;
  while (waitpid(pid, &status, WNOHANG) == 0) {
    if (!is_waited_for(since)) {
      kill(-pid, SIGKILL);
      waitpid(pid, &status, 0);
      *problem = fmt::format("took longer than {} s and was ended",
                             std::chrono::duration<double>(limits_.patience).count());
      return kTooSlow;
    }
    std::this_thread::sleep_for(kNap);
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return kTaken;
  *problem = WIFEXITED(status) ? fmt::format("failed with exit code {}", WEXITSTATUS(status))
                               : fmt::format("was ended by signal {}", WTERMSIG(status));
  return kFailed;
}

}  // namespace kelnn_cli
