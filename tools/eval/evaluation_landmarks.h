// How far landmarks and poses are off.
#ifndef KEL_NN_TOOLS_EVALUATION_LANDMARKS_H_
#define KEL_NN_TOOLS_EVALUATION_LANDMARKS_H_

#include <array>
#include <cstddef>
#include <vector>

namespace kelnn_cli {

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

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_EVALUATION_LANDMARKS_H_
