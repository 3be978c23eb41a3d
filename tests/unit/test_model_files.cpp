// SPDX-License-Identifier: Apache-2.0
// The model root directory, and descrambling from memory and from files.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "support/allocations.h"
#include "support/library_test.h"

namespace {

using kelnn_test::LibraryTest;
using kelnn_test::live_blocks;
using kelnn_test::TemporaryDirectory;

// The model, and "(none)" when nothing is returned and nothing stored.
template <typename Decode>
std::string decoded(Decode decode) {
  uint8_t* buffer = nullptr;
  const size_t size = decode(&buffer);
  EXPECT_TRUE(buffer || size == 0);
  const std::string model = buffer ? std::string(reinterpret_cast<char*>(buffer), size) : "(none)";
  std::free(buffer);
  return model;
}
std::string decode(const std::string& file, size_t encode_size, const char* key) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(file.data());
  return decoded([&](uint8_t** out) {
    return kel_nn_model_xor_decode(bytes, out, file.size(), encode_size, key);
  });
}
std::string decode_file(const std::string& path, size_t encode_size, const char* key) {
  return decoded([&](uint8_t** out) {
    return kel_nn_model_xor_decode_from_file(path.c_str(), out, encode_size, key);
  });
}

class ModelFiles : public LibraryTest {
 protected:
  // From memory, or the same from a file.
  void expect_memory_error(const std::string& message, const std::string& from = "") {
    expect_error("src/kel_nn_utils.cpp", "kel_nn_model_xor_decode" + from, message);
  }
  void expect_file_error(const std::string& message) { expect_memory_error(message, "_from_file"); }
  TemporaryDirectory directory_;
};

TEST_F(ModelFiles, RootDirectoryIsAPrivateCopy) {
  char text[] = "models/";
  EXPECT_EQ(kel_nn_set_model_root_dir(text), 0);
  live_before_ = live_blocks();  // from now on there is one
  text[0] = 'X';
  EXPECT_STREQ(kel_nn_get_model_root_dir(), "models/");
  EXPECT_EQ(kel_nn_set_model_root_dir(nullptr), -1);
  EXPECT_STREQ(kel_nn_get_model_root_dir(), "models/");
  EXPECT_EQ(kel_nn_set_model_root_dir(kel_nn_get_model_root_dir()), 0);
  EXPECT_STREQ(kel_nn_get_model_root_dir(), "models/");
  {
    const kelnn_test::NoMemory none;
    EXPECT_EQ(kel_nn_set_model_root_dir("other/"), -1);
  }
  EXPECT_STREQ(kel_nn_get_model_root_dir(), "models/");
  EXPECT_EQ(printed(), "");
}

// 0 stays 0; 0x42 ^ 0x42 would be 0, so it stays; 0x41 equals its key byte; 3 ^ 0x42 = 0x41. What is as far behind the
// header as that is long stays, too.
TEST_F(ModelFiles, DescramblesTheFirstBytesBehindTheHeader) {
  const std::string tail("\0ABplain.", 9);
  const std::string scrambled = std::string("\0\x42\x41\x03\x01", 5) + tail;
  const std::string expected = std::string("\0\x42\x41\x41\x40", 5) + tail;
  EXPECT_EQ(decode("hhhhhh" + scrambled, 6, "AB"), expected);
  EXPECT_EQ(decode_file(directory_.write("m", "hhhhhh" + scrambled), 6, "AB"), expected);
  EXPECT_EQ(printed(), "");
  std::string all_bytes;
  for (int i = 0; i < 512; ++i) all_bytes += static_cast<char>(i);
  const std::string header(512, 'h'), once = decode(header + all_bytes, 512, "TXlTYW1w");
  EXPECT_NE(once, all_bytes);
  EXPECT_EQ(decode(header + once, 512, "TXlTYW1w"), all_bytes);
  // The key's bytes are signed numbers: one of 0x80 or more never equals the model's unsigned byte.
  EXPECT_EQ(decode("h\xC3", 1, "\xC3"), std::string(1, '\0'));
  EXPECT_EQ(decode("h\x43", 1, "\x43"), "\x43");
}

