// SPDX-License-Identifier: Apache-2.0
// kelnn eval for the tasks on a 112 x 112 cut-out: landmarks, features and classes. As in the
// commands, a picture that is not square is cut to the square in its middle.
#include <fmt/format.h>

#include <cmath>
#include <opencv2/imgproc.hpp>

#include "drawing.h"
#include "evaluation.h"
#include "figures.h"
#include "library_call.h"
#include "picture.h"

namespace kelnn_cli {
namespace {

// A picture, and which part of it is looked at.
struct Square {
  explicit Square(const std::string& path)
      : picture(load_picture(path)), part(chosen_part(path, picture, {})) {}
  cv::Mat picture;
  cv::Rect part;
};

// ----- Landmarks

const LabelColumns kLandmarkColumns = {
    {"file", "x1", "y1", "x2", "y2", "x3", "y3", "x4", "y4", "x5", "y5"}, {"yaw", "pitch", "roll"}};
constexpr size_t kFirstPoint = 1, kFirstAngle = 11;
constexpr double kDegrees = 180 / CV_PI;
constexpr int kLeastDrawnSide = 448;
const cv::Scalar kTruthColour(80, 220, 60), kFoundColour(60, 170, 255);  // blue, green, red

struct LabelledFace {
  std::string file, path;
  std::vector<cv::Point2d> points;  // pixels of the picture
  std::vector<double> pose;         // degrees; empty: not labelled
};

LabelledFace face_of(const std::string& directory, const LabelRow& row, bool has_pose) {
  LabelledFace face = {row.file(), path_of(directory, row), {}, {}};
  for (size_t i = 0; i < kPointCount; ++i) {
    face.points.emplace_back(row.number(kFirstPoint + 2 * i), row.number(kFirstPoint + 2 * i + 1));
  }
  for (size_t i = 0; has_pose && i < kAngleCount; ++i) {
    face.pose.push_back(row.number(kFirstAngle + i));
  }
  return face;
}

FaceErrors errors_of(const LabelledFace& face, const kel_nn::Landmarks& found,
                     const cv::Rect& part) {
  FaceErrors errors = {{}, {}, !face.pose.empty()};
  const std::vector<cv::Point2d> pixels = pixels_of(found, part);
  for (size_t i = 0; i < kPointCount; ++i) {
    errors.points[i] = cv::norm(pixels[i] - face.points[i]) / part.width;
  }
  for (size_t i = 0; errors.has_pose && i < kAngleCount; ++i) {
    errors.pose[i] = angle_between(face.pose[i], double{found.pose[i]} * kDegrees);
  }
  return errors;
}

cv::Mat drawn(const LabelledFace& face, const kel_nn::Landmarks& found) {
  auto [picture, part] = Square(face.path);
  const int factor = 1 + (kLeastDrawnSide - 1) / part.width;
  cv::resize(picture, picture, {}, factor, factor, cv::INTER_NEAREST);
  const auto enlarged = [factor](std::vector<cv::Point2d> points) {
    for (cv::Point2d& point : points) point *= factor;
    return points;
  };
  const int radius = part.width * factor / 80;
  draw_points(&picture, enlarged(face.points), kTruthColour, radius);
  draw_points(&picture, enlarged(pixels_of(found, part)), kFoundColour, radius);
  return picture;
}

Report report_of(const EvaluationSettings& settings, const LandmarkFigures& figures,
                 size_t face_count) {
  Report report = begin_report(settings, face_count, "pictures");
  add_figures({{{"mean_point_error", "mean point error, of the side"}, figures.mean},
               {{"percentile_95_point_error", "95 % of the points within"}, figures.percentile_95},
               {{"left_eye_error", "left eye in the picture"}, figures.points[0]},
               {{"right_eye_error", "right eye in the picture"}, figures.points[1]},
               {{"nose_error", "nose tip"}, figures.points[2]},
               {{"left_mouth_error", "left mouth corner"}, figures.points[3]},
               {{"right_mouth_error", "right mouth corner"}, figures.points[4]},
               {{"yaw_error", "yaw, degrees"}, figures.pose[0]},
               {{"pitch_error", "pitch, degrees"}, figures.pose[1]},
               {{"roll_error", "roll, degrees"}, figures.pose[2]}},
              &report);
  return report;
}

// ----- Features

constexpr size_t kPerson = 1;  // the column

struct Similarities {
  std::vector<float> same, different;
};

// Of every pair.
Similarities compare(const std::vector<LabelRow>& rows,
                     const std::vector<kel_nn::Feature>& features) {
  Similarities all;
  for (size_t a = 0; a < rows.size(); ++a) {
    for (size_t b = a + 1; b < rows.size(); ++b) {
      const bool is_same = rows[a].text(kPerson) == rows[b].text(kPerson);
      (is_same ? all.same : all.different).push_back(kel_nn::similarity(features[a], features[b]));
    }
  }
  return all;
}

// ----- Classes

constexpr size_t kClass = 1;  // the column

void check_class(int id, int class_count, const std::string& path) {
  if (id < 0 || id >= class_count) throw Failure(path, fmt::format("class {} was found", id));
}

// `classify` gives the class of the part of a picture that is looked at.
template <typename Classify>
Report evaluate_classes(const EvaluationSettings& settings, int class_count,
                        const std::vector<LabelRow>& rows, const Classify& classify) {
  ConfusionMatrix confusion(class_count);
  for_each_file(settings, rows, [&](const LabelRow& row) {
    const std::string path = path_of(settings.data, row);
    const int found = classify(Square(path), path);
    check_class(found, class_count, path);
    confusion.add(row.whole_number(kClass, class_count - 1), found);
  });

  Report report = begin_report(settings, rows.size(), "pictures");
  add_figures({{{"accuracy", "accuracy"}, confusion.accuracy()}}, &report);
  std::vector<std::vector<Json>> lines = {{"class", "labelled", "recall"}};
  report.json["recall"] = Json::array();
  for (int id = 0; id < class_count; ++id) {
    lines[0].push_back(fmt::format("found as {}", id));
    std::vector<Json>& line = lines.emplace_back();
    line = {std::to_string(id), confusion.count(id), confusion.recall(id)};
    for (int found = 0; found < class_count; ++found) line.push_back(confusion.count(id, found));
    report.json["recall"].push_back(confusion.recall(id));
  }
  report.json["confusion"] = confusion.rows();
  report.text += text_of(lines);
  return report;
}

std::vector<LabelRow> read_classes(const std::string& directory, int class_count) {
  const Labels labels = read_labels(directory, {{"file", "class"}, {}}, RowsPerFile::kOne);
  for (const LabelRow& row : labels.rows)
    row.whole_number(kClass, class_count - 1);  // or a Failure
  return labels.rows;
}

constexpr int kFaceClassCount = 3, kPersonClassCount = 2;
constexpr float kPersonProbability = 0.5f;

}  // namespace

Report evaluate_landmarks(const EvaluationSettings& settings) {
  const Labels labels = read_labels(settings.data, kLandmarkColumns, RowsPerFile::kOne);
  std::vector<LabelledFace> faces;
  for (const LabelRow& row : labels.rows) {
    faces.push_back(face_of(settings.data, row, labels.has_optional));
  }
  kel_nn::FaceLandmarks landmarks{kel_nn::Library(settings.root)};
  std::vector<std::string> files;
  std::vector<kel_nn::Landmarks> found;
  std::vector<FaceErrors> errors;
  std::vector<double> badness;
  for_each_file(settings, faces, [&](const LabelledFace& face) {
    const Square square(face.path);
    files.push_back(face.file);
    found.push_back(landmarks.of(grey_cut_out(square.picture, square.part)));
    for (const float value : found.back().points) check_is_number(value, face.path);
    for (const float value : found.back().pose) check_is_number(value, face.path);
    errors.push_back(errors_of(face, found.back(), square.part));
    badness.push_back(errors.back().mean_point());
  });
  draw_worst(settings, files, badness, [&](size_t i) { return drawn(faces[i], found[i]); });
  return report_of(settings, landmark_figures(errors), faces.size());
}

Report evaluate_features(const EvaluationSettings& settings) {
  const Labels labels = read_labels(settings.data, {{"file", "person"}, {}}, RowsPerFile::kOne);
  kel_nn::FaceFeatures features{kel_nn::Library(settings.root)};
  std::vector<kel_nn::Feature> all;
  for_each_file(settings, labels.rows, [&](const LabelRow& row) {
    const std::string path = path_of(settings.data, row);
    const Square square(path);
    all.push_back(features.of(grey_cut_out(square.picture, square.part)));
    for (const float value : all.back()) check_is_number(value, path);
  });
  const Similarities similarities = compare(labels.rows, all);
  const size_t same = similarities.same.size(), different = similarities.different.size();
  const SimilarityFigures figures = similarity_figures(similarities.same, similarities.different);
  Report report = begin_report(settings, all.size(), "pictures");
  report.text +=
      fmt::format("{} pairs of the same person, {} of different ones\n", same, different);
  report.json["same_pairs"] = same;
  report.json["different_pairs"] = different;
  add_figures(
      {{{"equal_error_rate", "equal error rate"}, figures.equal_error_rate},
       {{"equal_error_threshold", "at a similarity of"}, figures.equal_error_threshold},
       {{"true_accept_rate", "true accept rate at 1 % false accepts"}, figures.true_accept_rate},
       {{"mean_same_similarity", "mean similarity, same person"}, figures.mean_same},
       {{"mean_different_similarity", "mean similarity, different persons"},
        figures.mean_different}},
      &report);
  return report;
}

Report evaluate_face_classes(const EvaluationSettings& settings) {
  const auto rows = read_classes(settings.data, kFaceClassCount);
  kel_nn::FaceClassifier classifier{kel_nn::Library(settings.root)};
  return evaluate_classes(
      settings, kFaceClassCount, rows, [&](const Square& square, const std::string& path) {
        const kel_nn::FaceClass found = classifier.of(grey_cut_out(square.picture, square.part));
        check_is_number(found.score, path);
        return found.id;
      });
}

Report evaluate_person_classes(const EvaluationSettings& settings) {
  const auto rows = read_classes(settings.data, kPersonClassCount);
  kel_nn::PersonClassifier classifier{kel_nn::Library(settings.root)};
  return evaluate_classes(
      settings, kPersonClassCount, rows, [&](const Square& square, const std::string& path) {
        const float person = classifier.of(rgb_cut_out(square.picture, square.part));
        check_is_number(person, path);
        return person >= kPersonProbability ? 0 : 1;
      });
}

}  // namespace kelnn_cli
