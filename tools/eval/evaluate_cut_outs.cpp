// kelnn eval for the tasks on a 112 x 112 cut-out: landmarks, features and classes. As in the
// commands, a picture that is not square is cut to the square in its middle.
#include <fmt/format.h>

#include <cmath>
#include <opencv2/imgproc.hpp>

#include "evaluation.h"
#include "evaluation_classes.h"
#include "evaluation_landmarks.h"
#include "evaluation_similarity.h"
#include "frame_sink.h"
#include "landmark_points.h"
#include "library_call.h"
#include "picture.h"

namespace kelnn_cli {
namespace {

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

void draw_face(const EvaluationSettings& settings, size_t rank, const LabelledFace& face,
               const kel_nn::Landmarks& found) {
  cv::Mat picture = load_picture(face.path);
  const cv::Rect part = chosen_part(face.path, picture, {});
  const int factor = 1 + (kLeastDrawnSide - 1) / part.width;
  cv::resize(picture, picture, {}, factor, factor, cv::INTER_NEAREST);
  const auto enlarged = [factor](std::vector<cv::Point2d> points) {
    for (cv::Point2d& point : points) point *= factor;
    return points;
  };
  const int radius = part.width * factor / 80;
  draw_points(&picture, enlarged(face.points), kTruthColour, radius);
  draw_points(&picture, enlarged(pixels_of(found, part)), kFoundColour, radius);
  const auto sink = make_picture(drawing_path(settings, rank, face.file));
  sink->write(picture);
  sink->finish();
}

struct SeenFace {
  kel_nn::Landmarks found;
  FaceErrors errors;
};

SeenFace look_at(const LabelledFace& face, kel_nn::FaceLandmarks* landmarks) {
  const cv::Mat picture = load_picture(face.path);
  const cv::Rect part = chosen_part(face.path, picture, {});
  const kel_nn::Landmarks found = landmarks->of(grey_cut_out(picture, part));
  for (const float value : found.points) check_is_number(value, face.path);
  for (const float value : found.pose) check_is_number(value, face.path);
  return {found, errors_of(face, found, part)};
}

void draw_worst(const EvaluationSettings& settings, const std::vector<LabelledFace>& faces,
                const std::vector<SeenFace>& seen) {
  std::vector<double> badness(seen.size());
  for (size_t i = 0; i < seen.size(); ++i) badness[i] = seen[i].errors.mean_point();
  const std::vector<size_t> order = worst_first(badness);
  for (size_t rank = 0; rank < order.size(); ++rank) {
    draw_face(settings, rank, faces[order[rank]], seen[order[rank]].found);
  }
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

void check_class(int id, int class_count, const std::string& path) {
  if (id < 0 || id >= class_count) throw Failure(path, fmt::format("class {} was found", id));
}

struct ClassifiedPicture {
  std::string path;
  int class_id;
};

std::vector<ClassifiedPicture> read_classes(const std::string& directory, int class_count) {
  std::vector<ClassifiedPicture> pictures;
  for (const LabelRow& row :
       read_labels(directory, {{"file", "class"}, {}}, RowsPerFile::kOne).rows) {
    pictures.push_back({path_of(directory, row), row.whole_number(1, class_count - 1)});
  }
  return pictures;
}

// `classify` gives the class of the part of a picture that is looked at.
template <typename Classify>
Report evaluate_classes(const EvaluationSettings& settings,
                        const std::vector<ClassifiedPicture>& pictures, int class_count,
                        const Classify& classify) {
  EvaluationProgress progress(settings, pictures.size());
  ConfusionMatrix confusion(class_count);
  for (const ClassifiedPicture& picture : pictures) {
    const cv::Mat bgr = load_picture(picture.path);
    const int found = classify(bgr, chosen_part(picture.path, bgr, {}), picture.path);
    check_class(found, class_count, picture.path);
    confusion.add(picture.class_id, found);
    progress.add_file();
  }

  Report report = begin_report(settings, pictures.size(), "pictures");
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
  EvaluationProgress progress(settings, faces.size());
  std::vector<SeenFace> seen;
  std::vector<FaceErrors> errors;
  for (const LabelledFace& face : faces) {
    seen.push_back(look_at(face, &landmarks));
    errors.push_back(seen.back().errors);
    progress.add_file();
  }
  if (!settings.drawings.empty()) draw_worst(settings, faces, seen);
  return report_of(settings, landmark_figures(errors), faces.size());
}

Report evaluate_features(const EvaluationSettings& settings) {
  const Labels labels = read_labels(settings.data, {{"file", "person"}, {}}, RowsPerFile::kOne);
  kel_nn::FaceFeatures features{kel_nn::Library(settings.root)};
  EvaluationProgress progress(settings, labels.rows.size());
  std::vector<kel_nn::Feature> all;
  for (const LabelRow& row : labels.rows) {
    const std::string path = path_of(settings.data, row);
    const cv::Mat picture = load_picture(path);
    all.push_back(features.of(grey_cut_out(picture, chosen_part(path, picture, {}))));
    for (const float value : all.back()) check_is_number(value, path);
    progress.add_file();
  }
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
  const auto pictures = read_classes(settings.data, kFaceClassCount);
  kel_nn::FaceClassifier classifier{kel_nn::Library(settings.root)};
  return evaluate_classes(settings, pictures, kFaceClassCount,
                          [&](const cv::Mat& bgr, const cv::Rect& part, const std::string& path) {
                            const kel_nn::FaceClass found = classifier.of(grey_cut_out(bgr, part));
                            check_is_number(found.score, path);
                            return found.id;
                          });
}

Report evaluate_person_classes(const EvaluationSettings& settings) {
  const auto pictures = read_classes(settings.data, kPersonClassCount);
  kel_nn::PersonClassifier classifier{kel_nn::Library(settings.root)};
  return evaluate_classes(settings, pictures, kPersonClassCount,
                          [&](const cv::Mat& bgr, const cv::Rect& part, const std::string& path) {
                            const float person = classifier.of(rgb_cut_out(bgr, part));
                            check_is_number(person, path);
                            return person >= kPersonProbability ? 0 : 1;
                          });
}

}  // namespace kelnn_cli
