// SPDX-License-Identifier: Apache-2.0
// Two threads: one owns the library, the other hands it pictures through a queue.
//
//     worker MODELS PICTURE.ppm...
//
// The library is for one thread at a time, so one thread makes it, calls it and ends it, and no lock is
// held while a network runs. The others only touch the queue. Prints, of each picture, the things of
// four classes, each person and whether the other network takes it for one, and each face's class.
//
// Build: make build/worker   Run: README.md
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "kel_nn.hpp"
#include "ppm.h"
#include "program.h"

namespace {

// What the sample networks' classes are.
constexpr const char* kThings[] = {"cat", "dog", "car", "parcel"};
constexpr const char* kFaces[] = {"open", "mouth covered", "sunglasses"};

constexpr float kSure = 0.5f;  // detectors give less, too

struct Picture {
  std::string name;
  std::unique_ptr<uint8_t, decltype(&std::free)> pixels;
  int width, height;
};

// Holds so many pictures; who has one more waits. A camera, which cannot wait, would drop the oldest.
class Queue {
 public:
  // false: nobody takes pictures any more.
  bool put(Picture picture) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return pictures_.size() < kCapacity || is_closed_; });
    if (is_closed_) return false;
    pictures_.push_back(std::move(picture));
    changed_.notify_all();
    return true;
  }

  // Nothing: the queue is closed and empty.
  std::optional<Picture> take() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return !pictures_.empty() || is_closed_; });
    if (pictures_.empty()) return std::nullopt;
    std::optional<Picture> first(std::move(pictures_.front()));
    pictures_.pop_front();
    changed_.notify_all();
    return first;
  }

  // From either side.
  void close() {
    const std::lock_guard<std::mutex> lock(mutex_);
    is_closed_ = true;
    changed_.notify_all();
  }

 private:
  static constexpr size_t kCapacity = 4;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Picture> pictures_;
  bool is_closed_ = false;
};

// All of the library, in the thread that calls this.
void work(const std::string& models, Queue& queue, FILE* out) {
  const kel_nn::Library library(models);
  std::optional<Picture> picture = queue.take();
  if (!picture) return;
  const kel_nn::Size size = {picture->width, picture->height};  // others may have any
  kel_nn::ObjectDetector objects(library, size);
  kel_nn::PersonDetector persons(library, size);
  kel_nn::PersonClassifier person_classifier(library);
  kel_nn::FaceDetector faces(library);
  kel_nn::FaceClassifier face_classifier(library);
  for (; picture; picture = queue.take()) {
    const kel_nn::Frame frame =
        kel_nn::Frame::rgb(picture->pixels.get(), picture->width, picture->height);
    std::fprintf(out, "%s\n", picture->name.c_str());
    for (const kel_nn::Detection& object : objects.detect(frame)) {
      if (object.score < kSure) continue;
      std::fprintf(out, "  %s, score %.2f, at %d %d, %d x %d\n", kThings[object.class_id],
                   object.score, object.box.x, object.box.y, object.box.w, object.box.h);
    }
    for (const kel_nn::Detection& person : persons.detect(frame)) {
      if (person.score < kSure) continue;
      std::fprintf(out, "  person, score %.2f, cut out %.2f\n", person.score,
                   person_classifier.of(frame, person.box));
    }
    for (const kel_nn::Detection& face : faces.detect(frame)) {
      const kel_nn::FaceClass kind = face_classifier.of(frame, face.box);
      std::fprintf(out, "  face, score %.2f, %s %.2f\n", face.score, kFaces[kind.id], kind.score);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return std::fprintf(stderr, "usage: %s MODELS PICTURE.ppm...\n", argv[0]), 2;
  FILE* const out = own_output();
  if (!out) return 1;
  Queue queue;
  int result = 0;
  std::thread worker([&] {
    try {
      work(argv[1], queue, out);
    } catch (const std::exception& error) {  // out of a thread it would end the program
      std::fprintf(stderr, "%s\n", error.what());
      result = 1;
    }
    queue.close();
  });
  bool is_wanted = true, is_read = true;
  for (int i = 2; i < argc && is_wanted && is_read; ++i) {
    int width, height;
    uint8_t* pixels = read_ppm(argv[i], &width, &height);
    is_read = pixels != nullptr;
    if (is_read) is_wanted = queue.put({argv[i], {pixels, &std::free}, width, height});
  }
  queue.close();
  worker.join();
  return is_read ? result : 1;
}
