// SPDX-License-Identifier: Apache-2.0
#include "task_catalogue.h"

#include <fmt/format.h>

#include "kel_nn_model_files.h"

namespace kelnn_cli {
namespace {

// Scores and regressions of every level: columns, rows, anchors per cell.
std::vector<Output> face_detection_outputs() {
  constexpr size_t kLevels[][3] = {{40, 30, 3}, {20, 15, 2}, {10, 8, 2}, {5, 4, 3}};
  std::vector<Output> outputs;
  for (const auto& [columns, rows, anchors_per_cell] : kLevels) {
    const size_t anchors = columns * rows * anchors_per_cell;
    const size_t level = outputs.size() / 2;
    outputs.push_back({fmt::format("level {}: scores", level), anchors * 2, false, 2});
    outputs.push_back({fmt::format("level {}: regressions", level), anchors * 4, false, 4});
  }
  return outputs;
}

// Three frame shapes of one detector over two grids, of strides 32 and 16, with three anchors in
// each cell.
void add_grid_detector(std::vector<Task>* tasks, const char* const (&keys)[3], const char* purpose,
                       const char* const (&file_names)[3], size_t values_per_anchor) {
  constexpr size_t kInputs[][2] = {{256, 416}, {320, 320}, {416, 256}};  // height, width
  for (int i = 0; i < 3; ++i) {
    const auto [height, width] = kInputs[i];
    Task task = {keys[i], purpose, file_names[i], height, width, 3, {}};
    for (const size_t stride : {32, 16}) {
      const size_t rows = height / stride, columns = width / stride;
      task.outputs.push_back({fmt::format("grid of {} rows of {} cells", rows, columns),
                              rows * columns * 3 * values_per_anchor, false, values_per_anchor});
    }
    tasks->push_back(task);
  }
}

std::vector<Task> make_tasks() {
  using namespace kelnn;  // the file names
  std::vector<Task> all;
  const auto add = [&all](const char* key, const char* purpose, const char* file, size_t height,
                          size_t width, size_t channels, const std::vector<Output>& outputs) {
    all.push_back({key, purpose, file, height, width, channels, outputs});
  };
  add("face-detection", "Where are faces? Boxes in a colour picture.", kFaceDetectionModel, 240,
      320, 3, face_detection_outputs());
  add("face-landmarks", "Where are eyes, nose and mouth, and which way does the face look?",
      kFaceLandmarksModel, 112, 112, 1, {{"five points: x, y", 10, true}, {"pose", 3, true}});
  add("face-features", "Who is it? Numbers to compare faces by.", kFaceFeatureModel, 112, 112, 1,
      {{"features", 256}});
  add("face-classes", "Which of three classes is a face?", kFaceClassifyModel, 112, 112, 1,
      {{"a score for each class", 3}});
  add_grid_detector(
      &all, {"person-detection-landscape", "person-detection-square", "person-detection-portrait"},
      "Where are people? Boxes in a colour picture.",
      {kPersonDetectionLandscapeModel, kPersonDetectionSquareModel, kPersonDetectionPortraitModel},
      6);
  add("person-classes", "Is it a person?", kPersonClassifyModel, 112, 112, 3,
      {{"a score for each class", 2}});
  add_grid_detector(&all,
                    {"four-class-detection-landscape", "four-class-detection-square",
                     "four-class-detection-portrait"},
                    "Where are objects of four classes? Boxes in a colour picture.",
                    {kFourClassLandscapeModel, kFourClassSquareModel, kFourClassPortraitModel}, 9);
  add("cry-detection", "Does a baby cry? Three seconds of sound as 297 frames of 64 filter banks.",
      kCryDetectionModel, 297, 64, 1, {{"scores: no cry, cry", 2}});
  return all;
}

}  // namespace

const std::vector<Task>& tasks() {
  static const std::vector<Task> all = make_tasks();
  return all;
}

const Task* find_task(const std::string& key) {
  for (const Task& task : tasks()) {
    if (key == task.key) return &task;
  }
  return nullptr;
}

std::string onnx_input(size_t height, size_t width, size_t channels) {
  return fmt::format("[1, {}, {}, {}]", channels, height, width);
}

}  // namespace kelnn_cli
