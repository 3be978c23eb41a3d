// SPDX-License-Identifier: Apache-2.0
// The runtime as the engine sees it, declared for a PC: what the T31 chip's jzdl offers of networks
// and matrices. Two libraries implement it: jzdl_host (OpenCV DNN) and the tests' scripted runtime.
#ifndef KEL_NN_HOST_JZDL_H_
#define KEL_NN_HOST_JZDL_H_

#include <atomic>
#include <cstddef>
#include <new>
#include <vector>

#define JZDL_API __attribute__((visibility("default")))

namespace jzdl {

// A w x h image of c interleaved channels. Copies share the elements, the last one frees them; a
// matrix made over a caller's pointer owns nothing. An allocation that fails leaves the matrix
// empty.
template <typename T>
class Mat {
 public:
  int w = 0, h = 0, c = 0;
  T* data = nullptr;

  Mat() = default;
  Mat(int width, int height, int channels) { create(width, height, channels); }
  Mat(int width, int height, int channels, T* borrowed)
      : w(width), h(height), c(channels), data(borrowed) {}
  Mat(const Mat& other)
      : w(other.w), h(other.h), c(other.c), data(other.data), block_(other.block_) {
    if (block_) block_->references.fetch_add(1, std::memory_order_relaxed);
  }
  Mat& operator=(const Mat& other) {
    if (this == &other) return *this;
    if (other.block_) other.block_->references.fetch_add(1, std::memory_order_relaxed);
    release();
    w = other.w, h = other.h, c = other.c, data = other.data, block_ = other.block_;
    return *this;
  }
  ~Mat() { release(); }

  // Makes the matrix the sole owner of uninitialised elements of this shape; elements that it
  // already owns alone are kept when the shape is the same.
  void create(int width, int height, int channels) {
    if (block_ && w == width && h == height && c == channels &&
        block_->references.load(std::memory_order_acquire) == 1) {
      return;
    }
    release();
    if (width <= 0 || height <= 0 || channels <= 0) return;
    const size_t count = size_t(width) * size_t(height) * size_t(channels);
    if (size_t(width) > size_t(-1) / 2 / sizeof(T) / size_t(height) / size_t(channels)) return;
    void* memory = ::operator new(sizeof(Block) + count * sizeof(T), std::nothrow);
    if (!memory) return;
    block_ = new (memory) Block;
    data = reinterpret_cast<T*>(block_ + 1);
    w = width, h = height, c = channels;
  }

  void release() {
    if (block_ && block_->references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      block_->~Block();
      ::operator delete(block_);
    }
    block_ = nullptr;
    data = nullptr;
    w = h = c = 0;
  }

  size_t total() const { return size_t(w) * size_t(h) * size_t(c); }
  bool empty() const { return !data || total() == 0; }

 private:
  struct alignas(16) Block {  // stands in front of the elements
    std::atomic<int> references{1};
  };
  Block* block_ = nullptr;
};

// A network. The calls return 0 or an error code of the implementation, and never throw.
class JZDL_API BaseNet {
 public:
  virtual ~BaseNet() = default;
  // `from_memory` 1: `model` is the model itself, which the caller keeps until the network is
  // destroyed; 0: it is the path of a file.
  virtual int load_model(const char* model, int from_memory) = 0;
  virtual std::vector<int> input_shape() = 0;  // width, height, channels
  // `layer` -999 means the network's own input and output.
  virtual int input(Mat<signed char>& image, int layer) = 0;
  virtual int run(Mat<float>& output, int layer) = 0;
};

JZDL_API BaseNet* net_create();
JZDL_API void net_destory(BaseNet* net);
JZDL_API void image_sub(Mat<unsigned char>& image, unsigned char value);

}  // namespace jzdl

#endif  // KEL_NN_HOST_JZDL_H_
