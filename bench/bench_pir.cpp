// SPDX-License-Identifier: Apache-2.0
// The motion filter, per frame, beside the plain loops, the same steps in OpenCV and, as the limit,
// copying as many bytes as a frame makes it read and write.
#include <benchmark/benchmark.h>

#include <cstring>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <random>
#include <string>
#include <vector>

#include "kel_nn.h"
#include "support/plain_pir_filter.h"

namespace {

constexpr float kRatio = 1.0f;
constexpr int kPeriod = 25;

// A noisy scene in which something bright moves from frame to frame.
std::vector<std::vector<uint8_t>> frames(int width, int height) {
  std::mt19937 random(1);
  std::vector<std::vector<uint8_t>> sequence(4, std::vector<uint8_t>(size_t(width) * height));
  for (size_t f = 0; f < sequence.size(); ++f) {
    for (uint8_t& pixel : sequence[f]) pixel = 100 + random() % 8;
    cv::Mat picture(height, width, CV_8U, sequence[f].data());
    picture(cv::Rect(width / 8 * int(f), height / 4, width / 4, height / 2)) += cv::Scalar(80);
  }
  return sequence;
}

template <typename Process>
void run(benchmark::State& state, int width, int height, Process process) {
  const auto sequence = frames(width, height);
  int32_t result = 0;
  size_t frame = 0;
  for (auto _ : state) {
    process(sequence[frame++ % sequence.size()].data(), &result);
    benchmark::DoNotOptimize(result);
  }
}

class OpencvPirFilter {
 public:
  OpencvPirFilter(int width, int height)
      : width_(width), older_(cv::Mat::zeros(height / 2, width / 2, CV_8U)) {
    for (cv::Mat* plane : {&previous_, &smoothed_, &work_}) *plane = older_.clone();
  }
  void process(const uint8_t* image, int32_t* result) {
    // Every second row of pairs of pixels; of each pair the second.
    const cv::Mat pairs(work_.rows, work_.cols, CV_8UC2, const_cast<uint8_t*>(image),
                        size_t(2) * width_);
    cv::extractChannel(pairs, work_, 1);
    cv::GaussianBlur(work_, smoothed_, cv::Size(3, 3), 0);
    cv::absdiff(older_, previous_, older_);
    cv::threshold(older_, older_, 20, 255, cv::THRESH_BINARY);
    cv::absdiff(previous_, smoothed_, work_);
    cv::threshold(work_, work_, 20, 255, cv::THRESH_BINARY);
    cv::bitwise_and(work_, older_, work_);
    *result = cv::countNonZero(work_);
    previous_.copyTo(older_);
    smoothed_.copyTo(previous_);
  }

 private:
  int width_;
  cv::Mat older_, previous_, smoothed_, work_;
};

void add(int width, int height) {
  const std::string name = "pir/" + std::to_string(width) + "x" + std::to_string(height) + "/";
  const auto add_case = [&name](const char* who, auto function) {
    benchmark::RegisterBenchmark((name + who).c_str(), function);
  };
  add_case("kelnn", [=](benchmark::State& state) {
    // Not a real one, whose creation would print into the results. The filter keeps nothing in it.
    static char place;
    const kel_nn_handle_t handle = reinterpret_cast<kel_nn_handle_t>(&place);
    kel_nn_pir_filter_init(handle, width, height);
    run(state, width, height, [&](const uint8_t* image, int32_t* result) {
      kel_nn_pir_filter_process(handle, image, width, height, kRatio, kPeriod, result);
    });
    kel_nn_pir_filter_deinit(handle);
  });
  add_case("plain", [=](benchmark::State& state) {
    kelnn_test::PlainPirFilter filter(width, height);
    run(state, width, height, [&](const uint8_t* image, int32_t* result) {
      filter.process(image, kRatio, kPeriod, result);
    });
  });
  add_case("opencv", [=](benchmark::State& state) {
    cv::setNumThreads(1);
    OpencvPirFilter filter(width, height);
    run(state, width, height,
        [&](const uint8_t* image, int32_t* result) { filter.process(image, result); });
  });
  add_case("memcpy", [=](benchmark::State& state) {
    // Half of the image, and two bytes a halved pixel that are read and written.
    const size_t size = size_t(width) * height / 2;
    std::vector<uint8_t> target(size);
    run(state, width, height, [&](const uint8_t* image, int32_t*) {
      std::memcpy(target.data(), image, size);
      benchmark::ClobberMemory();
    });
  });
}

const int kRegistered = [] {
  add(640, 360);
  add(1920, 1080);
  return 0;
}();

}  // namespace
