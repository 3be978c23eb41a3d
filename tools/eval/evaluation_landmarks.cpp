#include "evaluation_landmarks.h"

#include <algorithm>
#include <cmath>

#include "evaluation_mean.h"

namespace kelnn_cli {

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

}  // namespace kelnn_cli
