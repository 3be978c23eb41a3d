// SPDX-License-Identifier: Apache-2.0
#include "files.h"

#include <fcntl.h>
#include <sys/auxv.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>

#include "report.h"

namespace kelnn_cli {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const std::string& path, int error) {
  throw Failure(path, std::strerror(error));
}

int g_standard_output = STDOUT_FILENO;

// Names of files in the making, a video, tables and a picture at most, and of the directories that were made for them; one
// that finds no room is not removed by a signal.
constexpr size_t kMostTemporaries = 32;
std::atomic<const char*> g_temporaries[kMostTemporaries];

void exchange(const char* from, const char* to) {
  for (std::atomic<const char*>& name : g_temporaries) {
    const char* expected = from;
    if (name.compare_exchange_strong(expected, to)) return;
  }
}

// A file's own; empty: the working directory.
fs::path directory_of(const std::string& path) {
  const fs::path directory = fs::path(path).parent_path();
  return directory.empty() ? "." : directory;
}

constexpr char kDescriptors[] = "/proc/self/fd";

// What a path names behind symbolic links, which need not be there yet; of what has been opened already, a name in
// kDescriptors.
fs::path behind_links(fs::path path) {
  std::error_code error;
  while (fs::is_symlink(path, error) && !fs::equivalent(directory_of(path), kDescriptors, error)) {
    path = path.parent_path() / fs::read_symlink(path);
  }
  return path;
}

// The open one that such a path is a name of; -1: none.
int descriptor_of(const fs::path& path) {
  std::error_code error;
  if (!fs::equivalent(directory_of(path), kDescriptors, error)) return -1;
  const int number = static_cast<int>(std::strtol(path.filename().c_str(), nullptr, 10));
  return number == STDOUT_FILENO ? g_standard_output : number;
}

}  // namespace

Bytes read_file(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) fail(path, errno);
  if (!S_ISREG(status.st_mode)) throw Failure(path, "not a file");
  const std::unique_ptr<std::FILE, decltype(&std::fclose)> file(std::fopen(path.c_str(), "rbe"),
                                                                std::fclose);
  if (!file) fail(path, errno);
  Bytes bytes(static_cast<size_t>(status.st_size));
  bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file.get()));
  if (std::ferror(file.get())) fail(path, errno);
  return bytes;
}

void set_standard_output(int descriptor) { g_standard_output = descriptor; }

Successor::Successor(const std::string& path) : path_(path) {
  struct stat status;
  const bool exists = stat(path.c_str(), &status) == 0;
  if (!exists && errno != ENOENT && errno != ENOTDIR) fail(path, errno);
  const fs::path target = behind_links(path);
  std::error_code error;
  if (const int descriptor = exists ? descriptor_of(target) : -1; descriptor >= 0) {
    descriptor_ = fcntl(descriptor, F_DUPFD_CLOEXEC, 3);
    own_path_ = kDescriptors + ("/" + std::to_string(descriptor_));
  } else if (exists && S_ISDIR(status.st_mode)) {
    fail(path, EISDIR);
  } else if (exists && !S_ISREG(status.st_mode)) {
    own_path_ = target;
    descriptor_ = open(own_path_.c_str(), O_WRONLY | O_CLOEXEC);
  } else {
    if (exists) before_ = status;
    target_ = target;
    // Where nothing may be looked up, not even the last one is there.
    for (fs::path missing = directory_of(target_);
         !fs::exists(missing, error) && missing != directory_of(missing);
         missing = directory_of(missing)) {
      made_.push_back(missing);
    }
    for (const std::string& directory : made_) exchange(nullptr, directory.c_str());
    fs::create_directories(directory_of(target_), error);
    if (error) {
      remove_directories();
      fail(directory_of(target_), error.value());
    }
    // Not mkostemp(), whose files do not obey the process's mask.
    std::random_device random;
    own_path_ = directory_of(target_) /
                (kTemporaryPrefix + std::to_string(random()) + std::to_string(random()));
    is_temporary_ = true;
    exchange(nullptr, own_path_.c_str());
    descriptor_ =
        open(own_path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, exists ? 0600 : 0666);
  }
  if (descriptor_ < 0) {
    const int reason = errno;
    exchange(own_path_.c_str(), nullptr);
    remove_directories();
    fail(path, reason);
  }
}

