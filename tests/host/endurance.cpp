// SPDX-License-Identifier: Apache-2.0
// Works for a long time, and prints a line for each pass with a digest of all that was found. Each pass is shown the same:
// kelnn_endurance MODELS frames PASSES FRAMES   loads each task in turn, shows it so many frames, and releases it
// kelnn_endurance MODELS sound HOURS            an hour a pass, in chunks of odd lengths
// scripts/endurance.py looks at its memory, descriptors and threads meanwhile.
#include <cinttypes>
#include <cstdio>
#include <kel_nn.hpp>
#include <random>
#include <string>

#include "support/patches.h"

namespace {

using namespace kel_nn;
using namespace kelnn_test;

const cv::Size kFrameSize(640, 360);

class Digest {
 public:
  template <typename Value>
  void add(const Value& value) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&value);
    for (size_t i = 0; i < sizeof(value); ++i) state_ = (state_ ^ bytes[i]) * 0x100000001b3u;
  }
  void add(const std::vector<Detection>& found) {
    for (const Detection& one : found) add(one);
    boxes_ += found.size();
  }
  void print(int pass) const {
    std::fprintf(stderr, "%d %016" PRIx64 " %zu %zu\n", pass, state_, results_, boxes_);
  }
  void count() { ++results_; }

 private:
  uint64_t state_ = 0xcbf29ce484222325u;
  size_t results_ = 0, boxes_ = 0;
};

std::vector<cv::Mat> make_frames() {
  std::vector<cv::Mat> frames;
  cv::RNG noise(7);
  for (int i = 0; i < 16; ++i) {
    cv::Mat frame(kFrameSize, CV_8UC3);
    noise.fill(frame, cv::RNG::UNIFORM, 40, 90);
    const Patch near = {kRed, 2 + i % 8, 1 + i % 4}, far = {kBlue, 3 + i, 2 + i % 9};
    if (i % 4 != 0) paint(&frame, on_grid(kFrameSize, near), kRed);
    if (i % 3 == 0) paint(&frame, on_face_level(kFrameSize, {kRed, 10, i % 12}), kRed);
    if (i % 2 == 0) paint(&frame, on_grid(kFrameSize, far), kBlue);
    frames.push_back(frame);
  }
  return frames;
}

template <typename Show>
void show(const std::vector<cv::Mat>& frames, int count, Digest* digest, Show&& task) {
  for (int i = 0; i < count; ++i) {
    const cv::Mat& mat = frames[static_cast<size_t>(i) % frames.size()];
    digest->add(task(Frame::bgr(mat.data, mat.cols, mat.rows)));
    digest->count();
  }
}

void see(const Library& library, const std::vector<cv::Mat>& frames, int count, Digest* digest) {
  const Size size = {kFrameSize.width, kFrameSize.height};
  const Rect part = {100, 60, 200, 200};
  FaceDetector faces(library, size);
  show(frames, count, digest, [&](const Frame& f) { return faces.detect(f); });
  PersonDetector persons(library, size);
  show(frames, count, digest, [&](const Frame& f) { return persons.detect(f); });
  ObjectDetector objects(library, size);
  show(frames, count, digest, [&](const Frame& f) { return objects.detect(f); });
  FaceLandmarks landmarks(library);
  show(frames, count, digest, [&](const Frame& f) { return landmarks.of(f, part).points; });
  FaceFeatures features(library);
  show(frames, count / 8, digest, [&](const Frame& f) { return features.of(f, part); });
  FaceClassifier face_class(library);
  show(frames, count, digest, [&](const Frame& f) { return face_class.of(f, part).score; });
  PersonClassifier person_class(library);
  show(frames, count, digest, [&](const Frame& f) { return person_class.of(f, part); });
  MotionFilter motion(library);
  show(frames, count, digest,
       [&](const Frame& f) { return motion.take(f.view().data, size).value_or(false); });
}

// Noise that swells and fades, some windows below the gate.
void hear(CryDetector* cries, Digest* digest) {
  constexpr size_t kHour = size_t{3600} * kSoundRate;
  std::minstd_rand random(3);
  std::vector<int16_t> chunk;
  for (size_t done = 0; done < kHour; done += chunk.size()) {
    chunk.resize(std::min<size_t>(1 + random() % 9973, kHour - done));
    const int volume = static_cast<int>(done / (7 * kSoundRate) % 5) * 2500 + 1;
    for (int16_t& sample : chunk)
      sample = static_cast<int16_t>(static_cast<int>(random() >> 8) % volume);
    cries->add(chunk.data(), chunk.size(), [&](float probability) {
      digest->add(probability);
      digest->count();
    });
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4 || !std::freopen("/dev/null", "w", stdout)) return 2;
  const Library library(argv[1]);
  const std::vector<cv::Mat> frames = make_frames();
  const int passes = std::stoi(argv[3]), count = argc > 4 ? std::stoi(argv[4]) : 0;
  for (int pass = 0; pass < passes; ++pass) {
    Digest digest;
    if (std::string(argv[2]) == "sound") {
      CryDetector cries(library);
      hear(&cries, &digest);
    } else {
      see(library, frames, count, &digest);
    }
    digest.print(pass);
  }
  return 0;
}
