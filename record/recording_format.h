// SPDX-License-Identifier: Apache-2.0
// A recording's bytes, as docs/recording.md describes them: files, records, fields, and the digest that all of it rests
// on. Shared by the recorder, which runs on the camera, and by the reader.
#ifndef KEL_NN_RECORDING_FORMAT_H_
#define KEL_NN_RECORDING_FORMAT_H_

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace kelnn_record {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "recordings are written as memory has them");

// ----- Digests -----------------------------------------------------------------------------------

// 64 bits of any bytes, to find differences, not to withstand somebody who makes them. Four lanes of 32 bits, because the
// camera multiplies 32 bits at once: each step is one-to-one in the lane and in the word, so that two blocks that differ
// in one word of a lane never have the same lane. The last step folds lanes and length.
class Digest {
 public:
  static uint64_t of(const void* data, size_t size) {
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    uint32_t a = 0x6b656c6eu, b = 0x6e726563u, c = 0x6f726431u, d = 0x64696773u;  // the lanes
    const auto take = [&](const void* block) {
      uint32_t word[4];
      std::memcpy(word, block, sizeof(word));
      a = step(a, word[0]), b = step(b, word[1]), c = step(c, word[2]), d = step(d, word[3]);
    };
    size_t left = size;
    for (; left >= 16; left -= 16, bytes += 16) take(bytes);
    if (left > 0) {
      uint8_t last[16] = {};
      std::memcpy(last, bytes, left);
      take(last);
    }
    return mixed(mixed(mixed(mixed(size ^ a) ^ b) ^ c) ^ d);
  }

 private:
  static uint32_t step(uint32_t lane, uint32_t word) {
    const uint32_t x = lane ^ word;
    return (x << 13 | x >> 19) * 0x9e3779b1u;
  }
  static uint64_t mixed(uint64_t x) {
    x = (x ^ x >> 31) * 0x9fb21c651e98df25u;
    return x ^ x >> 29;
  }
};

// ----- Files -------------------------------------------------------------------------------------

constexpr char kMagic[8] = {'K', 'E', 'L', 'N', 'N', 'R', 'E', 'C'};
constexpr uint32_t kFormatVersion = 1;
constexpr size_t kMaxRecord = 64 << 20;  // bytes; a longer one is damaged

struct FileHeader {
  char magic[8];
  uint32_t version;
  uint32_t number;  // of the file in its ring, from 1
};

// In front of each record. The check is of its bytes.
struct RecordHeader {
  uint32_t size;
  uint32_t check;
};
inline uint32_t check_of(const void* record, size_t size) {
  const uint64_t digest = Digest::of(record, size);
  return static_cast<uint32_t>(digest ^ digest >> 32);
}

// ----- Records -----------------------------------------------------------------------------------

// What a record begins with; then its name and its fields.
struct CallHeader {
  uint64_t number;      // of the call, from 1; records that are no calls have 0
  uint64_t time;        // when it began, in microseconds since 1970
  uint32_t duration;    // microseconds
  uint8_t is_repeated;  // 1: an older call, told again where its own file may be gone
  uint8_t name_size;
  uint16_t reserved;
};

// Records that are no calls.
constexpr char kStartRecord[] = "start";  // of a file: what was recorded, and where
constexpr char kLostRecord[] = "lost";    // calls before it that could not be kept

enum class Kind : char {
  kArgument = 'a',  // given by the application
  kNetwork = 'n',   // seen at a network that the call ran
  kResult = 'r',    // given back
};
enum class Type : char {
  kIntegers = 'i',  // of 32 bits, with sign
  kFloats = 'f',
  kBytes = 'b',
  kSamples = 's',  // sound, 16 bits
  kText = 't',
  kBoxes = 'x',   // kel_nn_box_t
  kDigest = 'd',  // stands for a block: DigestField
  kNull = '0',    // a null pointer
};
struct FieldHeader {
  Kind kind;
  Type type;
  uint8_t name_size;
  uint8_t reserved;
  uint32_t size;  // of the value, behind the name
};
struct DigestField {
  uint64_t digest;
  uint32_t size;
  Type type;  // of the block
  uint8_t reserved[3];
};

// ----- Writing -----------------------------------------------------------------------------------

// Bytes in the making. Where memory is short they stay as they are and are marked.
class Buffer {
 public:
  Buffer() = default;
  ~Buffer() { std::free(data_); }
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

  bool reserve(size_t capacity) {
    if (capacity <= capacity_) return true;
    uint8_t* grown = static_cast<uint8_t*>(std::realloc(data_, capacity));
    if (!grown) return false;
    data_ = grown;
    capacity_ = capacity;
    return true;
  }
  void add(const void* bytes, size_t size) {
    const bool fits = size <= kMaxRecord && size_ + size <= kMaxRecord;
    if (!fits || (size_ + size > capacity_ && !reserve(2 * (size_ + size)))) is_short_ = true;
    if (is_short_ || size == 0) return;
    std::memcpy(data_ + size_, bytes, size);
    size_ += size;
  }
  void clear() {
    size_ = 0;
    is_short_ = false;
  }
  void swap(Buffer* other) {
    std::swap(data_, other->data_);
    std::swap(size_, other->size_);
    std::swap(capacity_, other->capacity_);
  }
  const uint8_t* data() const { return data_; }
  uint8_t* data() { return data_; }
  size_t size() const { return size_; }
  size_t capacity() const { return capacity_; }
  bool is_short() const { return is_short_; }

 private:
  uint8_t* data_ = nullptr;
  size_t size_ = 0, capacity_ = 0;
  bool is_short_ = false;
};

// One record in the making.
class Record {
 public:
  void begin(const char* name, const CallHeader& header) {
    buffer_.clear();
    CallHeader own = header;
    own.name_size = static_cast<uint8_t>(std::strlen(name));
    buffer_.add(&own, sizeof(own));
    buffer_.add(name, own.name_size);
  }
  void add(Kind kind, const char* name, Type type, const void* value, size_t size) {
    const uint8_t name_size = static_cast<uint8_t>(std::strlen(name));
    const FieldHeader header = {kind, type, name_size, 0, static_cast<uint32_t>(size)};
    buffer_.add(&header, sizeof(header));
    buffer_.add(name, name_size);
    buffer_.add(value, size);
  }
  void add_integer(Kind kind, const char* name, int32_t value) {
    add(kind, name, Type::kIntegers, &value, sizeof(value));
  }
  void add_text(Kind kind, const char* name, const char* text) {
    add(kind, name, Type::kText, text, std::strlen(text));
  }
  void set_duration(uint32_t microseconds) {
    if (buffer_.size() >= sizeof(CallHeader)) {
      std::memcpy(buffer_.data() + offsetof(CallHeader, duration), &microseconds,
                  sizeof(microseconds));
    }
  }
  const Buffer& bytes() const { return buffer_; }

 private:
  Buffer buffer_;
};

}  // namespace kelnn_record

#endif  // KEL_NN_RECORDING_FORMAT_H_
