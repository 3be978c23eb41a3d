// SPDX-License-Identifier: Apache-2.0
// ONNX models from outside: the runtime loads and runs them, or says why not. Start from the
// networks of tests/support/make_test_networks.py.
#include <jzdl.h>

#include <algorithm>
#include <cstdlib>

#include "model_container.h"

// OpenCV asks for what a model says, and takes no for an answer.
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<uint8_t> container = kelnn_host::wrap_model(data, size);
  if (container.empty()) return 0;
  jzdl::BaseNet* net = jzdl::net_create();
  if (net->load_model(reinterpret_cast<const char*>(container.data()), 1) == kelnn_host::kOk) {
    const std::vector<int> shape = net->input_shape();
    jzdl::Mat<signed char> image(shape[0], shape[1], shape[2]);
    std::fill(image.data, image.data + image.total(), static_cast<signed char>(data[size / 2]));
    jzdl::Mat<float> output;
    if (net->input(image, -999) != kelnn_host::kOk) std::abort();
    if (net->run(output, -999) == kelnn_host::kOk && output.empty()) std::abort();
  }
  jzdl::net_destory(net);
  return 0;
}
