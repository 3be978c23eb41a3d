// SPDX-License-Identifier: Apache-2.0
// Why the PC's runtime refused: the codes that its networks return, which the engine prints as
// "load model error[CODE]", "Input image fail: CODE" and "Inference fail: CODE".
#ifndef KEL_NN_HOST_RUNTIME_ERRORS_H_
#define KEL_NN_HOST_RUNTIME_ERRORS_H_

namespace kelnn_host {

// The numbers are an interface: they appear in logs and in docs/models.md. Append, never renumber.
enum RuntimeError : int {
  kOk = 0,

  // Loading, in the order of the checks.
  kUnreadable = 1,          // the file or the memory
  kBadMagic = 2,            // memory that does not begin with a container
  kUnsupportedVersion = 3,  // a container of another version
  kCutOff = 4,              // fewer bytes than the container's header says
  kWrongChecksum = 5,       // a container of which some byte has changed
  kBadOnnx = 6,             // bytes that are no ONNX model, or one that contradicts itself
  kUnsupportedInput = 7,    // more than one input, or not 1 x channels x height x width floats
  kDynamicShape = 8,        // an input shape that is not all fixed numbers
  kUnsupportedNetwork = 9,  // OpenCV cannot import or run it
  kUnsupportedOutput = 10,  // an output of a shape or type that has no place in the trailer
  kOutOfMemory = 11,        // also while running

  // Running.
  kNoNetwork = 20,        // nothing is loaded
  kUnknownLayer = 21,     // a layer other than the network's own input or output
  kWrongImageShape = 22,  // width, height and channels are not the network's
  kNoImageData = 23,      // an image without elements
  kNoInput = 24,          // run() without an image from input()
  kInferenceFailed = 25,  // OpenCV gave up on a network that ran when it was loaded
};

// A short text for any code, of loading or running; never null.
const char* describe_load_error(int code);

// What OpenCV or ONNX's checker said of the network that this thread loaded last: why it was refused, and at which
// node. Empty where nothing is known but the code. Of libjzdl_host.so.
const char* last_refusal();

}  // namespace kelnn_host

#endif  // KEL_NN_HOST_RUNTIME_ERRORS_H_
