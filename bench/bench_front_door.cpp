// SPDX-License-Identifier: Apache-2.0
// What a C++ object adds to the C calls that it makes, over a runtime that only copies its outputs: the
// network takes no time, so that nothing hides behind it.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "kel_nn.hpp"
#include "kel_nn_model_files.h"
#include "support/plain_detectors.h"
#include "support/scripted_runtime.h"

namespace {

using kelnn_test::Output;

constexpr int kWidth = 640, kHeight = 360;

// Models for the scripted runtime, which reads nothing of them; gone at the end.
class Models {
 public:
  Models() {
    char path[] = "/tmp/kelnn_bench_XXXXXX";
    if (mkdtemp(path)) directory_ = std::string(path) + "/";
    for (const char* name : kNames) {
      std::ofstream(directory_ + name) << std::string(3000, 'm');
    }
  }
  ~Models() {
    for (const char* name : kNames) unlink((directory_ + name).c_str());
    rmdir(directory_.c_str());
  }
  const std::string& directory() const { return directory_; }

 private:
  static constexpr const char* kNames[] = {
      kelnn::kFaceDetectionModel, kelnn::kPersonDetectionLandscapeModel, kelnn::kFaceClassifyModel,
      kelnn::kFaceFeatureModel, kelnn::kCryDetectionModel};
  std::string directory_;
};

// The library, quiet: standard output carries the benchmark's result.
struct Quiet {
  Models models;
  kel_nn::Messages messages;
  kel_nn::Library library{models.directory()};
};

void play(int width, int height, int channels, const std::vector<Output>& outputs) {
  kelnn_test::scripted_runtime().input_shape = {width, height, channels};
  kelnn_test::scripted_runtime().set_outputs(outputs);
}

// A face, and a person, that scores high in the first cell.
void play_face() {
  std::vector<Output> outputs;
  for (const int count : kelnn_test::kFaceAnchorCounts) {
    const size_t anchors = static_cast<size_t>(count);
    outputs.push_back({{1, static_cast<float>(count), 2}, std::vector<float>(anchors * 2)});
    outputs.push_back({{1, static_cast<float>(count), 4}, std::vector<float>(anchors * 4)});
  }
  outputs[0].values[1] = 10;
  play(320, 240, 3, outputs);
}

void play_person() {
  std::vector<float> coarse(8 * 13 * 18, -10.0f), fine(16 * 26 * 18, -10.0f);
  coarse[4] = 3;
  play(416, 256, 3, {{{8, 13, 18}, coarse}, {{16, 26, 18}, fine}});
}

const std::vector<uint8_t>& pixels() {
  static const std::vector<uint8_t> all(kWidth * kHeight * 3, 77);
  return all;
}
const kel_nn::Frame kFrame = kel_nn::Frame::rgb(pixels().data(), kWidth, kHeight);
constexpr kel_nn::Size kFrameSize = {kWidth, kHeight};
kel_nn_kit_scratch_t g_scratch = {nullptr, 0};  // of the C calls; the objects have their own

// Each case as an object and as C calls; `Call` is made with the quiet library.
template <typename Call>
void measure(benchmark::State& state, Call make) {
  Quiet quiet;
  auto call = make(quiet.library);
  for (auto _ : state) call();
}

template <typename Cpp, typename C>
void add(const std::string& name, Cpp cpp, C c) {
  benchmark::RegisterBenchmark(("front door/" + name + "/kelnn").c_str(),
                               [=](benchmark::State& state) { measure(state, cpp); });
  benchmark::RegisterBenchmark(("front door/" + name + "/C").c_str(),
                               [=](benchmark::State& state) { measure(state, c); });
}

// An object that lives as long as the call that uses it.
template <typename T, typename... Arguments>
std::shared_ptr<T> hold(const kel_nn::Library& library, Arguments... arguments) {
  return std::make_shared<T>(library, arguments...);
}

const int kRegistered = [] {
  using kel_nn::Library;
  add(
      "faces in 640x360",
      [](const Library& library) {
        play_face();
        return [faces = hold<kel_nn::FaceDetector>(library)] {
          benchmark::DoNotOptimize(faces->detect(kFrame).data());
        };
      },
      [](const Library& library) {
        play_face();
        return [faces = hold<kel_nn::FaceDetector>(library), handle = library.handle(),
                input = std::vector<uint8_t>(320 * 240 * 3)]() mutable {
          const kel_nn_kit_image_t image = {input.data(), 320, 240, KEL_NN_KIT_RGB, &g_scratch};
          kel_nn_facedet_result_t found;
          kel_nn_kit_scale(&kFrame.view(), &image);
          kel_nn_facedet_process(handle, input.data(), &found);
          benchmark::DoNotOptimize(found.boxes);
        };
      });
  add(
      "persons in 640x360",
      [](const Library& library) {
        play_person();
        return [persons = hold<kel_nn::PersonDetector>(library, kFrameSize)] {
          benchmark::DoNotOptimize(persons->detect(kFrame).data());
        };
      },
      [](const Library& library) {
        play_person();
        return [persons = hold<kel_nn::PersonDetector>(library, kFrameSize),
                handle = library.handle(), input = std::vector<uint8_t>(416 * 256 * 3)]() mutable {
          const kel_nn_size_t input_size = kel_nn_kit_detector_input(kWidth, kHeight);
          const kel_nn_kit_image_t image = {input.data(), 416, 256, KEL_NN_KIT_RGB, &g_scratch};
          kel_nn_det_result_t found;
          kel_nn_kit_letterbox(&kFrame.view(), &image);
          kel_nn_persondet_process(handle, input.data(), &found, &kFrameSize, &input_size);
          benchmark::DoNotOptimize(found.boxes);
        };
      });
  add(
      "class of a face's cut-out",
      [](const Library& library) {
        play(112, 112, 1, {{{1, 1, 3}, {0, 1, 0}}});
        return [classifier = hold<kel_nn::FaceClassifier>(library),
                face = kel_nn::Image(kel_nn::kCropSize, KEL_NN_KIT_GREY)] {
          benchmark::DoNotOptimize(classifier->of(face));
        };
      },
      [](const Library& library) {
        play(112, 112, 1, {{{1, 1, 3}, {0, 1, 0}}});
        return [classifier = hold<kel_nn::FaceClassifier>(library), handle = library.handle(),
                face = kel_nn::Image(kel_nn::kCropSize, KEL_NN_KIT_GREY)] {
          int class_id = 0;
          float score = 0;
          kel_nn_face_classify_process(handle, face.data(), &class_id, &score);
          benchmark::DoNotOptimize(score);
        };
      });
  add(
      "similarity",
      [](const Library&) {
        return [a = kel_nn::Feature(), b = kel_nn::Feature()] {
          benchmark::DoNotOptimize(kel_nn::similarity(a, b));
        };
      },
      [](const Library&) {
        return [a = kel_nn::Feature(), b = kel_nn::Feature()]() mutable {
          const kel_nn_feature_t first = {a.data(), 256}, second = {b.data(), 256};
          benchmark::DoNotOptimize(kel_nn_face_feature_similarity_calcul(&first, &second));
        };
      });
  add(
      "16 samples of sound",
      [](const Library& library) {
        play(64, 297, 1, {{{1, 1, 2}, {0, 1}}});
        return [detector = hold<kel_nn::CryDetector>(library), samples = std::vector<int16_t>(16)] {
          detector->add(samples.data(), 16,
                        [](float probability) { benchmark::DoNotOptimize(probability); });
        };
      },
      [](const Library& library) {
        play(64, 297, 1, {{{1, 1, 2}, {0, 1}}});
        return [detector = hold<kel_nn::CryDetector>(library), handle = library.handle(),
                samples = std::vector<int16_t>(16)] {
          float probability = 0;
          kel_nn_crydet_process(handle, samples.data(), 16, &probability);
          benchmark::DoNotOptimize(probability);
        };
      });
  add(
      "motion in 16x16",
      [](const Library& library) {
        return [filter = hold<kel_nn::MotionFilter>(library)] {
          benchmark::DoNotOptimize(filter->take(pixels().data(), {16, 16}));
        };
      },
      [](const Library& library) {
        kel_nn_pir_filter_init(library.handle(), 16, 16);
        return [handle = library.handle()] {
          int32_t motion = -1;
          kel_nn_pir_filter_process(handle, pixels().data(), 16, 16, 1.0f, 25, &motion);
          benchmark::DoNotOptimize(motion);
        };
      });
  return 0;
}();

}  // namespace
