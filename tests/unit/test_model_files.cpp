// The model root directory, and descrambling from memory and from files.
#include <sys/stat.h>

#include <cstdlib>
#include <memory>

#include "support/library_test.h"

namespace {

using kelnn_test::IsLocatedLine;
using kelnn_test::LibraryTest;
using kelnn_test::TemporaryDirectory;

constexpr char kPath[] = "src/kel_nn_utils.cpp";

struct Decoded {
  size_t returned;
  bool stored;
  std::string model;
};

Decoded take(size_t returned, uint8_t* buffer) {
  Decoded decoded = {returned, buffer != nullptr, std::string()};
  if (buffer) decoded.model.assign(reinterpret_cast<char*>(buffer), returned);
  std::free(buffer);
  return decoded;
}
Decoded decode(const std::string& file, size_t encode_size, const char* key) {
  uint8_t* buffer = nullptr;
  const auto* bytes = reinterpret_cast<const uint8_t*>(file.data());
  const size_t n = kel_nn_model_xor_decode(bytes, &buffer, file.size(), encode_size, key);
  return take(n, buffer);
}
Decoded decode_file(const std::string& path, size_t encode_size, const char* key) {
  uint8_t* buffer = nullptr;
  const size_t n = kel_nn_model_xor_decode_from_file(path.c_str(), &buffer, encode_size, key);
  return take(n, buffer);
}

class ModelFiles : public LibraryTest {
 protected:
  void expect_error(const std::string& function, const std::string& message) {
    EXPECT_THAT(printed(), IsLocatedLine("31", kPath, function, "[Error]" + message));
  }
  void expect_memory_error(const std::string& message) {
    expect_error("kel_nn_model_xor_decode", message);
  }
  void expect_file_error(const std::string& message) {
    expect_error("kel_nn_model_xor_decode_from_file", message);
  }
  TemporaryDirectory directory_;
};

TEST_F(ModelFiles, RootDirectoryIsAPrivateCopy) {
  char text[] = "models/";
  EXPECT_EQ(kel_nn_set_model_root_dir(text), 0);
  text[0] = 'X';
  EXPECT_STREQ(kel_nn_get_model_root_dir(), "models/");
  EXPECT_EQ(kel_nn_set_model_root_dir(nullptr), -1);
  EXPECT_STREQ(kel_nn_get_model_root_dir(), "models/");
  EXPECT_EQ(kel_nn_set_model_root_dir(kel_nn_get_model_root_dir()), 0);
  EXPECT_STREQ(kel_nn_get_model_root_dir(), "models/");
  EXPECT_EQ(printed(), "");
}

// Header "hhhhhh", then six scrambled bytes with the key "AB" (0x41 0x42), then plain ones.
TEST_F(ModelFiles, DescramblesTheFirstBytesBehindTheHeader) {
  const std::string scrambled(
      "\x00\x42\x41\x03\x01\x00"
      "ABplain.",
      14);
  // 0 stays 0; 0x42 ^ 0x42 would be 0, so it stays; 0x41 equals its key byte; 3 ^ 0x42 = 0x41.
  const std::string expected(
      "\x00\x42\x41\x41\x40\x00"
      "ABplain.",
      14);
  EXPECT_EQ(decode("hhhhhh" + scrambled, 6, "AB").model, expected);
  EXPECT_EQ(decode_file(directory_.write("m", "hhhhhh" + scrambled), 6, "AB").model, expected);
  EXPECT_EQ(printed(), "");
}

TEST_F(ModelFiles, IsItsOwnInverse) {
  std::string all_bytes;
  for (int i = 0; i < 512; ++i) all_bytes += static_cast<char>(i);
  const std::string header(512, 'h');
  const std::string once = decode(header + all_bytes, 512, "TXlTYW1w").model;
  EXPECT_NE(once, all_bytes);
  EXPECT_EQ(decode(header + once, 512, "TXlTYW1w").model, all_bytes);
}

// The key's bytes are signed numbers: one of 0x80 or more never equals the model's unsigned byte.
TEST_F(ModelFiles, AByteEqualToAHighKeyByteBecomesZero) {
  EXPECT_EQ(decode("h\xC3", 1, "\xC3").model, std::string(1, '\0'));
  EXPECT_EQ(decode("h\x43", 1, "\x43").model, "\x43");
}

TEST_F(ModelFiles, MemoryNeedsTwiceTheHeader) {
  EXPECT_EQ(decode("hhhhaaaa", 4, "k").returned, 4u);
  EXPECT_EQ(printed(), "");
  const Decoded short_by_one = decode("hhhhaaa", 4, "k");
  EXPECT_EQ(short_by_one.returned, 0u);
  EXPECT_FALSE(short_by_one.stored);
  expect_memory_error("Invalid buf_size and encode_size, 7 vs 4");
}

TEST_F(ModelFiles, AFileNeedsThreeTimesTheHeader) {
  EXPECT_EQ(decode_file(directory_.write("fits", "hhhhaaaabbbb"), 4, "k").model.size(), 8u);
  EXPECT_EQ(printed(), "");
  EXPECT_EQ(decode_file(directory_.write("short", "hhhhaaaabbb"), 4, "k").returned, 0u);
  expect_file_error("Invalid buf_size and encode_size, 7 vs 4");
  EXPECT_EQ(decode_file(directory_.write("tiny", "hh"), 4, "k").returned, 0u);
  expect_file_error("Invalid buf_size and encode_size, 0 vs 4");
  EXPECT_EQ(decode_file(directory_.write("none", ""), 1000, "k").returned, 0u);
  expect_file_error("Invalid buf_size and encode_size, 0 vs 1000");
}

TEST_F(ModelFiles, SizesThatWouldWrapAreTooLarge) {
  const size_t half = static_cast<size_t>(-1) / 2 + 1;  // twice this is 0
  EXPECT_EQ(decode("hhhh", half, "k").returned, 0u);
  expect_memory_error("Invalid buf_size and encode_size, 4 vs " + std::to_string(half));
  const size_t third = static_cast<size_t>(-1) / 3 + 1;  // three times this is below 3
  EXPECT_EQ(decode_file(directory_.write("m", "hhhh"), third, "k").returned, 0u);
  expect_file_error("Invalid buf_size and encode_size, 0 vs " + std::to_string(third));
}

TEST_F(ModelFiles, ArgumentsAreCheckedInOrder) {
  uint8_t byte = 0;
  uint8_t* taken = &byte;
  uint8_t* empty = nullptr;
  EXPECT_EQ(kel_nn_model_xor_decode(nullptr, nullptr, 0, 1, "k"), 0u);
  expect_memory_error("Input encode buffer is NULL!");
  EXPECT_EQ(kel_nn_model_xor_decode(&byte, nullptr, 0, 1, "k"), 0u);
  expect_memory_error("Output decode buffer is not NULL!");
  EXPECT_EQ(kel_nn_model_xor_decode(&byte, &taken, 0, 1, "k"), 0u);
  expect_memory_error("Output decode buffer is not NULL!");
  EXPECT_EQ(taken, &byte);

  EXPECT_EQ(kel_nn_model_xor_decode_from_file(nullptr, nullptr, 1, "k"), 0u);
  expect_file_error("NULL file path!");
  EXPECT_EQ(kel_nn_model_xor_decode_from_file("missing", nullptr, 1, "k"), 0u);
  expect_file_error("Output decode buffer is not NULL!");
  EXPECT_EQ(kel_nn_model_xor_decode_from_file("missing", &taken, 1, "k"), 0u);
  expect_file_error("Output decode buffer is not NULL!");
  EXPECT_EQ(kel_nn_model_xor_decode_from_file("missing", &empty, 1, nullptr), 0u);
  expect_file_error("Read file missing error!");
}

TEST_F(ModelFiles, AKeyIsNeededOnlyToDescramble) {
  for (const char* key : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_EQ(decode("hhaa", 2, key).returned, 0u);
    expect_memory_error("Invalid key.");
    EXPECT_EQ(decode_file(directory_.write("m", "hhaabb"), 2, key).returned, 0u);
    expect_file_error("Invalid key.");
    EXPECT_EQ(decode("aa", 0, key).model, "aa");
  }
}

TEST_F(ModelFiles, OnlyRegularFilesAreRead) {
  ASSERT_EQ(mkfifo(directory_.file("pipe").c_str(), 0600), 0);
  for (const std::string& path :
       {directory_.with_slash(), directory_.file("pipe"), std::string("/dev/zero")}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(decode_file(path, 1, "k").returned, 0u);
    expect_file_error("Read file error");
  }
}

}  // namespace
