// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include <cstring>
#include <numeric>
#include <set>
#include <string>

#include "model_container.h"

namespace kelnn_host {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes counting(size_t size) {
  Bytes bytes(size);
  std::iota(bytes.begin(), bytes.end(), uint8_t{1});
  return bytes;
}
Bytes wrap(const Bytes& onnx) { return wrap_model(onnx.data(), onnx.size()); }
RuntimeError open_all(const Bytes& container) {
  OnnxBytes onnx;
  return open_container(container.data(), container.size(), &onnx);
}

TEST(ModelContainer, HasTheDocumentedBytes) {
  const Bytes container = wrap({'a', 'b', 'c'});
  // Sizes by hand, the two checksums by Python's zlib.crc32().
  const Bytes expected_start = {
      0x93, 0x4b, 0x45, 0x4c, 0x4e, 0x4e, 0x0d, 0x0a,  // magic
      0x01, 0x00, 0x00, 0x00, 0x28, 0x00, 0x00, 0x00,  // version 1, header of 40 bytes
      0xd0, 0x07, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // 2000
      0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,  // 3
      0xa9, 0x83, 0x32, 0xc3, 0x2f, 0x10, 0x67, 0xe5,  // checksums: body, header
      'a',  'b',  'c',  0x00,
  };
  ASSERT_EQ(container.size(), 2000u);
  EXPECT_EQ(Bytes(container.begin(), container.begin() + 44), expected_start);
  EXPECT_EQ(Bytes(container.begin() + 43, container.end()), Bytes(1957, 0));
}

TEST(ModelContainer, GivesBackWhatWasWrapped) {
  const struct {
    size_t onnx_size, container_size;
  } cases[] = {{1, 2000}, {1959, 2000}, {1960, 2000}, {1961, 2001}, {100000, 100040}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.onnx_size);
    const Bytes onnx = counting(c.onnx_size);
    Bytes container = wrap(onnx);
    EXPECT_EQ(container.size(), c.container_size);

    container.push_back(0xff);  // ignored
    OnnxBytes opened;
    ASSERT_EQ(open_container(container.data(), container.size(), &opened), kOk);
    EXPECT_EQ(Bytes(opened.data, opened.data + opened.size), onnx);
  }
  EXPECT_TRUE(wrap({}).empty());
  EXPECT_TRUE(wrap_model(nullptr, 5).empty());
}

TEST(ModelContainer, NoticesEveryChangedAndEveryMissingByte) {
  const Bytes container = wrap(counting(2100));
  for (size_t i = 0; i < container.size(); ++i) {
    Bytes changed = container;
    changed[i] ^= 0x10;
    const RuntimeError expected = i < 8 ? kBadMagic : i < 12 ? kUnsupportedVersion : kWrongChecksum;
    ASSERT_EQ(open_all(changed), expected) << "byte " << i;
    Bytes copy;
    const RuntimeError error = copy_container(changed.data(), &copy);
    ASSERT_EQ(error ? error : open_all(copy), expected) << "byte " << i << ", size unknown";
    const Bytes cut(container.begin(), container.begin() + i);  // exact, for the sanitizer
    ASSERT_EQ(open_all(cut), i < 8 ? kBadMagic : kCutOff) << i << " bytes";
  }
}

TEST(ModelContainer, DoesNotBelieveSizesThatMakeNoSense) {
  const struct {
    const char* name;
    size_t offset;
    uint64_t value;
  } cases[] = {
      {"no ONNX", 24, 0},
      {"ONNX larger than the container", 24, 1961},
      {"ONNX that would wrap around", 24, ~uint64_t{0} - 39},
      {"container of 1 EiB", 16, uint64_t{1} << 60},
      {"container shorter than its header", 16, 39},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Bytes container = wrap({'a'});
    std::memcpy(&container[c.offset], &c.value, 8);
    const auto crc = static_cast<uint32_t>(crc32(0, container.data(), 36));  // made right again
    std::memcpy(&container[36], &crc, 4);
    EXPECT_EQ(open_all(container), kWrongChecksum);
    Bytes copy;
    EXPECT_EQ(copy_container(container.data(), &copy), kWrongChecksum);
  }
}

// What a scrambled file that was cut off leaves in memory: a container whose end is not there.
TEST(ModelContainer, SurvivesAnImageThatEndsEarly) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const Bytes container = wrap(counting(3 * page));
  void* memory =
      mmap(nullptr, 3 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  std::memcpy(memory, container.data(), 2 * page);
  Bytes copy;
  munmap(static_cast<uint8_t*>(memory) + 2 * page, page);
  EXPECT_EQ(copy_container(memory, &copy), kCutOff);
  munmap(memory, 2 * page);
  EXPECT_EQ(copy_container(memory, &copy), kUnreadable);
  EXPECT_EQ(copy_container(nullptr, &copy), kUnreadable);
}

TEST(ModelContainer, EveryErrorHasItsOwnText) {
  std::set<std::string> texts = {"unknown error"};
  for (int code = kOk; code <= kInferenceFailed; ++code) {
    if (code > kOutOfMemory && code < kNoNetwork) continue;
    EXPECT_TRUE(texts.insert(describe_load_error(code)).second) << code;
  }
  for (int code : {-1, kOutOfMemory + 1, kInferenceFailed + 1}) {
    EXPECT_STREQ(describe_load_error(code), "unknown error");
  }
}

}  // namespace
}  // namespace kelnn_host
