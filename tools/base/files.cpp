// SPDX-License-Identifier: Apache-2.0
#include "files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "report.h"

namespace kelnn_cli {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const std::string& path, int error) {
  throw Failure(path, std::strerror(error));
}

mode_t default_mode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// A file beside `path` that is going to take its place, and vanishes when it does not.
class Successor {
 public:
  explicit Successor(const std::string& path)
      : path_(path), own_path_((fs::path(path).parent_path() / ".kelnn-XXXXXX").string()) {
    descriptor_ = mkostemp(own_path_.data(), O_CLOEXEC);
    if (descriptor_ < 0) fail(path_, errno);
  }
  ~Successor() {
    if (descriptor_ >= 0) close(descriptor_);
    if (!own_path_.empty()) unlink(own_path_.c_str());
  }
  Successor(const Successor&) = delete;
  Successor& operator=(const Successor&) = delete;

  void write(const Bytes& bytes) {
    for (size_t done = 0; done < bytes.size();) {
      const ssize_t written = ::write(descriptor_, bytes.data() + done, bytes.size() - done);
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) fail(path_, errno);
      done += static_cast<size_t>(written);
    }
  }
  void take_over() {
    if (fchmod(descriptor_, default_mode()) != 0 || fsync(descriptor_) != 0) fail(path_, errno);
    if (std::rename(own_path_.c_str(), path_.c_str()) != 0) fail(path_, errno);
    own_path_.clear();
  }

 private:
  std::string path_, own_path_;
  int descriptor_;
};

// So that the new name outlasts a power cut. The file is in place already: no reason to fail.
void sync_directory(const fs::path& directory) {
  const int descriptor = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return;
  fsync(descriptor);
  close(descriptor);
}

}  // namespace

Bytes read_file(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) fail(path, errno);
  if (!S_ISREG(status.st_mode)) throw Failure(path, "not a file");
  std::ifstream file(path, std::ios::binary);
  Bytes bytes(static_cast<size_t>(status.st_size));
  file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (!file) throw Failure(path, "cannot be read");
  return bytes;
}

void write_file(const std::string& path, const Bytes& bytes) {
  fs::path directory = fs::path(path).parent_path();
  if (directory.empty()) directory = ".";
  std::error_code error;
  fs::create_directories(directory, error);
  if (error) fail(directory.string(), error.value());
  if (fs::is_directory(path, error)) fail(path, EISDIR);
  Successor file(path);
  file.write(bytes);
  file.take_over();
  sync_directory(directory);
}

std::string with_slash(const std::string& directory) {
  return directory.empty() || directory.back() == '/' ? directory : directory + "/";
}

}  // namespace kelnn_cli
