// SPDX-License-Identifier: Apache-2.0
// Letterboxing a 1920 x 1080 frame to 416 x 256 and aligning a face of it, beside OpenCV with one thread.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "kel_nn_kit.h"

namespace {

constexpr int kFrameWidth = 1920, kFrameHeight = 1080, kInputWidth = 416, kInputHeight = 256;
constexpr int kScaledHeight = 234, kTop = 11;

std::vector<uint8_t> noise(size_t size) {
  std::vector<uint8_t> bytes(size);
  uint32_t state = 1;
  for (uint8_t& byte : bytes) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<uint8_t>(state >> 24);
  }
  return bytes;
}

template <typename Operation>
void run(benchmark::State& state, int rows, int type, Operation operation) {
  cv::setNumThreads(1);
  const std::vector<uint8_t> frame =
      noise(static_cast<size_t>(rows) * kFrameWidth * CV_MAT_CN(type));
  const cv::Mat view(rows, kFrameWidth, type, const_cast<uint8_t*>(frame.data()));
  cv::Mat input(kInputHeight, kInputWidth, CV_8UC3);
  for (auto _ : state) {
    operation(view, input);
    benchmark::DoNotOptimize(input.data);
    benchmark::ClobberMemory();
  }
}

void kit(kel_nn_kit_format_t format, const cv::Mat& frame, cv::Mat& input) {
  const kel_nn_kit_frame_t from = {frame.data, kFrameWidth, kFrameHeight, 0, format, nullptr};
  static kel_nn_kit_scratch_t scratch = {nullptr, 0};
  const kel_nn_kit_image_t to = {input.data, kInputWidth, kInputHeight, KEL_NN_KIT_RGB, &scratch};
  benchmark::DoNotOptimize(kel_nn_kit_letterbox(&from, &to));
}

void add_border(const cv::Mat& scaled, cv::Mat& input) {
  cv::copyMakeBorder(scaled, input, kTop, kInputHeight - kScaledHeight - kTop, 0, 0,
                     cv::BORDER_CONSTANT, cv::Scalar::all(KEL_NN_KIT_PADDING));
}

void opencv_rgb(const cv::Mat& frame, cv::Mat& input) {
  cv::Mat scaled;
  cv::resize(frame, scaled, {kInputWidth, kScaledHeight}, 0, 0, cv::INTER_LINEAR);
  add_border(scaled, input);
}

// BGR to RGB, of the small image.
void opencv_bgr(const cv::Mat& frame, cv::Mat& input) {
  cv::Mat scaled, swapped;
  cv::resize(frame, scaled, {kInputWidth, kScaledHeight}, 0, 0, cv::INTER_LINEAR);
  cv::cvtColor(scaled, swapped, cv::COLOR_BGR2RGB);
  add_border(swapped, input);
}

void opencv_nv12(const cv::Mat& frame, cv::Mat& input) {
  cv::Mat rgb;
  cv::cvtColor(frame, rgb, cv::COLOR_YUV2RGB_NV12);
  opencv_rgb(rgb, input);
}

// The planes first, the chroma to half the size, as conversion wants it.
void opencv_nv12_scaled_first(const cv::Mat& frame, cv::Mat& input) {
  const cv::Mat luma = frame.rowRange(0, kFrameHeight);
  const cv::Mat chroma(kFrameHeight / 2, kFrameWidth / 2, CV_8UC2, frame.data + luma.total());
  cv::Mat scaled_luma, scaled_chroma, rgb;
  cv::resize(luma, scaled_luma, {kInputWidth, kScaledHeight}, 0, 0, cv::INTER_LINEAR);
  cv::resize(chroma, scaled_chroma, {kInputWidth / 2, kScaledHeight / 2}, 0, 0, cv::INTER_LINEAR);
  cv::cvtColorTwoPlane(scaled_luma, scaled_chroma, rgb, cv::COLOR_YUV2RGB_NV12);
  add_border(rgb, input);
}

// ----- A face, turned by some 20 degrees and half as large again ---------------------------------

