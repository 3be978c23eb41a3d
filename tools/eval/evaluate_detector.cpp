// SPDX-License-Identifier: Apache-2.0
// kelnn eval for faces, persons and objects: boxes that were found beside boxes that were labelled.
#include <fmt/format.h>

#include <memory>
#include <optional>

#include "drawing.h"
#include "evaluation.h"
#include "figures.h"
#include "library_call.h"
#include "picture.h"

namespace kelnn_cli {
namespace {

const LabelColumns kColumns = {{"file", "class", "x", "y", "w", "h"}, {}};
enum BoxColumn : size_t { kFile, kClass, kX, kY, kWidth, kHeight };

struct LabelledPicture {
  std::string file;
  std::vector<Truth> truths;
  std::vector<LabelRow> rows;  // of the truths
};

Truth truth_of(const LabelRow& row, int class_count) {
  const Truth truth = {
      {row.number(kX), row.number(kY), row.number(kWidth), row.number(kHeight)},
      row.text(kClass) == "ignore" ? kIgnored : row.whole_number(kClass, class_count - 1)};
  if (truth.box.width <= 0 || truth.box.height <= 0) row.fail("a box without an area");
  return truth;
}

// Rows of one file follow each other.
std::vector<LabelledPicture> read_pictures(const std::string& directory, int class_count) {
  std::vector<LabelledPicture> pictures;
  bool was_empty = false;
  for (const LabelRow& row : read_labels(directory, kColumns, RowsPerFile::kMany).rows) {
    const bool is_new = pictures.empty() || pictures.back().file != row.file();
    const bool is_empty = row.is_empty_from(kClass);
    if (!is_new && (is_empty || was_empty)) {
      row.fail(row.file() + " is a picture without objects here or in another line");
    }
    if (is_new) pictures.push_back({row.file(), {}, {}});
    was_empty = is_empty;
    if (is_empty) continue;
    pictures.back().truths.push_back(truth_of(row, class_count));
    pictures.back().rows.push_back(row);
  }
  return pictures;
}

// So that labels in another unit, or of another picture, are noticed.
void check_inside(const LabelledPicture& picture, cv::Size size) {
  for (size_t i = 0; i < picture.truths.size(); ++i) {
    if ((picture.truths[i].box & cv::Rect2d({0, 0}, cv::Size2d(size))).empty()) {
      picture.rows[i].fail(
          fmt::format("the box is outside the picture, which is {} x {}", size.width, size.height));
    }
  }
}

// What is found in each picture. Those that another model is for than the one that is loaded come later, so that
// every model is loaded once.
template <typename Task>
std::vector<DetectedPicture> look_at(const EvaluationSettings& settings,
                                     const std::vector<LabelledPicture>& pictures) {
  using Found = std::vector<kel_nn::Detection>;
  const auto begin = [&]() -> LookAt<Found> {
    const auto library = std::make_shared<kel_nn::Library>(settings.root);
    const auto task = std::make_shared<std::optional<Task>>();
    return [&, library, task](size_t i, bool is_first) -> std::optional<Found> {
      const std::string path = path_of(settings.data, pictures[i].file);
      const cv::Mat bgr = load_picture(path);
      check_inside(pictures[i], bgr.size());
      if (!*task) task->emplace(*library, size_of(bgr));
      if (!is_first && !(*task)->is_ready_for(size_of(bgr))) return std::nullopt;
      const Found found = (*task)->detect(frame_of(bgr));
      for (const kel_nn::Detection& one : found) check_are_numbers(std::array{one.score}, path);
      return found;
    };
  };
  std::vector<DetectedPicture> detected;
  for (const Found& found : found_in_files<kel_nn::Detection>(settings, pictures.size(), begin)) {
    detected.push_back(without_ignored({pictures[detected.size()].truths, found}));
  }
  return detected;
}

constexpr int kTruthColour = 0, kMatchColour = 2, kFalseColour = 1;

size_t mistakes(const DetectedPicture& picture) {
  size_t matches = 0;
  for (const double iou : match(picture)) matches += iou > 0;
  return picture.truths.size() + picture.found.size() - 2 * matches;
}

cv::Mat drawn(const cv::Mat& bgr, const DetectedPicture& picture, bool has_classes) {
  const auto class_text = [=](int id) { return has_classes ? std::to_string(id) + " " : ""; };
  cv::Mat result = bgr.clone();
  const cv::Rect2d frame({0, 0}, cv::Size2d(bgr.size()));
  for (const Truth& truth : picture.truths) {
    draw_box(&result, truth.box & frame, class_text(truth.class_id), kTruthColour);
  }
  const std::vector<double> ious = match(picture);
  for (size_t i = 0; i < ious.size(); ++i) {
    const kel_nn::Detection& one = picture.found[i];
    draw_box(&result, cv_rect(one.box),
             fmt::format("{}{:.2f}", class_text(one.class_id), one.score),
             ious[i] > 0 ? kMatchColour : kFalseColour);
  }
  return result;
}

Json json_of(const DetectionFigures& figures, const char* average_precision) {
  return {{"labelled", figures.truths},     {"found", figures.found},
          {"matches", figures.matches},     {average_precision, figures.average_precision},
          {"precision", figures.precision}, {"recall", figures.recall},
          {"mean_iou", figures.mean_iou}};
}

}  // namespace

template <typename Task, int kClassCount>
Evaluation evaluate_detector(const EvaluationSettings& settings) {
  const std::vector<LabelledPicture> pictures = read_pictures(settings.data, kClassCount);
  const std::vector<DetectedPicture> detected = look_at<Task>(settings, pictures);
  std::vector<std::string> files;
  std::vector<double> badness;
  for (size_t i = 0; i < pictures.size(); ++i) {
    files.push_back(pictures[i].file);
    badness.push_back(static_cast<double>(mistakes(detected[i])));
  }
  const DetectionEvaluation figures = evaluate_detections(detected, kClassCount);
  Json report = {{"task", settings.task}, {"data", settings.data}, {"pictures", pictures.size()}};
  report.update(json_of(figures.all, "mean_average_precision"));
  report["false_detections_per_picture"] = figures.false_detections_per_picture;
  report["classes"] = Json::array();
  for (const DetectionFigures& one : figures.classes) {
    report["classes"].push_back({{"class", report["classes"].size()}});
    report["classes"].back().update(json_of(one, "average_precision"));
  }
  return {report, [=] {
            draw_worst(settings, files, badness, [&](size_t i) {
              const cv::Mat picture = load_picture(path_of(settings.data, files[i]));
              return drawn(picture, detected[i], kClassCount > 1);
            });
          }};
}

template Evaluation evaluate_detector<kel_nn::FaceDetector, 1>(const EvaluationSettings&);
template Evaluation evaluate_detector<kel_nn::PersonDetector, 1>(const EvaluationSettings&);
template Evaluation evaluate_detector<kel_nn::ObjectDetector, 4>(const EvaluationSettings&);

}  // namespace kelnn_cli
