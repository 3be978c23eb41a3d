#include "landmark_points.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

namespace kelnn_cli {
namespace {

const cv::Scalar kPointColour(60, 220, 255);  // blue, green, red

}  // namespace

bool are_parts(const kel_nn::Landmarks& landmarks) {
  return std::all_of(landmarks.points.begin(), landmarks.points.end(),
                     [](float value) { return value >= 0 && value <= 1; });
}

std::vector<cv::Point2d> pixels_of(const kel_nn::Landmarks& landmarks, const cv::Rect& part) {
  std::vector<cv::Point2d> pixels;
  for (size_t i = 0; i < landmarks.points.size(); i += 2) {
    pixels.emplace_back(part.x + double{landmarks.points[i]} * part.width,
                        part.y + double{landmarks.points[i + 1]} * part.height);
  }
  return pixels;
}

void draw_points(cv::Mat* bgr, const std::vector<cv::Point2d>& points, const cv::Scalar& colour,
                 int radius) {
  for (const cv::Point2d& point : points) {
    const bool is_inside = point.x >= 0 && point.x <= bgr->cols && point.y >= 0 &&
                           point.y <= bgr->rows;  // false for NaN, too
    if (is_inside) cv::circle(*bgr, point, radius, colour, cv::FILLED, cv::LINE_AA);
  }
}

void draw_landmarks(cv::Mat* bgr, const kel_nn::Landmarks& landmarks, const cv::Rect& part) {
  draw_points(bgr, pixels_of(landmarks, part), kPointColour, std::max(2, part.width / 40));
}

}  // namespace kelnn_cli
