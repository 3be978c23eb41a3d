// SPDX-License-Identifier: Apache-2.0
#include "figures.h"

#include <algorithm>
#include <cmath>

namespace kelnn_cli {
namespace {

cv::Rect2d exact(const kel_nn::Rect& box) { return cv::Rect2d(box.x, box.y, box.w, box.h); }

double iou(const cv::Rect2d& a, const cv::Rect2d& b) {
  const double shared = (a & b).area();
  return shared / (a.area() + b.area() - shared);
}

bool by_score(const ScoredDetection& a, const ScoredDetection& b) { return a.score > b.score; }

constexpr int kAllClasses = -1;

DetectionFigures figures_of(const std::vector<DetectedPicture>& pictures, int class_id) {
  const auto is_counted = [=](int id) { return class_id == kAllClasses || class_id == id; };
  size_t truths = 0;
  std::vector<ScoredDetection> found;
  std::vector<double> matching_ious;
  for (const DetectedPicture& picture : pictures) {
    for (const Truth& truth : picture.truths) truths += is_counted(truth.class_id);
    const std::vector<double> ious = match(picture);
    for (size_t i = 0; i < ious.size(); ++i) {
      if (!is_counted(picture.found[i].class_id)) continue;
      found.push_back({picture.found[i].score, ious[i] > 0});
      if (ious[i] > 0) matching_ious.push_back(ious[i]);
    }
  }
  const size_t matches = matching_ious.size();
  return {truths,
          found.size(),
          matches,
          average_precision(found, truths),
          share(matches, found.size()),
          share(matches, truths),
          mean(matching_ious)};
}

constexpr double kFalseAcceptRate = 0.01;

// In ascending order: one below all similarities, one between any two that differ, one above all.
std::vector<double> thresholds(const std::vector<float>& same,
                               const std::vector<float>& different) {
  std::vector<double> all(same.begin(), same.end());
  all.insert(all.end(), different.begin(), different.end());
  std::sort(all.begin(), all.end());
  all.erase(std::unique(all.begin(), all.end()), all.end());

  std::vector<double> between = {all.front() - 1};
  for (size_t i = 1; i < all.size(); ++i) between.push_back((all[i - 1] + all[i]) / 2);
  between.push_back(all.back() + 1);
  return between;
}

struct Rates {
  double accepted, rejected;
};

Rates rates(double threshold, const std::vector<float>& sorted) {
  const auto accepted = std::upper_bound(sorted.begin(), sorted.end(), threshold);
  return {share(static_cast<size_t>(sorted.end() - accepted), sorted.size()),
          share(static_cast<size_t>(accepted - sorted.begin()), sorted.size())};
}

}  // namespace

std::vector<double> match(const DetectedPicture& picture) {
  const std::vector<kel_nn::Detection>& found = picture.found;
  std::vector<size_t> order(found.size());
  std::iota(order.begin(), order.end(), size_t{0});
  std::stable_sort(order.begin(), order.end(),
                   [&](size_t a, size_t b) { return found[a].score > found[b].score; });

  std::vector<double> ious(found.size());
  std::vector<bool> is_taken(picture.truths.size());
  for (const size_t i : order) {
    size_t best = 0;
    double best_iou = 0;
    for (size_t t = 0; t < picture.truths.size(); ++t) {
      if (is_taken[t] || picture.truths[t].class_id != found[i].class_id) continue;
      const double own_iou = iou(picture.truths[t].box, exact(found[i].box));
      if (own_iou > best_iou) best = t, best_iou = own_iou;
    }
    if (best_iou < kMatchingIou) continue;
    is_taken[best] = true;
    ious[i] = best_iou;
  }
  return ious;
}

DetectedPicture without_ignored(const DetectedPicture& picture) {
  const std::vector<double> ious = match(picture);  // no detection is of the class of ignored boxes
  const auto is_ignored = [](const Truth& truth) { return truth.class_id == kIgnored; };
  DetectedPicture counted = picture;
  const auto end = std::remove_if(counted.truths.begin(), counted.truths.end(), is_ignored);
  counted.truths.erase(end, counted.truths.end());
  counted.found.clear();
  for (size_t i = 0; i < ious.size(); ++i) {
    const cv::Rect2d box = exact(picture.found[i].box);
    const bool is_in_one =
        std::any_of(picture.truths.begin(), picture.truths.end(), [&](const Truth& truth) {
          return is_ignored(truth) && (truth.box & box).area() > 0.5 * box.area();
        });
    if (ious[i] > 0 || !is_in_one) counted.found.push_back(picture.found[i]);
  }
  return counted;
}

double average_precision(std::vector<ScoredDetection> found, size_t truth_count) {
  if (truth_count == 0) return kUndefined;
  std::sort(found.begin(), found.end(), by_score);

  struct Point {
    double recall, precision;
  };
  std::vector<Point> curve = {{0, 0}};
  size_t matches = 0;
  for (size_t i = 0; i < found.size(); ++i) {
    matches += found[i].is_match;
    const bool is_last_of_score = i + 1 == found.size() || found[i + 1].score < found[i].score;
    if (is_last_of_score) curve.push_back({share(matches, truth_count), share(matches, i + 1)});
  }
  // From the right, so that the best precision at a recall or any higher one is at hand.
  double area = 0, best_precision = 0;
  for (size_t i = curve.size() - 1; i > 0; --i) {
    best_precision = std::max(best_precision, curve[i].precision);
    area += (curve[i].recall - curve[i - 1].recall) * best_precision;
  }
  return area;
}

DetectionEvaluation evaluate_detections(const std::vector<DetectedPicture>& pictures,
                                        int class_count) {
  DetectionEvaluation evaluation;
  std::vector<double> precisions;
  for (int class_id = 0; class_id < class_count; ++class_id) {
    evaluation.classes.push_back(figures_of(pictures, class_id));
    const DetectionFigures& figures = evaluation.classes.back();
    if (figures.truths > 0) precisions.push_back(figures.average_precision);
  }
  evaluation.all = figures_of(pictures, kAllClasses);
  evaluation.all.average_precision = mean(precisions);
  evaluation.false_detections_per_picture =
      share(evaluation.all.found - evaluation.all.matches, pictures.size());
  return evaluation;
}

double FaceErrors::mean_point() const {
  return mean(std::vector<double>(points.begin(), points.end()));
}

double angle_between(double from_degrees, double to_degrees) {
  return std::remainder(to_degrees - from_degrees, 360.0);
}

double percentile(std::vector<double> values, double share_below) {
  if (values.empty()) return kUndefined;
  std::sort(values.begin(), values.end());
  const double rank = std::ceil(share_below * static_cast<double>(values.size()));
  return values[rank < 1 ? 0 : std::min(static_cast<size_t>(rank), values.size()) - 1];
}

LandmarkFigures landmark_figures(const std::vector<FaceErrors>& faces) {
  std::vector<double> all, of_point[kPointCount], of_angle[kAngleCount];
  for (const FaceErrors& face : faces) {
    for (size_t i = 0; i < kPointCount; ++i) {
      all.push_back(face.points[i]);
      of_point[i].push_back(face.points[i]);
    }
    for (size_t i = 0; face.has_pose && i < kAngleCount; ++i) {
      of_angle[i].push_back(std::abs(face.pose[i]));
    }
  }
  LandmarkFigures figures;
  figures.mean = mean(all);
  figures.percentile_95 = percentile(all, 0.95);
  for (size_t i = 0; i < kPointCount; ++i) figures.points[i] = mean(of_point[i]);
  for (size_t i = 0; i < kAngleCount; ++i) figures.pose[i] = mean(of_angle[i]);
  return figures;
}

SimilarityFigures similarity_figures(std::vector<float> same, std::vector<float> different) {
  SimilarityFigures figures = {kUndefined, kUndefined, kUndefined, mean(same), mean(different)};
  if (same.empty() || different.empty()) return figures;
  std::sort(same.begin(), same.end());
  std::sort(different.begin(), different.end());

  double smallest_gap = 2;  // more than there can be
  for (const double threshold : thresholds(same, different)) {
    const double false_accepts = rates(threshold, different).accepted;
    const Rates same_rates = rates(threshold, same);
    const double gap = std::abs(false_accepts - same_rates.rejected);
    if (gap < smallest_gap) {
      smallest_gap = gap;
      figures.equal_error_rate = (false_accepts + same_rates.rejected) / 2;
      figures.equal_error_threshold = threshold;
    }
    if (std::isnan(figures.true_accept_rate) && false_accepts <= kFalseAcceptRate) {
      figures.true_accept_rate = same_rates.accepted;
    }
  }
  return figures;
}

}  // namespace kelnn_cli
