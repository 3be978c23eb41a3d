// SPDX-License-Identifier: Apache-2.0
#include "files.h"

#include <fcntl.h>
#include <sys/auxv.h>
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

// A file's own; empty: the working directory.
fs::path directory_of(const std::string& path) {
  const fs::path directory = fs::path(path).parent_path();
  return directory.empty() ? "." : directory;
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

Successor::Successor(const std::string& path) : path_(path) {
  std::error_code error;
  fs::create_directories(directory_of(path), error);
  if (error) fail(directory_of(path), error.value());
  if (fs::is_directory(path, error)) fail(path, EISDIR);
  own_path_ = directory_of(path) / ".kelnn-XXXXXX";
  descriptor_ = mkostemp(own_path_.data(), O_CLOEXEC);
  if (descriptor_ < 0) fail(path, errno);
}

Successor::~Successor() {
  close(descriptor_);
  if (!own_path_.empty()) unlink(own_path_.c_str());
}

void Successor::write(const Bytes& bytes) {
  for (size_t done = 0; done < bytes.size();) {
    const ssize_t written = ::write(descriptor_, bytes.data() + done, bytes.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) fail(path_, errno);
    done += static_cast<size_t>(written);
  }
}

void Successor::take_over() {
  if (fchmod(descriptor_, default_mode()) != 0 || fsync(descriptor_) != 0) fail(path_, errno);
  if (std::rename(own_path_.c_str(), path_.c_str()) != 0) fail(path_, errno);
  own_path_.clear();
  // So that the new name outlasts a power cut. The file is in place already: no reason to fail.
  const int directory = open(directory_of(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory < 0) return;
  fsync(directory);
  close(directory);
}

void write_file(const std::string& path, const Bytes& bytes) {
  Successor file(path);
  file.write(bytes);
  file.take_over();
}

std::string with_slash(const std::string& directory) {
  return directory.empty() || directory.back() == '/' ? directory : directory + "/";
}

std::string program_directory() {
  // What the system was told to start; /proc, which says so too, is not everywhere.
  std::error_code error;
  const auto* name = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
  const fs::path program = name ? fs::canonical(name, error) : fs::path();
  return error ? "" : program.parent_path().string();
}

}  // namespace kelnn_cli