// Those that others have put something into meanwhile stay.
void Successor::remove_directories() const {
  for (const std::string& directory : made_) {
    rmdir(directory.c_str());
    exchange(directory.c_str(), nullptr);
  }
}

Successor::~Successor() {
  close(descriptor_);
  if (is_temporary_) unlink(own_path_.c_str());
  remove_directories();  // those that are empty
  exchange(own_path_.c_str(), nullptr);
}

void Successor::write(const Bytes& bytes) {
  if (!write_all(descriptor_, bytes.data(), bytes.size())) fail(path_, errno);
}

void Successor::take_over() {
  if (!is_temporary_) return;
  if (before_) {
    // Root may; others keep a file of their own.
    if (fchown(descriptor_, before_->st_uid, before_->st_gid) != 0) errno = 0;
    if (fchmod(descriptor_, before_->st_mode & 0777) != 0) fail(path_, errno);
  }
  if (fsync(descriptor_) != 0) fail(path_, errno);
  if (std::rename(own_path_.c_str(), target_.c_str()) != 0) fail(path_, errno);
  is_temporary_ = false;
  // So that the new name outlasts a power cut. The file is in place already: no reason to fail.
  const int directory = open(directory_of(target_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory < 0) return;
  fsync(directory);
  close(directory);
}

void write_file(const std::string& path, const Bytes& bytes) {
  Successor file(path);
  file.write(bytes);
  file.take_over();
}

bool write_all(int descriptor, const void* data, size_t size) {
  const auto* bytes = static_cast<const uint8_t*>(data);
  while (size > 0) {
    const ssize_t written = write(descriptor, bytes, size);
    if (written < 0 && errno != EINTR) return false;
    bytes += std::max<ssize_t>(0, written);
    size -= static_cast<size_t>(std::max<ssize_t>(0, written));
  }
  return true;
}

bool is_standard_output(const std::string& path) {
  const int descriptor = descriptor_of(behind_links(path));
  return descriptor >= 0 && descriptor == g_standard_output;
}

void check_outputs(const std::vector<std::string>& outputs,
                   const std::vector<std::string>& inputs) {
  std::error_code error;
  for (const std::string& output : outputs) {
    if (!fs::is_regular_file(output, error)) continue;
    for (const std::string& input : inputs) {
      if (fs::equivalent(output, input == "-" ? "/dev/stdin" : input, error)) {
        throw UsageError(output, "it would take the place of the input " + input);
      }
    }
  }
}

void remove_temporary_files() {
  for (size_t depth = 0; depth < kMostTemporaries; ++depth) {  // directories once they are empty
    for (const std::atomic<const char*>& name : g_temporaries) {
      if (const char* path = name.load()) std::remove(path);
    }
  }
}

std::string with_slash(const std::string& directory) {
  return directory.empty() || directory.back() == '/' ? directory : directory + "/";
}

std::string quoted(const std::string& word) {
  const char* const plain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-+=:,./@%";
  if (!word.empty() && word.find_first_not_of(plain) == std::string::npos) return word;
  std::string text = "'";
  for (const char c : word) text += c == '\'' ? "'\\''" : std::string(1, c);
  return text + "'";
}

std::string program_directory() {
  // What the system was told to start; /proc, which says so too, is not everywhere.
  std::error_code error;
  const auto* name = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
  const fs::path program = name ? fs::canonical(name, error) : fs::path();
  return error ? "" : program.parent_path().string();
}

}  // namespace kelnn_cli
