// SPDX-License-Identifier: Apache-2.0
#include "runtime_errors.h"

namespace kelnn_host {

const char* describe_load_error(int code) {
  switch (code) {
    case kOk:
      return "no error";
    case kUnreadable:
      return "the model cannot be read";
    case kBadMagic:
      return "not a model container (wrong key, or never packed?)";
    case kUnsupportedVersion:
      return "a model container of an unsupported version";
    case kCutOff:
      return "the model container is cut off";
    case kWrongChecksum:
      return "the model container is damaged (wrong checksum)";
    case kBadOnnx:
      return "not a valid ONNX model";
    case kUnsupportedInput:
      return "the network needs one float input of 1 x C x H x W";
    case kDynamicShape:
      return "the network's input has a dynamic shape";
    case kUnsupportedNetwork:
      return "OpenCV cannot import or run the network";
    case kUnsupportedOutput:
      return "the network has an output of an unsupported shape or type";
    case kOutOfMemory:
      return "out of memory";
    case kNoNetwork:
      return "no network is loaded";
    case kUnknownLayer:
      return "only the network's own input and output can be used";
    case kWrongImageShape:
      return "the image does not have the shape of the network's input";
    case kNoImageData:
      return "the image has no data";
    case kNoInput:
      return "the network was given no image";
    case kInferenceFailed:
      return "the inference failed";
  }
  return "unknown error";
}

}  // namespace kelnn_host
