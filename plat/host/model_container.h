// SPDX-License-Identifier: Apache-2.0
// The container: an ONNX model that says how long it is and whether it is whole.
//
// The runtime is handed a model as an address without a length, and bare ONNX has no length of its
// own. All numbers are little-endian:
//
//     offset  size
//          0     8  magic, 93 'K' 'E' 'L' 'N' 'N' 0d 0a (no ONNX model begins with 93)
//          8     4  version, 1
//         12     4  size of this header, 40
//         16     8  size of the container: header, ONNX, padding
//         24     8  size of the ONNX model
//         32     4  CRC-32 of everything behind the header
//         36     4  CRC-32 of bytes 0 to 35
//         40        ONNX model, then zeros until the container has 2000 bytes
//
// The header's checksum covers the body's and the sizes, so together they cover every byte. 2000
// bytes are what a scrambled model file needs at least: it is refused unless the model has twice
// the scrambled bytes.
#ifndef KEL_NN_HOST_MODEL_CONTAINER_H_
#define KEL_NN_HOST_MODEL_CONTAINER_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "runtime_errors.h"

namespace kelnn_host {

constexpr size_t kMinContainerSize = 2000;
constexpr size_t kMaxContainerSize = size_t{1} << 30;  // a larger length is not believed

struct OnnxBytes {
  const uint8_t* data = nullptr;
  size_t size = 0;
};

// True when the bytes begin as a container does, whole or not.
bool is_container(const uint8_t* data, size_t size);

// The container of an ONNX model, or nothing when there is none or it is too large.
std::vector<uint8_t> wrap_model(const uint8_t* onnx, size_t size);

// Finds the ONNX model in a container of known size; `onnx` points into `data` and is set only on
// success. Bytes behind the container are ignored.
RuntimeError open_container(const uint8_t* data, size_t size, OnnxBytes* onnx);

// Copies a container out of memory of unknown size. Only the copy's header has been checked: open
// it.
//
// What is trusted: `image` is the start of a model that the caller has read whole, so as many bytes
// follow as its header says, and the header is believed only after its own checksum. A model that
// was cut off before it came into memory is caught all the same: bytes that are not mapped are
// kCutOff, and what else happens to lie behind it has not the body's checksum.
RuntimeError copy_container(const void* image, std::vector<uint8_t>* container);

// The label: what `kelnn pack` writes into the bytes that a model file begins with and the library
// passes over. It tells of any model, the board's too, how long it is and whether it is whole:
//
//     offset  size
//          0     8  magic, 93 'K' 'E' 'L' 'N' 'L' 0d 0a
//          8     4  version, 1
//         12     4  CRC-32 of the file's name, which tells the task to those who know the names
//         16     8  size of the model
//         24     4  CRC-32 of the model, not scrambled
//         28     4  CRC-32 of bytes 0 to 27
struct ModelLabel {
  uint32_t name_checksum, model_checksum;
  uint64_t model_size;
};
constexpr size_t kLabelSize = 32;

uint32_t checksum(const void* data, size_t size);  // CRC-32 as in zip
void write_label(const ModelLabel& label, uint8_t* at);
// kBadMagic: there is none.
RuntimeError read_label(const uint8_t* at, ModelLabel* label);

}  // namespace kelnn_host

#endif  // KEL_NN_HOST_MODEL_CONTAINER_H_
