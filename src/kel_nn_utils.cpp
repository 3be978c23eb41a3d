// SPDX-License-Identifier: Apache-2.0
// Version, model root directory, and model files made plain.
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>

#include "kel_nn.h"
#include "kel_nn_log.h"

float feature[256];

namespace {

char* g_model_root_dir = nullptr;

// Its own inverse with a key of ASCII: 0 and the key's byte stay, and no other byte becomes one of
// them. The key's byte is compared as a signed number with the unsigned one of the model, so a key's
// byte of 0x80 or more is never equal: it becomes 0 and does not come back.
void descramble(uint8_t* model, size_t encode_size, const char* key) {
  const size_t key_length = encode_size ? std::strlen(key) : 0;
  for (size_t i = 0, k = 0; i < encode_size; ++i, k = k + 1 == key_length ? 0 : k + 1) {
    const int key_byte = static_cast<signed char>(key[k]);  // NOLINT(bugprone-signed-char-misuse)
    if (model[i] != 0 && model[i] != key_byte) model[i] = static_cast<uint8_t>(model[i] ^ key_byte);
  }
}

bool is_usable(const char* key, size_t encode_size) { return encode_size == 0 || (key && *key); }

// Opening a pipe would wait for its writer, and a directory opens but has no length.
bool is_regular_or_missing(const char* path) {
  struct stat status;
  return stat(path, &status) != 0 || S_ISREG(status.st_mode);
}

// The length of a file that is open at its start, or -1.
long file_length(FILE* file) {
  if (std::fseek(file, 0, SEEK_END) != 0) return -1;
  const long length = std::ftell(file);
  return std::fseek(file, 0, SEEK_SET) == 0 ? length : -1;
}

// The model behind the header, `model_size` bytes, still scrambled; null when they cannot all be
// read.
uint8_t* read_model(FILE* file, size_t model_size, size_t encode_size) {
  uint8_t* model = static_cast<uint8_t*>(std::malloc(model_size ? model_size : 1));
  // The header is read into the model's place and then overwritten: it has at most half its size.
  if (model && std::fread(model, 1, encode_size, file) == encode_size &&
      std::fread(model, 1, model_size, file) == model_size) {
    return model;
  }
  std::free(model);
  return nullptr;
}

}  // namespace

int kel_nn_print_version() {
  char banner[50] = {};
  const int length =
      std::snprintf(banner, sizeof(banner), "* KELNN v%d.%d.%d %s *\n", KEL_NN_VERSION_MAJOR,
                    KEL_NN_VERSION_MINOR, KEL_NN_VERSION_PATCH, KEL_NN_BUILD_DATE);
  const int width = length - 1;  // without the newline
  for (int i = 0; i < width; ++i) std::putchar('*');
  std::printf("\n%s", banner);
  for (int i = 0; i < width; ++i) std::putchar('*');
  return std::putchar('\n');
}

int kel_nn_set_model_root_dir(const char* dir) {
  if (!dir) return -1;
  char* copy = strdup(dir);  // before the old one goes: it may be `dir`
  if (!copy) return -1;
  std::free(g_model_root_dir);
  g_model_root_dir = copy;
  return 0;
}

const char* kel_nn_get_model_root_dir() { return g_model_root_dir; }

size_t kel_nn_model_xor_decode(const uint8_t* encode_buf, uint8_t** decode_buf, size_t buf_size,
                               size_t encode_size, const char* key) {
  KEL_NN_FAIL_IF(!encode_buf, 0, "Input encode buffer is NULL!");
  KEL_NN_FAIL_IF(!decode_buf || *decode_buf, 0, "Output decode buffer is not NULL!");
  // Halves and thirds instead of multiples, here and below: a multiple of a huge size would wrap.
  KEL_NN_FAIL_IF(buf_size / 2 < encode_size, 0, "Invalid buf_size and encode_size, %zu vs %zu",
                 buf_size, encode_size);
  KEL_NN_FAIL_IF(!is_usable(key, encode_size), 0, "Invalid key.");

  const size_t model_size = buf_size - encode_size;
  uint8_t* model = static_cast<uint8_t*>(std::malloc(model_size ? model_size : 1));
  KEL_NN_FAIL_IF(!model, 0, "Out of memory.");
  std::memcpy(model, encode_buf + encode_size, model_size);
  descramble(model, encode_size, key);
  *decode_buf = model;
  return model_size;
}

size_t kel_nn_model_xor_decode_from_file(const char* path, uint8_t** decode_buf, size_t encode_size,
                                         const char* key) {
  KEL_NN_FAIL_IF(!path, 0, "NULL file path!");
  KEL_NN_FAIL_IF(!decode_buf || *decode_buf, 0, "Output decode buffer is not NULL!");
  KEL_NN_FAIL_IF(!is_regular_or_missing(path), 0, "Read file error");
  FILE* file = std::fopen(path, "r");
  KEL_NN_FAIL_IF(!file, 0, "Read file %s error!", path);

  const long length = file_length(file);
  const size_t file_size = length > 0 ? static_cast<size_t>(length) : 0;
  // A third, not a half as for a buffer. The size shown is the model's, 0 for a file shorter than
  // its header.
  const size_t model_size = file_size > encode_size ? file_size - encode_size : 0;
  const bool too_short = file_size / 3 < encode_size;
  const bool usable_key = is_usable(key, encode_size);
  uint8_t* model = nullptr;
  if (length >= 0 && !too_short && usable_key) model = read_model(file, model_size, encode_size);
  std::fclose(file);

  KEL_NN_FAIL_IF(length < 0, 0, "Read file error");
  KEL_NN_FAIL_IF(too_short, 0, "Invalid buf_size and encode_size, %zu vs %zu", model_size,
                 encode_size);
  KEL_NN_FAIL_IF(!usable_key, 0, "Invalid key.");
  KEL_NN_FAIL_IF(!model, 0, "Read file error");
  descramble(model, encode_size, key);
  *decode_buf = model;
  return model_size;
}
