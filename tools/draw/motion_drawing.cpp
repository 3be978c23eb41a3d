#include "motion_drawing.h"

#include <algorithm>
#include <opencv2/imgproc.hpp>

#include "drawing.h"

namespace kelnn_cli {
namespace {

// Blue, green, red.
const cv::Scalar kChanged(40, 40, 255), kMotionCell(110, 110, 240), kStillCell(210, 210, 210);
const cv::Scalar kBar(60, 60, 60), kRatioLine(255, 255, 255), kNoCell(255, 255, 255);
constexpr int kMotionColour = 1, kStillColour = 0;  // of draw_box()

constexpr int kCellWidth = 12, kCellHeight = 40, kGap = 2;
constexpr int kCellsInARow = 60;

void draw_cell(cv::Mat* strip, const cv::Rect& cell, const DecisionMark& decision, double ratio) {
  cv::rectangle(*strip, cell, decision.is_motion ? kMotionCell : kStillCell, cv::FILLED);
  const double part = ratio > 0 ? std::min(1.0, decision.changed / (2 * ratio)) : 1;
  const int height = cvRound(part * cell.height);
  if (height > 0) {
    cv::rectangle(*strip, cv::Rect(cell.x + 3, cell.br().y - height, cell.width - 6, height), kBar,
                  cv::FILLED);
  }
  const int middle = cell.y + cell.height / 2;
  cv::line(*strip, {cell.x, middle}, {cell.br().x - 1, middle}, kRatioLine);
}

}  // namespace

cv::Mat frame_with_changes(const cv::Mat& bgr, const cv::Mat& changed, Decision last_decision) {
  cv::Mat drawn = bgr.clone();
  if (!changed.empty()) {
    const cv::Rect covered(0, 0, 2 * changed.cols, 2 * changed.rows);  // an odd edge is not seen
    cv::Mat mask;
    cv::resize(changed, mask, covered.size(), 0, 0, cv::INTER_NEAREST);
    drawn(covered).setTo(kChanged, mask);
  }
  if (last_decision == Decision::kNotYet) return drawn;
  const bool is_motion = last_decision == Decision::kMotion;
  draw_box(&drawn, cv::Rect({}, drawn.size()), is_motion ? "motion" : "still",
           is_motion ? kMotionColour : kStillColour);
  return drawn;
}

cv::Mat decision_strip(const std::vector<DecisionMark>& decisions, double ratio) {
  const int count = static_cast<int>(decisions.size());
  const int columns = std::max(1, std::min(count, kCellsInARow));
  const int rows = std::max(1, (count + kCellsInARow - 1) / kCellsInARow);
  cv::Mat strip(rows * (kCellHeight + kGap) + kGap, columns * (kCellWidth + kGap) + kGap, CV_8UC3,
                kNoCell);
  for (int i = 0; i < count; ++i) {
    const cv::Rect cell(kGap + i % kCellsInARow * (kCellWidth + kGap),
                        kGap + i / kCellsInARow * (kCellHeight + kGap), kCellWidth, kCellHeight);
    draw_cell(&strip, cell, decisions[static_cast<size_t>(i)], ratio);
  }
  return strip;
}

}  // namespace kelnn_cli
