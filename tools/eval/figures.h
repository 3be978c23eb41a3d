// SPDX-License-Identifier: Apache-2.0
// The arithmetic of the figures: how good what was found is, beside what was labelled.
#pragma once

#include <array>
#include <cstddef>
#include <limits>
#include <numeric>
#include <opencv2/core.hpp>
#include <vector>

#include "kel_nn.hpp"

namespace kelnn_cli {

// ----- Shares and means. Of nothing they are not a number, which JSON shows as null

constexpr double kUndefined = std::numeric_limits<double>::quiet_NaN();

inline double share(size_t part, size_t whole) {
  return whole == 0 ? kUndefined : static_cast<double>(part) / static_cast<double>(whole);
}

template <typename Number>
double mean(const std::vector<Number>& values) {
  return values.empty() ? kUndefined
                        : std::accumulate(values.begin(), values.end(), 0.0) /
                              static_cast<double>(values.size());
}

// ----- Detections beside labelled boxes

struct Truth {
  cv::Rect2d box;  // pixels of the picture
  int class_id;
};

constexpr int kIgnored = -1;  // the class of a box around what counts neither way

struct DetectedPicture {
  std::vector<Truth> truths;
  std::vector<kel_nn::Detection> found;
};

constexpr double kMatchingIou = 0.5;  // the least

// The IoU of every detection with the truth that it matches, 0 where it matches none. The better
// score chooses first: the truth of its class that it overlaps most, of those that are left.
std::vector<double> match(const DetectedPicture& picture);

// The picture without its ignored boxes, and without the detections that match nothing and lie for the most
// part in one of them.
DetectedPicture without_ignored(const DetectedPicture& picture);

struct ScoredDetection {
  float score;
  bool is_match;
};

// The area under the curve of precision over recall, where precision is the best at that recall or
// any higher one (all-point interpolation). Detections of equal score are one point of the curve. Not
// a number without truths.
double average_precision(std::vector<ScoredDetection> found, size_t truth_count);

struct DetectionFigures {
  size_t truths, found, matches;
  double average_precision, precision, recall;
  double mean_iou;  // of the matches
};

struct DetectionEvaluation {
  std::vector<DetectionFigures> classes;
  DetectionFigures all;  // its average precision is the mean over the classes that have truths
  double false_detections_per_picture;
};

DetectionEvaluation evaluate_detections(const std::vector<DetectedPicture>& pictures,
                                        int class_count);

// ----- Classes

class ConfusionMatrix {
 public:
  explicit ConfusionMatrix(int class_count)
      : rows_(size_t(class_count), std::vector<size_t>(size_t(class_count))) {}

  void add(int truth, int found, size_t count = 1) { rows_[size_t(truth)][size_t(found)] += count; }

  // A row for each true class, in it a count for each class that was found.
  const std::vector<std::vector<size_t>>& rows() const { return rows_; }
  size_t count(int truth, int found) const { return rows_[size_t(truth)][size_t(found)]; }
  size_t count(int truth) const {
    const std::vector<size_t>& row = rows_[size_t(truth)];
    return std::accumulate(row.begin(), row.end(), size_t{0});
  }
  size_t count() const {
    size_t all = 0;
    for (size_t c = 0; c < rows_.size(); ++c) all += count(int(c));
    return all;
  }
  // Not a number where there is nothing to be right about.
  double recall(int truth) const { return share(count(truth, truth), count(truth)); }
  double accuracy() const {
    size_t right = 0;
    for (size_t c = 0; c < rows_.size(); ++c) right += rows_[c][c];
    return share(right, count());
  }

 private:
  std::vector<std::vector<size_t>> rows_;
};

// ----- Landmarks and poses

constexpr size_t kPointCount = 5;
constexpr size_t kAngleCount = 3;

struct FaceErrors {
  std::array<double, kPointCount> points;  // distances, as shares of the crop's side
  std::array<double, kAngleCount> pose;    // differences in degrees; not looked at without has_pose
  bool has_pose;

  double mean_point() const;
};

// Not a number where there is nothing to be off.
struct LandmarkFigures {
  double mean, percentile_95;  // over all points of all faces
  std::array<double, kPointCount> points;
  std::array<double, kAngleCount> pose;  // mean absolute differences
};

LandmarkFigures landmark_figures(const std::vector<FaceErrors>& faces);

// From one angle to the other the short way round: -180 to 180 degrees.
double angle_between(double from_degrees, double to_degrees);

// The smallest value that at least that share of all values does not exceed (nearest rank).
double percentile(std::vector<double> values, double share_below);

// ----- Similarities: pairs of the same person, and of different ones

// A pair is accepted as the same person when its similarity is above a threshold. Thresholds lie half
// way between neighbouring similarities, and at both ends beyond all. Not a number where there are no
// pairs of a kind.
struct SimilarityFigures {
  // Where the share of different pairs that are accepted and the share of same pairs that are not come
  // closest, the mean of the two; the lowest such threshold.
  double equal_error_rate, equal_error_threshold;
  // The share of same pairs accepted at the lowest threshold that accepts 1 % of different pairs or
  // fewer.
  double true_accept_rate;
  double mean_same, mean_different;
};

SimilarityFigures similarity_figures(std::vector<float> same, std::vector<float> different);

}  // namespace kelnn_cli
