// SPDX-License-Identifier: Apache-2.0
// Containers from outside: whatever the bytes, reading ends with a code and stays inside them, and
// what was wrapped comes back.
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "model_container.h"

namespace {

using namespace kelnn_host;
using Bytes = std::vector<uint8_t>;

void require(bool condition) {
  if (!condition) std::abort();
}
Bytes bytes_of(const OnnxBytes& onnx) { return Bytes(onnx.data, onnx.data + onnx.size); }

// Nearly all changed bytes end at a checksum. Making both right lets the fuzzer behind them.
void mend_checksums(Bytes* container) {
  if (container->size() < 40) return;
  const auto put_crc = [&](size_t at, size_t from, size_t to) {
    const uint32_t crc = static_cast<uint32_t>(crc32_z(0, container->data() + from, to - from));
    for (int i = 0; i < 4; ++i) (*container)[at + i] = static_cast<uint8_t>(crc >> (8 * i));
  };
  put_crc(32, 40, container->size());
  put_crc(36, 0, 36);
}

void read(const Bytes& container) {
  OnnxBytes onnx;
  const RuntimeError error = open_container(container.data(), container.size(), &onnx);
  if (error == kOk) {
    require(onnx.data > container.data());
    require(onnx.data + onnx.size <= container.data() + container.size());
    const Bytes again = wrap_model(onnx.data, onnx.size);
    OnnxBytes onnx_again;
    require(open_container(again.data(), again.size(), &onnx_again) == kOk);
    require(bytes_of(onnx_again) == bytes_of(onnx));
  }
  // An image without a size has at least as many bytes as the smallest container.
  Bytes image = container;
  image.resize(std::max(image.size(), kMinContainerSize));
  Bytes copy;
  if (copy_container(image.data(), &copy) == kOk && copy.size() <= container.size()) {
    OnnxBytes copied;
    require(open_container(copy.data(), copy.size(), &copied) == error);
    if (error == kOk) require(bytes_of(copied) == bytes_of(onnx));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Bytes bytes(data, data + size);
  read(bytes);
  mend_checksums(&bytes);
  read(bytes);

  // The bytes as a model: whole it comes back, with any one byte changed it does not.
  Bytes container = wrap_model(data, size);
  if (container.empty()) return 0;
  OnnxBytes onnx;
  require(open_container(container.data(), container.size(), &onnx) == kOk);
  require(onnx.size == size && std::memcmp(onnx.data, data, size) == 0);
  container[(data[0] * 257u + size) % container.size()] ^= 1;
  require(open_container(container.data(), container.size(), &onnx) != kOk);
  return 0;
}
