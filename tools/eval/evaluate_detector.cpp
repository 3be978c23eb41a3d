// SPDX-License-Identifier: Apache-2.0
// kelnn eval for faces, persons and objects: boxes that were found beside boxes that were labelled.
#include <fmt/format.h>

#include <map>

#include "detector.h"
#include "drawing.h"
#include "evaluation.h"
#include "figures.h"
#include "picture.h"

namespace kelnn_cli {
namespace {

const LabelColumns kColumns = {{"file", "class", "x", "y", "w", "h"}, {}};
enum Column : size_t { kFile, kClass, kX, kY, kWidth, kHeight };

struct LabelledPicture {
  std::string file, path;
  std::vector<Truth> truths;
  std::vector<LabelRow> rows;  // of the truths
};

Truth truth_of(const LabelRow& row, int class_count) {
  const Truth truth = {{row.number(kX), row.number(kY), row.number(kWidth), row.number(kHeight)},
                       row.whole_number(kClass, class_count - 1)};
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
    if (is_new) pictures.push_back({row.file(), path_of(directory, row), {}, {}});
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

// Of frames; each may have a model of its own.
int orientation_of(cv::Size size) {
  return (size.width > size.height) - (size.width < size.height);
}

// What is found in each picture. Those that need the first one's model are looked at in passing, the
// others orientation by orientation, so that every model is loaded once.
std::vector<DetectedPicture> look_at(const EvaluationSettings& settings,
                                     decltype(make_face_detector)* make_detector,
                                     const std::vector<LabelledPicture>& pictures) {
  const kel_nn::Library library(settings.root);
  const std::unique_ptr<Detector> detector = make_detector(library);
  ProgressBar progress(settings.task, static_cast<int64_t>(pictures.size()), "files",
                       settings.wants_progress);
  int64_t done = 0;
  std::vector<DetectedPicture> found(pictures.size());
  const auto look = [&](size_t i, const cv::Mat& bgr) {
    found[i] = {pictures[i].truths, detector->detect(bgr)};
    for (const Detection& one : found[i].found) check_is_number(one.score, pictures[i].path);
    progress.show(++done);
  };
  std::map<int, std::vector<size_t>> later;
  for (size_t i = 0; i < pictures.size(); ++i) {
    const cv::Mat bgr = load_picture(pictures[i].path);
    check_inside(pictures[i], bgr.size());
    if (i == 0 || detector->is_ready_for(bgr.size())) {
      look(i, bgr);
    } else {
      later[orientation_of(bgr.size())].push_back(i);
    }
  }
  for (const auto& [orientation, indices] : later) {
    for (const size_t i : indices) look(i, load_picture(pictures[i].path));
  }
  return found;
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
    const Detection& one = picture.found[i];
    draw_box(&result, one.box, fmt::format("{}{:.2f}", class_text(one.class_id), one.score),
             ious[i] > 0 ? kMatchColour : kFalseColour);
  }
  return result;
}

void add_classes(const std::vector<DetectionFigures>& classes, Report* report) {
  Table table = {"classes",
                 {{"class", "class"},
                  {"labelled", "labelled"},
                  {"found", "found"},
                  {"matches", "matches"},
                  {"average_precision", "average precision"},
                  {"precision", "precision"},
                  {"recall", "recall"},
                  {"mean_iou", "mean IoU"}},
                 {}};
  for (const DetectionFigures& one : classes) {
    table.rows.push_back({table.rows.size(), one.truths, one.found, one.matches,
                          one.average_precision, one.precision, one.recall, one.mean_iou});
  }
  const std::string text_before = report->text;
  add_table(table, report);
  if (classes.size() == 1) report->text = text_before;  // one line says nothing new
}

Report report_of(const EvaluationSettings& settings, const DetectionEvaluation& evaluation,
                 size_t picture_count) {
  const DetectionFigures& all = evaluation.all;
  Report report = begin_report(settings, picture_count, "pictures");
  report.json["labelled"] = all.truths;
  report.json["found"] = all.found;
  report.json["matches"] = all.matches;
  report.text += fmt::format("{} boxes labelled, {} found, {} of them match\n", all.truths,
                             all.found, all.matches);
  add_figures({{{"mean_average_precision", "mean average precision"}, all.average_precision},
               {{"precision", "precision"}, all.precision},
               {{"recall", "recall"}, all.recall},
               {{"false_detections_per_picture", "false detections a picture"},
                evaluation.false_detections_per_picture},
               {{"mean_iou", "mean IoU of the matches"}, all.mean_iou}},
              &report);
  add_classes(evaluation.classes, &report);
  return report;
}

}  // namespace

Report evaluate_detector(const EvaluationSettings& settings,
                         decltype(make_face_detector)* make_detector, int class_count) {
  const std::vector<LabelledPicture> pictures = read_pictures(settings.data, class_count);
  const std::vector<DetectedPicture> detected = look_at(settings, make_detector, pictures);
  std::vector<std::string> files;
  std::vector<double> badness;
  for (size_t i = 0; i < pictures.size(); ++i) {
    files.push_back(pictures[i].file);
    badness.push_back(static_cast<double>(mistakes(detected[i])));
  }
  draw_worst(settings, files, badness, [&](size_t i) {
    return drawn(load_picture(pictures[i].path), detected[i], class_count > 1);
  });
  return report_of(settings, evaluate_detections(detected, class_count), pictures.size());
}

}  // namespace kelnn_cli