// Memory twice the header, a file three times; no product of sizes wraps.
TEST_F(ModelFiles, NeedTwiceOrThreeTimesTheHeader) {
  const size_t half = static_cast<size_t>(-1) / 2 + 1;   // twice this is 0
  const size_t third = static_cast<size_t>(-1) / 3 + 1;  // three times this is below 3
  EXPECT_EQ(decode("hhhhaaaa", 4, "k").size(), 4u);
  EXPECT_EQ(decode_file(directory_.write("fits", "hhhhaaaabbbb"), 4, "k").size(), 8u);
  EXPECT_EQ(printed(), "");
  const auto sizes = [](size_t size, size_t encode_size) {
    return "Invalid buf_size and encode_size, " + std::to_string(size) + " vs " +
           std::to_string(encode_size);
  };
  for (const auto& [content, encode_size] : {std::pair{"hhhhaaa", size_t{4}}, {"hhhh", half}}) {
    EXPECT_EQ(decode(content, encode_size, "k"), "(none)");
    expect_memory_error(sizes(std::strlen(content), encode_size));
  }
  const struct {
    const char* content;
    size_t encode_size, told;
  } files[] = {{"hhhhaaaabbb", 4, 7}, {"hh", 4, 0}, {"", 1000, 0}, {"hhhh", third, 0}};
  for (const auto& c : files) {
    EXPECT_EQ(decode_file(directory_.write("m", c.content), c.encode_size, "k"), "(none)");
    expect_file_error(sizes(c.told, c.encode_size));
  }
}

TEST_F(ModelFiles, ArgumentsAreCheckedInOrder) {
  uint8_t byte = 0;
  uint8_t* taken = &byte;
  uint8_t* empty = nullptr;
  const char not_null[] = "Output decode buffer is not NULL!";
  EXPECT_EQ(kel_nn_model_xor_decode(nullptr, nullptr, 0, 1, "k"), 0u);
  expect_memory_error("Input encode buffer is NULL!");
  EXPECT_EQ(kel_nn_model_xor_decode_from_file(nullptr, nullptr, 1, "k"), 0u);
  expect_file_error("NULL file path!");
  for (uint8_t** wrong : std::initializer_list<uint8_t**>{nullptr, &taken}) {
    EXPECT_EQ(kel_nn_model_xor_decode(&byte, wrong, 0, 1, "k"), 0u);
    expect_memory_error(not_null);
    EXPECT_EQ(kel_nn_model_xor_decode_from_file("missing", wrong, 1, "k"), 0u);
    expect_file_error(not_null);
  }
  EXPECT_EQ(taken, &byte);
  EXPECT_EQ(kel_nn_model_xor_decode_from_file("missing", &empty, 1, nullptr), 0u);
  expect_file_error("Read file missing error!");

  // A file with fewer bytes than it says, as the kernel's are; what was taken for them is given back.
  EXPECT_EQ(decode_file("/sys/devices/system/cpu/online", 1, "k"), "(none)");
  EXPECT_THAT(printed_messages()[0], testing::StartsWith("[Error]Read file "));
}

// Somebody shortens the file after it has been measured, when memory for it is asked for.
TEST_F(ModelFiles, AFileMayShrinkWhileItIsRead) {
  static std::string path;
  static int64_t length;
  for (const int64_t left : {0, 999, 1000, 1001, 9000, 65535}) {
    SCOPED_TRACE(left);
    path = directory_.write("m", std::string(65536, 'm'));
    length = left;
    kelnn_test::call_at_next_allocation([] { EXPECT_EQ(truncate(path.c_str(), length), 0); });
    EXPECT_EQ(decode_file(path, 1000, "k"), "(none)");
    expect_file_error("Read file error");
  }
}

TEST_F(ModelFiles, AKeyIsNeededOnlyToDescramble) {
  for (const char* key : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_EQ(decode("hhaa", 2, key), "(none)");
    expect_memory_error("Invalid key.");
    EXPECT_EQ(decode_file(directory_.write("m", "hhaabb"), 2, key), "(none)");
    expect_file_error("Invalid key.");
    EXPECT_EQ(decode("aa", 0, key), "aa");
  }
}

TEST_F(ModelFiles, OnlyRegularFilesAreReadAndMemoryMayBeShort) {
  {
    const kelnn_test::NoMemory none;
    EXPECT_EQ(decode("\1\2", 1, "k"), "(none)");
  }
  expect_memory_error("Out of memory.");
  ASSERT_EQ(mkfifo(directory_.file("pipe").c_str(), 0600), 0);
  for (const std::string& path :
       {directory_.with_slash(), directory_.file("pipe"), std::string("/dev/zero")}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(decode_file(path, 1, "k"), "(none)");
    expect_file_error("Read file error");
  }
}

}  // namespace
