// SPDX-License-Identifier: Apache-2.0
// Bilinear resizing beside the plain loops, OpenCV and libyuv, all on one thread, from and to the
// same packed buffers. "memcpy" moves half as many bytes as source and destination have together,
// so that it reads and writes as many bytes as there are: the time of touching each once.
#include <benchmark/benchmark.h>
#include <libyuv/scale.h>
#include <libyuv/scale_argb.h>
#include <libyuv/scale_uv.h>

#include <cstring>
#include <functional>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "kel_nn.h"
#include "support/plain_resize.h"

namespace {

struct Sizes {
  int from_width, from_height, to_width, to_height;
};

const Sizes kSizes[] = {{1920, 1080, 640, 360}, {640, 360, 416, 234}, {64, 64, 112, 112}};

struct Buffers {
  Buffers(size_t from_size, size_t to_size) : from(from_size), to(to_size) {
    uint32_t state = 1;
    for (uint8_t& byte : from) {
      state = state * 1664525u + 1013904223u;
      byte = static_cast<uint8_t>(state >> 24);
    }
  }
  std::vector<uint8_t> from, to;
};

using Operation = std::function<void(const uint8_t* from, uint8_t* to)>;

class Case {
 public:
  Case(const std::string& format, const Sizes& sizes, size_t from_size, size_t to_size)
      : name_("resize/" + format + " " + std::to_string(sizes.from_width) + "x" +
              std::to_string(sizes.from_height) + " to " + std::to_string(sizes.to_width) + "x" +
              std::to_string(sizes.to_height) + "/"),
        buffers_(std::make_shared<Buffers>(from_size, to_size)) {
    add("memcpy", [scratch = std::make_shared<std::vector<uint8_t>>(from_size + to_size)](
                      const uint8_t*, uint8_t*) {
      const size_t half = scratch->size() / 2;
      std::memcpy(scratch->data(), scratch->data() + half, half);
    });
  }

  void add(const std::string& contender, Operation operation) const {
    benchmark::RegisterBenchmark((name_ + contender).c_str(),
                                 [operation, buffers = buffers_](benchmark::State& state) {
                                   for (auto _ : state) {
                                     operation(buffers->from.data(), buffers->to.data());
                                     benchmark::ClobberMemory();
                                   }
                                 });
  }

 private:
  std::string name_;
  std::shared_ptr<Buffers> buffers_;
};

void opencv_resize(const uint8_t* from, int from_width, int from_height, uint8_t* to, int width,
                   int height, int channels) {
  const cv::Mat source(from_height, from_width, CV_8UC(channels), const_cast<uint8_t*>(from));
  cv::Mat destination(height, width, CV_8UC(channels), to);
  cv::resize(source, destination, destination.size(), 0, 0, cv::INTER_LINEAR);
}

void add_interleaved(const Sizes& s, int channels) {
  const int from_stride = s.from_width * channels, to_stride = s.to_width * channels;
  const Case c("c" + std::to_string(channels), s,
               static_cast<size_t>(from_stride) * static_cast<size_t>(s.from_height),
               static_cast<size_t>(to_stride) * static_cast<size_t>(s.to_height));
  c.add("kelnn", [=](const uint8_t* from, uint8_t* to) {
    kel_nn_pixel_resize_bilinear(from, s.from_width, s.from_height, to, s.to_width, s.to_height,
                                 channels);
  });
  c.add("plain", [=](const uint8_t* from, uint8_t* to) {
    kelnn_test::plain_resize(channels, from, s.from_width, s.from_height, from_stride, to,
                             s.to_width, s.to_height, to_stride);
  });
  c.add("opencv", [=](const uint8_t* from, uint8_t* to) {
    opencv_resize(from, s.from_width, s.from_height, to, s.to_width, s.to_height, channels);
  });
  if (channels == 1) {
    c.add("libyuv", [=](const uint8_t* from, uint8_t* to) {
      libyuv::ScalePlane(from, from_stride, s.from_width, s.from_height, to, to_stride, s.to_width,
                         s.to_height, libyuv::kFilterBilinear);
    });
  }
  if (channels == 4) {
    c.add("libyuv", [=](const uint8_t* from, uint8_t* to) {
      libyuv::ARGBScale(from, from_stride, s.from_width, s.from_height, to, to_stride, s.to_width,
                        s.to_height, libyuv::kFilterBilinear);
    });
  }
}

void add_nv12(const Sizes& s) {
  const size_t from_luma = static_cast<size_t>(s.from_width) * static_cast<size_t>(s.from_height);
  const size_t to_luma = static_cast<size_t>(s.to_width) * static_cast<size_t>(s.to_height);
  const Case c("nv12", s, from_luma * 3 / 2, to_luma * 3 / 2);
  c.add("kelnn", [=](const uint8_t* from, uint8_t* to) {
    kel_nn_pixel_resize_bilinear_nv12(from, s.from_width, s.from_height, to, s.to_width,
                                      s.to_height);
  });
  c.add("plain", [=](const uint8_t* from, uint8_t* to) {
    kelnn_test::plain_resize(1, from, s.from_width, s.from_height, s.from_width, to, s.to_width,
                             s.to_height, s.to_width);
    kelnn_test::plain_resize(2, from + from_luma, s.from_width / 2, s.from_height / 2, s.from_width,
                             to + to_luma, s.to_width / 2, s.to_height / 2, s.to_width);
  });
  c.add("opencv", [=](const uint8_t* from, uint8_t* to) {
    opencv_resize(from, s.from_width, s.from_height, to, s.to_width, s.to_height, 1);
    opencv_resize(from + from_luma, s.from_width / 2, s.from_height / 2, to + to_luma,
                  s.to_width / 2, s.to_height / 2, 2);
  });
  c.add("libyuv", [=](const uint8_t* from, uint8_t* to) {
    libyuv::NV12Scale(from, s.from_width, from + from_luma, s.from_width, s.from_width,
                      s.from_height, to, s.to_width, to + to_luma, s.to_width, s.to_width,
                      s.to_height, libyuv::kFilterBilinear);
  });
}

const int kRegistered = [] {
  cv::setNumThreads(1);
  for (const Sizes& sizes : kSizes) {
    for (int channels : {1, 3, 4}) add_interleaved(sizes, channels);
    add_nv12(sizes);
  }
  return 0;
}();

}  // namespace
