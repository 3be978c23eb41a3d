// SPDX-License-Identifier: Apache-2.0
#include "model_container.h"

#include <sys/uio.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace kelnn_host {
namespace {

constexpr uint8_t kMagic[8] = {0x93, 'K', 'E', 'L', 'N', 'N', '\r', '\n'};
constexpr uint32_t kVersion = 1;
constexpr size_t kVersionOffset = 8;
constexpr size_t kHeaderSizeOffset = 12;
constexpr size_t kContainerSizeOffset = 16;
constexpr size_t kOnnxSizeOffset = 24;
constexpr size_t kBodyChecksumOffset = 32;
constexpr size_t kHeaderChecksumOffset = 36;
constexpr size_t kHeaderSize = 40;

constexpr uint8_t kLabelMagic[8] = {0x93, 'K', 'E', 'L', 'N', 'L', '\r', '\n'};
constexpr size_t kNameChecksumOffset = 12;
constexpr size_t kModelSizeOffset = 16;
constexpr size_t kModelChecksumOffset = 24;
constexpr size_t kLabelChecksumOffset = 28;

struct Header {
  size_t container_size, onnx_size;
  uint32_t body_checksum;
};

template <typename Number>
void put(uint8_t* at, Number value) {
  for (size_t i = 0; i < sizeof(Number); ++i) at[i] = static_cast<uint8_t>(value >> (8 * i));
}

template <typename Number>
Number get(const uint8_t* at) {
  Number value = 0;
  for (size_t i = 0; i < sizeof(Number); ++i) value |= static_cast<Number>(at[i]) << (8 * i);
  return value;
}

size_t container_size_for(size_t onnx_size) {
  return std::max(kMinContainerSize, kHeaderSize + onnx_size);
}

// Reads the header; nothing in it is believed before its checksum is right. The version comes
// first: another one may keep its checksum elsewhere.
RuntimeError read_header(const uint8_t* data, size_t size, Header* header) {
  if (!is_container(data, size)) return kBadMagic;
  if (size < kHeaderSize) return kCutOff;
  if (get<uint32_t>(data + kVersionOffset) != kVersion) return kUnsupportedVersion;
  if (get<uint32_t>(data + kHeaderChecksumOffset) != checksum(data, kHeaderChecksumOffset)) {
    return kWrongChecksum;
  }
  const uint64_t container_size = get<uint64_t>(data + kContainerSizeOffset);
  const uint64_t onnx_size = get<uint64_t>(data + kOnnxSizeOffset);
  const bool makes_sense = get<uint32_t>(data + kHeaderSizeOffset) == kHeaderSize &&
                           onnx_size > 0 && onnx_size <= kMaxContainerSize - kHeaderSize &&
                           container_size == container_size_for(static_cast<size_t>(onnx_size));
  if (!makes_sense) return kWrongChecksum;  // right by chance or by intent
  *header = {static_cast<size_t>(container_size), static_cast<size_t>(onnx_size),
             get<uint32_t>(data + kBodyChecksumOffset)};
  return kOk;
}

// Copies memory that may not all be there: the kernel answers where a plain read would end the
// process.
bool copy_mapped(const void* from, uint8_t* to, size_t size) {
  iovec local = {to, size};
  iovec remote = {const_cast<void*>(from), size};
  const ssize_t copied = process_vm_readv(getpid(), &local, 1, &remote, 1, 0);
  if (copied >= 0) return static_cast<size_t>(copied) == size;
  if (errno != ENOSYS && errno != EPERM) return false;
  std::memcpy(to, from, size);  // a sandbox without the call: take the image as promised
  return true;
}

}  // namespace

uint32_t checksum(const void* data, size_t size) {
  return static_cast<uint32_t>(crc32_z(0, static_cast<const uint8_t*>(data), size));
}

bool is_container(const uint8_t* data, size_t size) {
  return size >= sizeof(kMagic) && std::memcmp(data, kMagic, sizeof(kMagic)) == 0;
}

std::vector<uint8_t> wrap_model(const uint8_t* onnx, size_t size) {
  if (!onnx || size == 0 || size > kMaxContainerSize - kHeaderSize) return {};
  std::vector<uint8_t> container(container_size_for(size));  // zeros
  uint8_t* header = container.data();
  uint8_t* body = header + kHeaderSize;
  std::memcpy(body, onnx, size);
  std::memcpy(header, kMagic, sizeof(kMagic));
  put(header + kVersionOffset, kVersion);
  put(header + kHeaderSizeOffset, static_cast<uint32_t>(kHeaderSize));
  put(header + kContainerSizeOffset, static_cast<uint64_t>(container.size()));
  put(header + kOnnxSizeOffset, static_cast<uint64_t>(size));
  put(header + kBodyChecksumOffset, checksum(body, container.size() - kHeaderSize));
  put(header + kHeaderChecksumOffset, checksum(header, kHeaderChecksumOffset));
  return container;
}

RuntimeError open_container(const uint8_t* data, size_t size, OnnxBytes* onnx) {
  Header header;
  if (const RuntimeError error = read_header(data, size, &header)) return error;
  if (size < header.container_size) return kCutOff;
  const uint8_t* body = data + kHeaderSize;
  if (checksum(body, header.container_size - kHeaderSize) != header.body_checksum) {
    return kWrongChecksum;
  }
  *onnx = {body, header.onnx_size};
  return kOk;
}

RuntimeError copy_container(const void* image, std::vector<uint8_t>* container) {
  uint8_t start[kHeaderSize];
  if (!image || !copy_mapped(image, start, sizeof(start))) return kUnreadable;
  Header header;
  if (const RuntimeError error = read_header(start, sizeof(start), &header)) return error;
  container->resize(header.container_size);
  return copy_mapped(image, container->data(), container->size()) ? kOk : kCutOff;
}

void write_label(const ModelLabel& label, uint8_t* at) {
  std::memcpy(at, kLabelMagic, sizeof(kLabelMagic));
  put(at + kVersionOffset, kVersion);
  put(at + kNameChecksumOffset, label.name_checksum);
  put(at + kModelSizeOffset, label.model_size);
  put(at + kModelChecksumOffset, label.model_checksum);
  put(at + kLabelChecksumOffset, checksum(at, kLabelChecksumOffset));
}

RuntimeError read_label(const uint8_t* at, ModelLabel* label) {
  if (std::memcmp(at, kLabelMagic, sizeof(kLabelMagic)) != 0) return kBadMagic;
  if (get<uint32_t>(at + kVersionOffset) != kVersion) return kUnsupportedVersion;
  if (get<uint32_t>(at + kLabelChecksumOffset) != checksum(at, kLabelChecksumOffset)) {
    return kWrongChecksum;
  }
  *label = {get<uint32_t>(at + kNameChecksumOffset), get<uint32_t>(at + kModelChecksumOffset),
            get<uint64_t>(at + kModelSizeOffset)};
  return kOk;
}

}  // namespace kelnn_host
