// SPDX-License-Identifier: Apache-2.0
// Many files, looked at by one process or by several.
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "evaluation.h"
#include "progress_bar.h"

namespace kelnn_cli {
namespace {

using Begin = std::function<LookAt<std::string>()>;
using Take = std::function<void(size_t file, const std::string& bytes)>;

void look_at_each(std::vector<size_t> files, const LookAt<std::string>& look, const Take& take) {
  while (!files.empty()) {
    std::vector<size_t> later;
    for (const size_t file : files) {
      if (const auto bytes = look(file, file == files.front())) {
        take(file, *bytes);
      } else {
        later.push_back(file);
      }
    }
    files = later;
  }
}

// The files from `first` on in steps of `step`.
std::vector<size_t> share(size_t first, size_t step, size_t file_count) {
  std::vector<size_t> files;
  for (size_t file = first; file < file_count; file += step) files.push_back(file);
  return files;
}

// ----- A process

struct Header {  // of what goes through its pipe
  size_t file, size;
};

void write_all(int pipe, const void* data, size_t size) {
  for (const char* next = static_cast<const char*>(data); size > 0;) {
    const ssize_t written = write(pipe, next, size);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) _exit(EXIT_FAILURE);
    next += written;
    size -= static_cast<size_t>(written);
  }
}

// Ends with the process that waits for it, and leaves that one's temporary files alone. Failures are told by that one.
[[noreturn]] void work(int pipe, pid_t parent, const std::vector<size_t>& files, int jobs,
                       const Begin& begin) {
  for (const int signal : {SIGHUP, SIGINT, SIGPIPE, SIGTERM}) std::signal(signal, SIG_DFL);
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != parent) _exit(EXIT_FAILURE);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(nowhere, STDOUT_FILENO);
  try {
    const auto processors = static_cast<int>(std::thread::hardware_concurrency());
    cv::setNumThreads(std::max(1, processors / jobs));
    look_at_each(files, begin(), [pipe](size_t file, const std::string& bytes) {
      const Header header = {file, bytes.size()};
      write_all(pipe, &header, sizeof(header));
      write_all(pipe, bytes.data(), bytes.size());
    });
  } catch (const std::exception&) {
    _exit(EXIT_FAILURE);
  }
  _exit(EXIT_SUCCESS);
}

// ----- The one that waits for them

struct Worker {
  pid_t process;
  int pipe;
  std::string received = {};  // and not taken yet

  // False: it has ended.
  bool receive(const Take& take) {
    char buffer[1 << 16];
    const ssize_t size = read(pipe, buffer, sizeof(buffer));
    if (size <= 0) return size < 0 && errno == EINTR;
    received.append(buffer, static_cast<size_t>(size));
    size_t done = 0;
    for (Header header; received.size() - done >= sizeof(header);) {
      std::memcpy(&header, received.data() + done, sizeof(header));
      if (received.size() - done - sizeof(header) < header.size) break;
      take(header.file, received.substr(done + sizeof(header), header.size));
      done += sizeof(header) + header.size;
    }
    received.erase(0, done);
    return true;
  }
};

// Whether all went well in all of them. When one fails, the others end as they find nobody that listens.
bool look_in_processes(int jobs, size_t file_count, const Begin& begin, const Take& take) {
  std::vector<Worker> workers;
  bool ok = true;
  const pid_t parent = getpid();
  for (int i = 0; i < jobs && ok; ++i) {
    int ends[2];
    ok = pipe2(ends, O_CLOEXEC) == 0;
    if (!ok) break;
    const pid_t process = fork();
    if (process == 0) {
      for (const Worker& other : workers) close(other.pipe);
      close(ends[0]);
      work(ends[1], parent, share(static_cast<size_t>(i), static_cast<size_t>(jobs), file_count),
           jobs, begin);
    }
    close(ends[1]);
    ok = process > 0;
    if (ok) {
      workers.push_back({process, ends[0]});
    } else {
      close(ends[0]);
    }
  }
  while (ok && !workers.empty()) {
    std::vector<pollfd> pipes;
    for (const Worker& worker : workers) pipes.push_back({worker.pipe, POLLIN, 0});
    poll(pipes.data(), pipes.size(), -1);
    for (size_t i = workers.size(); i-- > 0;) {
      if (pipes[i].revents == 0 || workers[i].receive(take)) continue;
      int status = 0;
      close(workers[i].pipe);
      waitpid(workers[i].process, &status, 0);
      ok = ok && status == 0;
      workers.erase(workers.begin() + static_cast<ptrdiff_t>(i));
    }
  }
  for (const Worker& worker : workers) close(worker.pipe);
  for (const Worker& worker : workers) waitpid(worker.process, nullptr, 0);
  return ok;
}

}  // namespace

std::vector<std::string> found_bytes(const EvaluationSettings& settings, size_t file_count,
                                     const Begin& begin) {
  std::vector<std::string> found(file_count);
  ProgressBar bar(settings.task, static_cast<int64_t>(file_count), "files");
  int64_t done = 0;
  const Take take = [&](size_t file, const std::string& bytes) {
    found[file] = bytes;
    bar.show(++done);
  };
  const auto jobs =
      static_cast<int>(std::min<size_t>(static_cast<size_t>(settings.jobs), file_count));
  if (jobs > 1 && look_in_processes(jobs, file_count, begin, take)) return found;
  done = 0;
  look_at_each(share(0, 1, file_count), begin(), take);
  return found;
}

}  // namespace kelnn_cli