constexpr float kFace[] = {820, 400, 872, 419, 836, 440, 804, 462, 847, 478};
constexpr double kAligned[] = {38.4, 51.6, 73.6, 51.6, 56.0, 71.7, 41.4, 92.3, 70.6, 92.3};
constexpr int kFaceSide = 112;

void align(const cv::Mat& frame, cv::Mat& input) {
  const kel_nn_kit_frame_t from = {frame.data, kFrameWidth,    kFrameHeight,
                                   0,          KEL_NN_KIT_RGB, nullptr};
  input.create(kFaceSide, kFaceSide, CV_8UC3);
  const kel_nn_kit_image_t to = {input.data, kFaceSide, kFaceSide, KEL_NN_KIT_RGB, nullptr};
  benchmark::DoNotOptimize(kel_nn_kit_align_face(&from, kFace, &to));
}

// By least squares, as the kit does it.
cv::Mat face_transform() {
  cv::Mat equations, values;
  for (int i = 0; i < 5; ++i) {
    const double x = kFace[2 * i], y = kFace[2 * i + 1];
    for (int k : {0, 1}) {
      const cv::Mat row =
          k == 0 ? cv::Mat(cv::Matx14d(x, -y, 1, 0)) : cv::Mat(cv::Matx14d(y, x, 0, 1));
      equations.push_back(row);
      values.push_back(kAligned[2 * i + k]);
    }
  }
  cv::Mat fit;
  cv::solve(equations, values, fit, cv::DECOMP_SVD);
  const double a = fit.at<double>(0), b = fit.at<double>(1);
  return cv::Mat(cv::Matx23d(a, -b, fit.at<double>(2), b, a, fit.at<double>(3)));
}

void opencv_align(const cv::Mat& frame, cv::Mat& input) {
  cv::warpAffine(frame, input, face_transform(), {kFaceSide, kFaceSide}, cv::INTER_LINEAR,
                 cv::BORDER_REPLICATE);
}

constexpr int kNv12Rows = kFrameHeight * 3 / 2;

const int kRegistered = [] {
  using benchmark::RegisterBenchmark;
  using cv::Mat;
  RegisterBenchmark("kit/letterbox RGB 1080p/kelnn", [](benchmark::State& s) {
    run(s, kFrameHeight, CV_8UC3, [](const Mat& f, Mat& i) { kit(KEL_NN_KIT_RGB, f, i); });
  });
  RegisterBenchmark("kit/letterbox RGB 1080p/opencv",
                    [](benchmark::State& s) { run(s, kFrameHeight, CV_8UC3, opencv_rgb); });
  RegisterBenchmark("kit/letterbox BGR 1080p/kelnn", [](benchmark::State& s) {
    run(s, kFrameHeight, CV_8UC3, [](const Mat& f, Mat& i) { kit(KEL_NN_KIT_BGR, f, i); });
  });
  RegisterBenchmark("kit/letterbox BGR 1080p/opencv",
                    [](benchmark::State& s) { run(s, kFrameHeight, CV_8UC3, opencv_bgr); });
  RegisterBenchmark("kit/letterbox NV12 1080p/kelnn", [](benchmark::State& s) {
    run(s, kNv12Rows, CV_8UC1, [](const Mat& f, Mat& i) { kit(KEL_NN_KIT_NV12, f, i); });
  });
  RegisterBenchmark("kit/letterbox NV12 1080p/opencv",
                    [](benchmark::State& s) { run(s, kNv12Rows, CV_8UC1, opencv_nv12); });
  RegisterBenchmark("kit/letterbox NV12 1080p/opencv, planes first", [](benchmark::State& s) {
    run(s, kNv12Rows, CV_8UC1, opencv_nv12_scaled_first);
  });
  RegisterBenchmark("kit/align face RGB 1080p/kelnn",
                    [](benchmark::State& s) { run(s, kFrameHeight, CV_8UC3, align); });
  RegisterBenchmark("kit/align face RGB 1080p/opencv",
                    [](benchmark::State& s) { run(s, kFrameHeight, CV_8UC3, opencv_align); });
  return 0;
}();

}  // namespace
