// SPDX-License-Identifier: Apache-2.0
#include "recording_reader.h"

namespace kelnn_record {
namespace {

// The bytes that are left; takes as many from their front as are asked for, if there are.
struct Rest {
  const uint8_t* bytes;
  size_t size;

  bool take(void* to, size_t count) {
    if (count > size) return false;
    if (count > 0) std::memcpy(to, bytes, count);
    bytes += count;
    size -= count;
    return true;
  }
  bool take(std::string* to, size_t count) {
    if (count > size) return false;
    to->assign(reinterpret_cast<const char*>(bytes), count);
    bytes += count;
    size -= count;
    return true;
  }
};

bool fits(Type type, size_t size) {
  switch (type) {
    case Type::kIntegers:
    case Type::kFloats:
      return size % 4 == 0;
    case Type::kBoxes:
      return size % 24 == 0;
    case Type::kSamples:
      return size % 2 == 0;
    case Type::kBytes:
    case Type::kText:
      return true;
    case Type::kDigest:
      return size == sizeof(DigestField);
    case Type::kNull:
      return size == 0;
  }
  return false;
}

bool is_known(Kind kind) {
  return kind == Kind::kArgument || kind == Kind::kNetwork || kind == Kind::kResult;
}

}  // namespace

const Field* Entry::find(const std::string& wanted) const {
  for (const Field& field : fields) {
    if (field.name == wanted) return &field;
  }
  return nullptr;
}

bool parse(const uint8_t* record, size_t size, Entry* entry) {
  Rest rest = {record, size};
  *entry = {};
  if (!rest.take(&entry->header, sizeof(entry->header))) return false;
  if (!rest.take(&entry->name, entry->header.name_size)) return false;
  while (rest.size > 0) {
    FieldHeader header;
    Field field;
    if (!rest.take(&header, sizeof(header)) || !rest.take(&field.name, header.name_size))
      return false;
    if (header.size > rest.size || !fits(header.type, header.size) || !is_known(header.kind))
      return false;
    field.kind = header.kind;
    field.type = header.type;
    field.value.resize(header.size);
    rest.take(field.value.data(), header.size);
    entry->fields.push_back(std::move(field));
  }
  return true;
}

RecordingReader::RecordingReader(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {
  FileHeader header;
  Rest rest = {bytes_.data(), bytes_.size()};
  if (!rest.take(&header, sizeof(header)) ||
      std::memcmp(header.magic, kMagic, sizeof(kMagic)) != 0) {
    problem_ = "not a recording";
  } else if (header.version != kFormatVersion) {
    problem_ = "a recording of version " + std::to_string(header.version) + ", not " +
               std::to_string(kFormatVersion);
  } else {
    is_recording_ = true;
    at_ = sizeof(header);
  }
}

bool RecordingReader::next(Entry* entry) {
  if (!problem_.empty() || at_ == bytes_.size()) return false;
  Rest rest = {bytes_.data() + at_, bytes_.size() - at_};
  const std::string where = std::to_string(rest.size) + " bytes dropped";
  RecordHeader header;
  if (!rest.take(&header, sizeof(header)) ||
      (header.size <= kMaxRecord && header.size > rest.size)) {
    problem_ = "the last record is torn: " + where;
  } else if (header.size > kMaxRecord || header.check != check_of(rest.bytes, header.size) ||
             !parse(rest.bytes, header.size, entry)) {
    problem_ = "damaged at byte " + std::to_string(at_) + ": " + where;
  } else {
    at_ += sizeof(header) + header.size;
    return true;
  }
  return false;
}

}  // namespace kelnn_record
