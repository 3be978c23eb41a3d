// SPDX-License-Identifier: Apache-2.0
// kelnn eval for the tasks on a 112 x 112 cut-out: landmarks, features and classes. As in the
// commands, a picture that is not square is cut to the square in its middle.
#include <fmt/format.h>

#include <memory>
#include <opencv2/imgproc.hpp>

#include "drawing.h"
#include "evaluation.h"
#include "face_extractor.h"
#include "figures.h"
#include "library_call.h"
#include "picture.h"

namespace kelnn_cli {
namespace {

// A picture, and which part of it is looked at.
struct Square {
  explicit Square(const std::string& its_path)
      : path(its_path), picture(load_picture(path)), part(chosen_part(path, picture, {})) {}

  std::string path;
  cv::Mat picture;
  kel_nn::Rect part;
};

Json begin_report(const EvaluationSettings& settings, size_t picture_count) {
  return {{"task", settings.task}, {"data", settings.data}, {"pictures", picture_count}};
}

// ----- Landmarks

const LabelColumns kLandmarkColumns = {
    {"file", "x1", "y1", "x2", "y2", "x3", "y3", "x4", "y4", "x5", "y5"}, {"yaw", "pitch", "roll"}};
constexpr size_t kFirstPoint = 1, kFirstAngle = 11;
constexpr double kDegrees = 180 / CV_PI;
constexpr int kLeastDrawnSide = 448;
const cv::Scalar kTruthPoints(80, 220, 60), kFoundPoints(60, 170, 255);  // blue, green, red

using Points = std::array<float, 2 * kPointCount>;  // x and y of each, in pixels of the picture

struct LabelledFace {
  std::string path;
  Points points;
  std::vector<double> pose;  // degrees; empty: not labelled
};

LabelledFace face_of(const std::string& directory, const LabelRow& row, bool has_pose) {
  LabelledFace face = {path_of(directory, row.file()), {}, {}};
  for (size_t i = 0; i < face.points.size(); ++i) {
    face.points[i] = static_cast<float>(row.number(kFirstPoint + i));
  }
  for (size_t i = 0; has_pose && i < kAngleCount; ++i) {
    face.pose.push_back(row.number(kFirstAngle + i));
  }
  return face;
}

FaceErrors errors_of(const LabelledFace& face, const kel_nn::Landmarks& found,
                     const Square& square) {
  FaceErrors errors = {{}, {}, !face.pose.empty()};
  const Points places = found.in_frame(frame_of(square.picture), square.part);
  for (size_t i = 0; i < kPointCount; ++i) {
    errors.points[i] =
        std::hypot(places[2 * i] - face.points[2 * i], places[2 * i + 1] - face.points[2 * i + 1]) /
        static_cast<float>(square.part.w);
  }
  for (size_t i = 0; errors.has_pose && i < kAngleCount; ++i) {
    errors.pose[i] = angle_between(face.pose[i], double{found.pose[i]} * kDegrees);
  }
  return errors;
}

cv::Mat drawn(const LabelledFace& face, const kel_nn::Landmarks& found) {
  const auto [path, picture, part] = Square(face.path);
  const int factor = 1 + (kLeastDrawnSide - 1) / part.w, radius = part.w * factor / 80;
  cv::Mat enlarged;
  cv::resize(picture, enlarged, {}, factor, factor, cv::INTER_NEAREST);
  const auto draw = [&](Points points, const cv::Scalar& colour) {
    for (float& place : points) place *= static_cast<float>(factor);
    draw_points(&enlarged, points, colour, radius);
  };
  draw(face.points, kTruthPoints);
  draw(found.in_frame(frame_of(picture), part), kFoundPoints);
  return enlarged;
}

// ----- Features

const LabelColumns kPersonColumns = {{"file", "person"}, {}};
constexpr size_t kPerson = 1;

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

Json report_of(const EvaluationSettings& settings, const Similarities& all, size_t picture_count) {
  const SimilarityFigures figures = similarity_figures(all.same, all.different);
  Json report = begin_report(settings, picture_count);
  report.update({{"same_pairs", all.same.size()},
                 {"different_pairs", all.different.size()},
                 {"equal_error_rate", figures.equal_error_rate},
                 {"equal_error_threshold", figures.equal_error_threshold},
                 {"true_accept_rate", figures.true_accept_rate},
                 {"mean_same_similarity", figures.mean_same},
                 {"mean_different_similarity", figures.mean_different}});
  return report;
}

// ----- Classes

constexpr size_t kClassColumn = 1;
constexpr int kFaceClassCount = 3, kPersonClassCount = 2;
constexpr float kPersonProbability = 0.5f;

// `class_of` gives the class of a task's result and the number that it rests on.
template <typename Task, typename ClassOf>
Evaluation evaluate_classes(const EvaluationSettings& settings, int class_count,
                            const ClassOf& class_of) {
  const auto rows = read_class_labels(settings.data, {{"file", "class"}, {}}, class_count);
  struct Class {
    int id;
    float number;
  };
  const auto found = found_in_files<Class>(settings, rows.size(), [&] {
    const auto task = std::make_shared<Task>(kel_nn::Library(settings.root));
    return [&, task](size_t i, bool) -> std::vector<Class> {
      const Square square(path_of(settings.data, rows[i].file()));
      const auto [id, number] = class_of(task->of(frame_of(square.picture), square.part));
      check_are_numbers(std::array{number}, square.path);
      if (id < 0 || id >= class_count) {
        throw Failure(square.path, fmt::format("class {} was found", id));
      }
      return {{id, number}};
    };
  });
  ConfusionMatrix confusion(class_count);
  for (size_t i = 0; i < rows.size(); ++i) {
    confusion.add(rows[i].whole_number(kClassColumn, class_count - 1), found[i].front().id);
  }
  Json report = begin_report(settings, rows.size());
  report["accuracy"] = confusion.accuracy();
  for (int id = 0; id < class_count; ++id) report["recall"].push_back(confusion.recall(id));
  report["confusion"] = confusion.rows();
  return {report};
}

}  // namespace

Evaluation evaluate_landmarks(const EvaluationSettings& settings) {
  const Labels labels = read_labels(settings.data, kLandmarkColumns, RowsPerFile::kOne);
  std::vector<LabelledFace> faces;
  std::vector<std::string> files;
  for (const LabelRow& row : labels.rows) {
    faces.push_back(face_of(settings.data, row, labels.has_optional));
    files.push_back(row.file());
  }
  struct Looked {
    kel_nn::Landmarks found;
    FaceErrors errors;
  };
  const auto looked = found_in_files<Looked>(settings, faces.size(), [&] {
    const auto task = std::make_shared<kel_nn::FaceLandmarks>(kel_nn::Library(settings.root));
    return [&, task](size_t i, bool) -> std::vector<Looked> {
      const Square square(faces[i].path);
      const kel_nn::Landmarks found = task->of(frame_of(square.picture), square.part);
      check_are_numbers(found.points, faces[i].path);
      check_are_numbers(found.pose, faces[i].path);
      return {{found, errors_of(faces[i], found, square)}};
    };
  });
  std::vector<kel_nn::Landmarks> found;
  std::vector<FaceErrors> errors;
  std::vector<double> badness;
  for (const std::vector<Looked>& face : looked) {
    found.push_back(face.front().found);
    errors.push_back(face.front().errors);
    badness.push_back(errors.back().mean_point());
  }
  const auto [mean, percentile_95, points, pose] = landmark_figures(errors);
  Json report = begin_report(settings, faces.size());
  report.update({{"mean_point_error", mean},
                 {"percentile_95_point_error", percentile_95},
                 {"left_eye_error", points[0]},  // left in the picture
                 {"right_eye_error", points[1]},
                 {"nose_error", points[2]},
                 {"left_mouth_error", points[3]},
                 {"right_mouth_error", points[4]},
                 {"yaw_error", pose[0]},
                 {"pitch_error", pose[1]},
                 {"roll_error", pose[2]}});
  return {report, [=] {
            draw_worst(settings, files, badness,
                       [&](size_t i) { return drawn(faces[i], found[i]); });
          }};
}

Evaluation evaluate_features(const EvaluationSettings& settings) {
  const Labels labels = read_labels(settings.data, kPersonColumns, RowsPerFile::kOne);
  const auto found = found_in_files<kel_nn::Feature>(settings, labels.rows.size(), [&] {
    const auto task = std::make_shared<kel_nn::FaceFeatures>(kel_nn::Library(settings.root));
    return [&, task](size_t i, bool) -> std::vector<kel_nn::Feature> {
      const Square square(path_of(settings.data, labels.rows[i].file()));
      const kel_nn::Feature feature = task->of(frame_of(square.picture), square.part);
      check_are_numbers(feature, square.path);
      return {feature};
    };
  });
  std::vector<kel_nn::Feature> all;
  for (const std::vector<kel_nn::Feature>& one : found) all.push_back(one.front());
  return {report_of(settings, compare(labels.rows, all), all.size())};
}

Evaluation evaluate_whole_faces(const EvaluationSettings& settings) {
  const Labels labels = read_labels(settings.data, kPersonColumns, RowsPerFile::kOne);
  const auto found = found_in_files<kel_nn::Feature>(settings, labels.rows.size(), [&] {
    const auto extractor = std::make_shared<FaceExtractor>(settings.root, false, nullptr);
    return [&, extractor](size_t i, bool) -> std::vector<kel_nn::Feature> {
      const std::string path = path_of(settings.data, labels.rows[i].file());
      const cv::Mat picture = load_picture(path);
      const std::vector<kel_nn::Detection> faces = extractor->faces(picture);
      if (faces.empty()) return {};
      const kel_nn::Feature aligned = extractor->of(picture, faces.front().box).values;
      const kel_nn::Feature of_box = extractor->of_box(picture, faces.front().box);
      check_are_numbers(aligned, path);
      check_are_numbers(of_box, path);
      return {aligned, of_box};
    };
  });
  std::vector<LabelRow> with_face;
  std::vector<kel_nn::Feature> aligned, of_boxes;
  for (size_t i = 0; i < found.size(); ++i) {
    if (found[i].empty()) continue;
    with_face.push_back(labels.rows[i]);
    aligned.push_back(found[i][0]);
    of_boxes.push_back(found[i][1]);
  }
  const Similarities boxes = compare(with_face, of_boxes);
  Json report = report_of(settings, compare(with_face, aligned), labels.rows.size());
  report.update({{"without_face", labels.rows.size() - with_face.size()},
                 {"equal_error_rate_of_boxes",
                  similarity_figures(boxes.same, boxes.different).equal_error_rate}});
  return {report};
}

Evaluation evaluate_face_classes(const EvaluationSettings& settings) {
  return evaluate_classes<kel_nn::FaceClassifier>(
      settings, kFaceClassCount,
      [](const kel_nn::FaceClass& found) { return std::pair(found.id, found.score); });
}

Evaluation evaluate_person_classes(const EvaluationSettings& settings) {
  return evaluate_classes<kel_nn::PersonClassifier>(settings, kPersonClassCount, [](float person) {
    return std::pair(person >= kPersonProbability ? 0 : 1, person);
  });
}

}  // namespace kelnn_cli
