// SPDX-License-Identifier: Apache-2.0
#include "detector.h"

#include <optional>

#include "library_call.h"

namespace kelnn_cli {
namespace {

template <typename Task>
class LazyDetector : public Detector {
 public:
  explicit LazyDetector(const kel_nn::Library& library) : library_(library) {}

  std::vector<Detection> detect(const cv::Mat& bgr) override {
    if (!task_) task_.emplace(library_, size_of(bgr));
    std::vector<Detection> found;
    for (const auto& [box, score, class_id] : task_->detect(frame_of(bgr))) {
      found.push_back({{box.x, box.y, box.w, box.h}, score, class_id});
    }
    return found;
  }
  bool is_ready_for(cv::Size frame_size) const override {
    return task_ && task_->is_ready_for({frame_size.width, frame_size.height});
  }

 private:
  const kel_nn::Library& library_;
  std::optional<Task> task_;  // none: there was no frame yet
};

}  // namespace

std::unique_ptr<Detector> make_face_detector(const kel_nn::Library& library) {
  return std::make_unique<LazyDetector<kel_nn::FaceDetector>>(library);
}

std::unique_ptr<Detector> make_object_detector(const kel_nn::Library& library) {
  return std::make_unique<LazyDetector<kel_nn::ObjectDetector>>(library);
}

std::unique_ptr<Detector> make_person_detector(const kel_nn::Library& library) {
  return std::make_unique<LazyDetector<kel_nn::PersonDetector>>(library);
}

std::string person_task(cv::Size frame_size) {
  const int difference = frame_size.width - frame_size.height;
  return std::string("person-detection-") + (difference > 0   ? "landscape"
                                             : difference < 0 ? "portrait"
                                                              : "square");
}

}  // namespace kelnn_cli
