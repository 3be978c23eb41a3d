#include "detector.h"

#include "files.h"
#include "kel_nn.h"
#include "kel_nn_kit.h"
#include "model_inspection.h"
#include "report.h"

namespace kelnn_cli {
namespace {

constexpr kel_nn_size_t kFaceInput = {320, 240};

struct Handle {
  Handle() : value(kel_nn_handle_create()) {
    if (!value) throw Failure("out of memory");
  }
  ~Handle() { kel_nn_handle_destroy(value); }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  kel_nn_handle_t value;
};

[[noreturn]] void fail_to_load(const std::string& task, const std::string& root) {
  const Inspection why = inspect_model(*find_task(task), root);
  throw Failure(task + " has no model that can be used: " + why.path + "\n" + why.problem + "\n" +
                "To do: " + why.command);
}

void check(int kit_result, const cv::Mat& bgr) {
  if (kit_result == 0) return;
  throw Failure(kit_result == KEL_NN_KIT_NO_MEMORY
                    ? "out of memory"
                    : "a frame of " + std::to_string(bgr.cols) + " x " + std::to_string(bgr.rows) +
                          " pixels; the longest side is " + std::to_string(KEL_NN_KIT_MAX_SIDE));
}

void check_run(int result) {
  if (result != 0) throw Failure("the network failed, see above");
}

kel_nn_kit_frame_t as_frame(const cv::Mat& bgr) {
  return {bgr.data, bgr.cols, bgr.rows, static_cast<int>(bgr.step), KEL_NN_KIT_BGR, nullptr};
}

// What the models are given: red first.
class Input {
 public:
  ~Input() { kel_nn_kit_scratch_free(&scratch_); }
  kel_nn_kit_image_t of_size(kel_nn_size_t size) {
    bytes_.resize(size_t(size.w) * size_t(size.h) * 3);
    return {bytes_.data(), size.w, size.h, KEL_NN_KIT_RGB, &scratch_};
  }

 private:
  Bytes bytes_;
  kel_nn_kit_scratch_t scratch_ = {nullptr, 0};
};

std::vector<Detection> detections(const kel_nn_box_t* boxes, int count) {
  std::vector<Detection> all;
  for (int i = 0; i < count; ++i) {
    const kel_nn_kit_rect_t rect = kel_nn_kit_rect_of_box(&boxes[i]);
    if (rect.w <= 0 || rect.h <= 0) continue;  // of what lies outside the frame nothing is left
    all.push_back({{rect.x, rect.y, rect.w, rect.h}, boxes[i].score, boxes[i].class_id});
  }
  return all;
}

class FaceDetector : public Detector {
 public:
  explicit FaceDetector(const std::string& root) : root_(root) {}
  ~FaceDetector() override { kel_nn_facedet_deinit(handle_.value); }

  std::vector<Detection> detect(const cv::Mat& bgr) override {
    if (!is_ready_for(bgr.size())) init(bgr.size());
    const kel_nn_kit_frame_t frame = as_frame(bgr);
    const kel_nn_kit_image_t image = input_.of_size(kFaceInput);
    check(kel_nn_kit_scale(&frame, &image), bgr);
    kel_nn_facedet_result_t faces;
    check_run(kel_nn_facedet_process(handle_.value, image.data, &faces));
    return detections(faces.boxes, faces.count);
  }
  bool is_ready_for(cv::Size frame_size) const override { return frame_size == frame_size_; }

 private:
  // Boxes are scaled to the size that init is given.
  void init(cv::Size size) {
    frame_size_ = {};
    kel_nn_facedet_deinit(handle_.value);
    if (kel_nn_facedet_init(handle_.value, size.width, size.height) != 0) {
      kel_nn_facedet_deinit(handle_.value);
      fail_to_load("face-detection", root_);
    }
    frame_size_ = size;
  }

  std::string root_;
  Handle handle_;
  Input input_;
  cv::Size frame_size_;  // none: not initialised
};

// Person and four-class detection differ in nothing but their functions and models.
struct GridTask {
  const char* key;  // before the orientation
  decltype(kel_nn_persondet_init)* init;
  decltype(kel_nn_persondet_deinit)* deinit;
  decltype(kel_nn_persondet_process)* process;
};
constexpr GridTask kPersons = {"person-detection-", kel_nn_persondet_init, kel_nn_persondet_deinit,
                               kel_nn_persondet_process};
constexpr GridTask kObjects = {"four-class-detection-", kel_nn_4clsdet_init, kel_nn_4clsdet_deinit,
                               kel_nn_4clsdet_process};

const char* orientation_of(cv::Size size) {
  if (size.height < size.width) return "landscape";
  return size.height == size.width ? "square" : "portrait";
}

class GridDetector : public Detector {
 public:
  GridDetector(const GridTask& task, const std::string& root) : task_(task), root_(root) {}
  ~GridDetector() override { task_.deinit(handle_.value); }

  std::vector<Detection> detect(const cv::Mat& bgr) override {
    if (!is_ready_for(bgr.size())) init(bgr.size());
    const kel_nn_size_t frame_size = {bgr.cols, bgr.rows};
    const kel_nn_size_t input_size = kel_nn_kit_detector_input(bgr.cols, bgr.rows);
    const kel_nn_kit_frame_t frame = as_frame(bgr);
    const kel_nn_kit_image_t image = input_.of_size(input_size);
    check(kel_nn_kit_letterbox(&frame, &image), bgr);
    kel_nn_det_result_t found;
    check_run(task_.process(handle_.value, image.data, &found, &frame_size, &input_size));
    return detections(found.boxes, found.count);
  }
  bool is_ready_for(cv::Size frame_size) const override {
    return orientation_of(frame_size) == orientation_;
  }

 private:
  // Every orientation has its own model.
  void init(cv::Size size) {
    orientation_.clear();
    task_.deinit(handle_.value);
    if (task_.init(handle_.value, size.width, size.height) != 0) {
      task_.deinit(handle_.value);
      fail_to_load(std::string(task_.key) + orientation_of(size), root_);
    }
    orientation_ = orientation_of(size);
  }

  const GridTask& task_;
  std::string root_;
  Handle handle_;
  Input input_;
  std::string orientation_;  // none: not initialised
};

std::string set_root(const std::string& directory) {
  std::string root = with_slash(directory);
  kel_nn_set_model_root_dir(root.c_str());
  return root;
}

}  // namespace

std::unique_ptr<Detector> make_face_detector(const std::string& root) {
  return std::make_unique<FaceDetector>(set_root(root));
}

std::unique_ptr<Detector> make_object_detector(const std::string& root) {
  return std::make_unique<GridDetector>(kObjects, set_root(root));
}

std::unique_ptr<Detector> make_person_detector(const std::string& root) {
  return std::make_unique<GridDetector>(kPersons, set_root(root));
}

std::string person_task(cv::Size frame_size) {
  return std::string(kPersons.key) + orientation_of(frame_size);
}

}  // namespace kelnn_cli
