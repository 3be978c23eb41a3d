// SPDX-License-Identifier: Apache-2.0
// kelnn sign: keys, and signed model directories, which the kit and kelnn doctor --verify check.
#include <fcntl.h>
#include <fmt/format.h>
#include <sodium.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "files.h"
#include "kel_nn_kit_verify.h"
#include "kel_nn_signature_file.h"
#include "progress_bar.h"

namespace kelnn_cli {
namespace {

namespace fs = std::filesystem;

constexpr char kSecretLine[] = "kelnn secret key 1\n", kPublicLine[] = "kelnn public key 1\n";

std::string to_hex(const unsigned char* bytes, size_t count) {
  std::string text(2 * count + 1, '\0');
  sodium_bin2hex(text.data(), text.size(), bytes, count);
  text.pop_back();
  return text;
}

// The line after the one that says what the file is.
std::string read_key(const std::string& path, const std::string& first_line, size_t bytes) {
  const Bytes content = read_file(path);
  const std::string text(content.begin(), content.end());
  if (text.size() != first_line.size() + 2 * bytes + 1 ||
      text.compare(0, first_line.size(), first_line) != 0) {
    throw Failure(
        path, "not a " + first_line.substr(0, first_line.size() - 3) + " of kelnn sign --new-key");
  }
  return text.substr(first_line.size(), 2 * bytes);
}

// A key is never written over.
void write_new(const std::string& path, const std::string& text, mode_t mode) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  if (file < 0) throw Failure(path, std::strerror(errno));
  const bool is_whole = write_all(file, text.data(), text.size()) && fsync(file) == 0;
  const int error = errno;
  if (close(file) == 0 && is_whole) return;
  unlink(path.c_str());
  throw Failure(path, is_whole ? "cannot be written" : std::strerror(error));
}

void make_keys(const std::string& path) {
  unsigned char public_key[crypto_sign_PUBLICKEYBYTES], secret_key[crypto_sign_SECRETKEYBYTES];
  crypto_sign_keypair(public_key, secret_key);
  const std::string pair = path + ".pub";
  if (fs::exists(pair)) throw Failure(pair, "File exists");
  std::string secret = kSecretLine + to_hex(secret_key, sizeof(secret_key)) + "\n";
  sodium_memzero(secret_key, sizeof(secret_key));
  write_new(path, secret, 0600);
  sodium_memzero(secret.data(), secret.size());
  try {
    write_new(pair, kPublicLine + to_hex(public_key, sizeof(public_key)) + "\n", 0644);
  } catch (...) {
    unlink(path.c_str());
    throw;
  }
}

// What is signed: docs/security.md.
std::string list_of(const std::string& directory, int64_t* count) {
  std::vector<std::string> names;
  std::error_code error;
  for (const fs::directory_entry& entry : fs::directory_iterator(directory, error)) {
    const std::string name = entry.path().filename().string();
    if (name == KEL_NN_KIT_SIGNATURE_FILE) continue;
    if (entry.is_symlink() || !entry.is_regular_file())  // what a link leads to can change later
      throw Failure(directory + name, "only files can be signed");
    if (name.find('\n') != std::string::npos)
      throw Failure(directory + name, "a name of two lines");
    names.push_back(name);
  }
  if (error) throw Failure(directory, error.message());
  if (names.empty()) throw Failure(directory, "there is nothing to sign");
  std::sort(names.begin(), names.end());
  std::string list = kelnn::kSignatureFirstLine;
  ProgressBar progress("sign", static_cast<int64_t>(names.size()), "files");
  for (size_t i = 0; i < names.size(); ++i) {
    const std::string& name = names[i];
    progress.show(static_cast<int64_t>(i));
    const Bytes content = read_file(directory + name);
    unsigned char digest[crypto_hash_sha256_BYTES];
    crypto_hash_sha256(digest, content.data(), content.size());
    list += fmt::format("{} {} {}\n", content.size(), to_hex(digest, sizeof(digest)), name);
  }
  *count = static_cast<int64_t>(names.size());
  if (list.size() + kelnn::kSignatureLineSize >= kelnn::kMaxSignatureFile) {
    throw Failure(directory, fmt::format("too many files: their list may have {} bytes at most",
                                         kelnn::kMaxSignatureFile - kelnn::kSignatureLineSize - 1));
  }
  return list;
}

std::string signature_of(const std::string& list, const std::string& key_path) {
  struct stat status;
  if (stat(key_path.c_str(), &status) == 0 && (status.st_mode & 077) != 0) {
    throw Failure(key_path,
                  "others may read or write the secret key: chmod 600 " + quoted(key_path));
  }
  std::string hex = read_key(key_path, kSecretLine, crypto_sign_SECRETKEYBYTES);
  unsigned char key[crypto_sign_SECRETKEYBYTES], signature[crypto_sign_BYTES];
  const int bad =
      sodium_hex2bin(key, sizeof(key), hex.data(), hex.size(), nullptr, nullptr, nullptr);
  sodium_memzero(hex.data(), hex.size());
  if (bad) throw Failure(key_path, "not a secret key");
  crypto_sign_detached(signature, nullptr, reinterpret_cast<const unsigned char*>(list.data()),
                       list.size(), key);
  sodium_memzero(key, sizeof(key));
  return kelnn::kSignatureLastWord + to_hex(signature, sizeof(signature)) + "\n";
}

}  // namespace

std::string signature_problem(const std::string& directory, const std::string& key_path) {
  const std::string key = read_key(key_path, kPublicLine, crypto_sign_PUBLICKEYBYTES);
  char problem[512] = "";
  const int result =
      kel_nn_kit_verify_models(directory.c_str(), key.c_str(), problem, sizeof(problem));
  return result == 0 ? "" : problem;
}

bool sign(const SignOptions& options, Reporter* reporter) {
  if (sodium_init() < 0) throw Failure("libsodium does not start");
  if (!options.new_key.empty()) {
    make_keys(options.new_key);
    reporter->report({{"path", options.new_key}, {"public_key", options.new_key + ".pub"}},
                     line("{path}: keep it to yourself; {public_key}: what verifies\n"));
    return true;
  }
  const std::string directory = options.root.empty() ? "./" : with_slash(options.root);
  int64_t count = 0;
  const std::string list = list_of(directory, &count),
                    text = list + signature_of(list, options.key);
  const std::string path = directory + KEL_NN_KIT_SIGNATURE_FILE;
  write_file(path, Bytes(text.begin(), text.end()));
  reporter->report({{"path", path}, {"files", count}}, line("{path}: {files} files signed\n"));
  return true;
}

}  // namespace kelnn_cli
