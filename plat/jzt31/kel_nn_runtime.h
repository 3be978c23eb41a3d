// SPDX-License-Identifier: Apache-2.0
// The only place that knows how the vendor spells the runtime. A porter edits this file to match
// the SDK's header: its name, the four operations of a network, and how a matrix is made over
// memory.
#ifndef KEL_NN_RUNTIME_H_
#define KEL_NN_RUNTIME_H_

#include <jzdl.h>

#include <cstddef>
#include <vector>

namespace kelnn {
namespace runtime {

constexpr int kOwnLayer = -999;  // the network's own input, or its own output

inline int load_model(jzdl::BaseNet* net, const char* model, int from_memory) {
  return net->load_model(model, from_memory);
}
inline std::vector<int> input_shape(jzdl::BaseNet* net) { return net->input_shape(); }
inline int input(jzdl::BaseNet* net, jzdl::Mat<signed char>& image) {
  return net->input(image, kOwnLayer);
}
inline int run(jzdl::BaseNet* net, jzdl::Mat<float>& output) { return net->run(output, kOwnLayer); }

// A matrix of its own; without elements when memory is short.
template <typename T>
jzdl::Mat<T> allocate(int width, int height, int channels) {
  return jzdl::Mat<T>(width, height, channels);
}
// A matrix over memory that somebody else owns.
template <typename T>
jzdl::Mat<T> borrow(size_t width, size_t height, size_t channels, T* data) {
  return jzdl::Mat<T>(int(width), int(height), int(channels), data);
}
template <typename T>
T* data(const jzdl::Mat<T>& matrix) {
  return matrix.data;
}
template <typename T>
size_t element_count(const jzdl::Mat<T>& matrix) {
  const bool has_elements = matrix.data && matrix.w > 0 && matrix.h > 0 && matrix.c > 0;
  return has_elements ? size_t(matrix.w) * size_t(matrix.h) * size_t(matrix.c) : 0;
}

}  // namespace runtime
}  // namespace kelnn

#endif  // KEL_NN_RUNTIME_H_
