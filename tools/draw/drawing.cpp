// SPDX-License-Identifier: Apache-2.0
#include "drawing.h"

#include <algorithm>
#include <iterator>
#include <opencv2/imgproc.hpp>

#include "library_call.h"

namespace kelnn_cli {
namespace {

// Blue, green, red; light enough for black letters.
const cv::Scalar kColours[] = {{80, 220, 60}, {60, 170, 255}, {255, 190, 70}, {230, 120, 240}};
const cv::Scalar kBlack(0, 0, 0), kChanged(40, 40, 255), kPoint(60, 220, 255);
constexpr int kFont = cv::FONT_HERSHEY_SIMPLEX;
constexpr double kLetterScale = 0.45;  // per pixel of line width

// On a strip of the box's colour above it or, where there is no room, inside.
void draw_label(cv::Mat* bgr, const cv::Rect& box, const std::string& label,
                const cv::Scalar& colour, int line_width) {
  const double scale = kLetterScale * line_width;
  int below = 0;
  const cv::Size text = cv::getTextSize(label, kFont, scale, line_width, &below);
  const cv::Size strip_size(text.width + 2 * line_width, text.height + below + 2 * line_width);
  const int x = std::max(0, std::min(box.x, bgr->cols - strip_size.width));
  const int y = box.y >= strip_size.height ? box.y - strip_size.height : std::max(0, box.y);
  const cv::Rect strip({x, y}, strip_size);
  cv::rectangle(*bgr, strip, colour, cv::FILLED);
  cv::putText(*bgr, label, {strip.x + line_width, strip.br().y - below - line_width}, kFont, scale,
              kBlack, line_width, cv::LINE_AA);
}

}  // namespace

void draw_box(cv::Mat* bgr, const cv::Rect& box, const std::string& label, int colour) {
  const int line_width = std::max(1, std::min(bgr->cols, bgr->rows) / 400);
  const cv::Scalar& chosen =
      kColours[static_cast<size_t>(std::max(0, colour)) % std::size(kColours)];
  cv::rectangle(*bgr, box, chosen, 2 * line_width);
  if (!label.empty()) draw_label(bgr, box, label, chosen, line_width);
}

cv::Mat frame_with_changes(const cv::Mat& bgr, const cv::Mat& changed,
                           std::optional<bool> is_motion) {
  cv::Mat drawn = bgr.clone();
  if (!changed.empty()) {
    const cv::Rect covered(0, 0, 2 * changed.cols, 2 * changed.rows);  // an odd edge is not seen
    cv::Mat mask;
    cv::resize(changed, mask, covered.size(), 0, 0, cv::INTER_NEAREST);
    drawn(covered).setTo(kChanged, mask);
  }
  if (is_motion) {
    draw_box(&drawn, cv::Rect({}, drawn.size()), *is_motion ? "motion" : "still", *is_motion);
  }
  return drawn;
}

void draw_points(cv::Mat* bgr, const std::array<float, 10>& points, const cv::Scalar& colour,
                 int radius) {
  const cv::Rect2f picture(0, 0, static_cast<float>(bgr->cols), static_cast<float>(bgr->rows));
  for (size_t i = 0; i < points.size(); i += 2) {
    const cv::Point2f point(points[i], points[i + 1]);
    if (picture.contains(point)) {  // not NaN
      cv::circle(*bgr, point, radius, colour, cv::FILLED, cv::LINE_AA);
    }
  }
}

void draw_landmarks(cv::Mat* bgr, const kel_nn::Landmarks& landmarks, const kel_nn::Rect& part) {
  draw_points(bgr, landmarks.in_frame(frame_of(*bgr), part), kPoint, std::max(2, part.w / 40));
}

}  // namespace kelnn_cli
