// SPDX-License-Identifier: Apache-2.0
// Checks signed directories. Nothing of their list is believed before its signature has been checked.
#include "kel_nn_kit_verify.h"

#include <dirent.h>
#include <sodium.h>
#include <stdarg.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "kel_nn_signature_file.h"

namespace {

using namespace kelnn;

constexpr size_t kMaxPath = 4096;

struct Problem {
  char* text;
  size_t size;
};
__attribute__((format(printf, 2, 3))) int fail(const Problem& problem, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  if (problem.text && problem.size > 0) vsnprintf(problem.text, problem.size, format, arguments);
  va_end(arguments);
  return -1;
}

bool join(const char* directory, const char* name, size_t name_size, char* path) {
  const int size =
      snprintf(path, kMaxPath, "%s/%.*s", directory, static_cast<int>(name_size), name);
  return size > 0 && static_cast<size_t>(size) < kMaxPath;
}

bool from_hex(const char* text, size_t size, unsigned char* bytes, size_t count) {
  size_t read = 0;
  return size == 2 * count &&
         sodium_hex2bin(bytes, count, text, size, nullptr, &read, nullptr) == 0 && read == count;
}

// One line of the list.
struct Line {
  unsigned long long size;
  unsigned char digest[crypto_hash_sha256_BYTES];
  const char* name;
  size_t name_size;
};
// Takes it from the front of the list.
bool take_line(const char** at, const char* end, Line* line) {
  const char* const newline =
      static_cast<const char*>(std::memchr(*at, '\n', static_cast<size_t>(end - *at)));
  if (!newline || **at < '0' || **at > '9') return false;
  char* next = nullptr;
  line->size = strtoull(*at, &next, 10);
  constexpr size_t kDigits = 2 * crypto_hash_sha256_BYTES;
  if (newline - next < static_cast<ptrdiff_t>(kDigits + 3) || next[0] != ' ' ||
      next[kDigits + 1] != ' ' ||
      !from_hex(next + 1, kDigits, line->digest, sizeof(line->digest))) {
    return false;
  }
  line->name = next + kDigits + 2;
  line->name_size = static_cast<size_t>(newline - line->name);
  *at = newline + 1;
  return !std::memchr(line->name, '/', line->name_size) &&
         !std::memchr(line->name, '\0', line->name_size);
}

bool digest_of(const char* path, unsigned char* digest) {
  std::FILE* const file = std::fopen(path, "rb");
  if (!file) return false;
  crypto_hash_sha256_state state;
  crypto_hash_sha256_init(&state);
  unsigned char block[4096];
  for (size_t n; (n = std::fread(block, 1, sizeof(block), file)) > 0;)
    crypto_hash_sha256_update(&state, block, n);
  const bool is_whole = !std::ferror(file);
  std::fclose(file);
  crypto_hash_sha256_final(&state, digest);
  return is_whole;
}

int check_files(const char* directory, const char* list, const char* end, const Problem& problem) {
  char path[kMaxPath];
  Line line;
  for (const char* at = list; at < end;) {
    if (!take_line(&at, end, &line))
      return fail(problem, "%s: not understood", KEL_NN_KIT_SIGNATURE_FILE);
    const int size = static_cast<int>(line.name_size);
    struct stat status;
    unsigned char digest[crypto_hash_sha256_BYTES];
    if (!join(directory, line.name, line.name_size, path) || lstat(path, &status) != 0) {
      return fail(problem, "%.*s: is missing", size, line.name);
    }
    if (!S_ISREG(status.st_mode) || static_cast<unsigned long long>(status.st_size) != line.size ||
        !digest_of(path, digest) || sodium_memcmp(digest, line.digest, sizeof(digest)) != 0) {
      return fail(problem, "%.*s: has been changed", size, line.name);
    }
  }
  DIR* const files = opendir(directory);
  if (!files) return fail(problem, "%s: cannot be listed", directory);
  int result = 0;
  while (const struct dirent* entry = readdir(files)) {
    const char* const name = entry->d_name;
    bool is_listed = !std::strcmp(name, ".") || !std::strcmp(name, "..") ||
                     !std::strcmp(name, KEL_NN_KIT_SIGNATURE_FILE);
    for (const char* at = list; at < end && !is_listed && take_line(&at, end, &line);) {
      is_listed =
          std::strlen(name) == line.name_size && std::memcmp(name, line.name, line.name_size) == 0;
    }
    if (!is_listed) result = fail(problem, "%s: has been added", name);
  }
  closedir(files);
  return result;
}

int check_list(const char* directory, const char* list, size_t size, const unsigned char* key,
               const Problem& problem) {
  unsigned char signature[crypto_sign_BYTES];
  if (size < sizeof(kSignatureFirstLine) - 1 + kSignatureLineSize)
    return fail(problem, "%s: cut off", KEL_NN_KIT_SIGNATURE_FILE);
  const char* const last = list + size - kSignatureLineSize;
  const bool is_signed =
      last[kSignatureLineSize - 1] == '\n' &&
      std::memcmp(last, kSignatureLastWord, sizeof(kSignatureLastWord) - 1) == 0 &&
      from_hex(last + sizeof(kSignatureLastWord) - 1, 2 * sizeof(signature), signature,
               sizeof(signature));
  if (!is_signed ||
      crypto_sign_verify_detached(signature, reinterpret_cast<const unsigned char*>(list),
                                  static_cast<size_t>(last - list), key) != 0) {
    return fail(problem, "%s: not signed by this key, or changed since", KEL_NN_KIT_SIGNATURE_FILE);
  }
  if (std::memcmp(list, kSignatureFirstLine, sizeof(kSignatureFirstLine) - 1) != 0) {
    return fail(problem, "%s: of another version", KEL_NN_KIT_SIGNATURE_FILE);
  }
  return check_files(directory, list + sizeof(kSignatureFirstLine) - 1, last, problem);
}

}  // namespace

int kel_nn_kit_verify_models(const char* directory, const char* public_key, char* text,
                             size_t size) {
  const Problem problem = {text, size};
  unsigned char key[crypto_sign_PUBLICKEYBYTES];
  if (!directory || !public_key) return fail(problem, "no directory or no key");
  if (sodium_init() < 0) return fail(problem, "libsodium does not start");
  if (!from_hex(public_key, std::strlen(public_key), key, sizeof(key)))
    return fail(problem, "the key is none");
  char path[kMaxPath];
  std::FILE* const file =
      join(directory, KEL_NN_KIT_SIGNATURE_FILE, std::strlen(KEL_NN_KIT_SIGNATURE_FILE), path)
          ? std::fopen(path, "rb")
          : nullptr;
  if (!file)
    return fail(problem, "%s: is missing: the directory is not signed", KEL_NN_KIT_SIGNATURE_FILE);
  char* const list = static_cast<char*>(std::malloc(kMaxSignatureFile));
  const size_t count = list ? std::fread(list, 1, kMaxSignatureFile, file) : 0;
  std::fclose(file);
  int result = -1;
  if (!list) {
    fail(problem, "out of memory");
  } else if (count == kMaxSignatureFile) {
    fail(problem, "%s: too long", KEL_NN_KIT_SIGNATURE_FILE);
  } else {
    result = check_list(directory, list, count, key, problem);
  }
  std::free(list);
  return result;
}
