// SPDX-License-Identifier: Apache-2.0
// Patches of pure colour, and where they have to be in a frame for a cell of a network to be filled:
// the detectors of make_test_networks.py find them. It follows from how frames are letterboxed and
// scaled.
#ifndef KEL_NN_TESTS_PATCHES_H_
#define KEL_NN_TESTS_PATCHES_H_

#include <algorithm>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace kelnn_test {

inline const cv::Scalar kRed(0, 0, 255), kGreen(0, 255, 0), kBlue(255, 0, 0), kGrey(60, 60, 60);

struct Patch {
  cv::Scalar colour;
  int column, row;  // the network's cell
};

inline cv::Size grid_input(cv::Size frame) {
  if (frame.width > frame.height) return {416, 256};
  return frame.width == frame.height ? cv::Size(320, 320) : cv::Size(256, 416);
}

inline cv::Rect2d from_letterbox(cv::Size frame, const cv::Rect2d& r) {
  const cv::Size input = grid_input(frame);
  const double scale =
      double(std::max(input.width, input.height)) / double(std::max(frame.width, frame.height));
  return {(r.x - (input.width - scale * frame.width) / 2) / scale,
          (r.y - (input.height - scale * frame.height) / 2) / scale, r.width / scale,
          r.height / scale};
}

inline cv::Rect2d from_face_input(cv::Size frame, const cv::Rect2d& r) {
  return {r.x * frame.width / 320, r.y * frame.height / 240, r.width * frame.width / 320,
          r.height * frame.height / 240};
}

inline cv::Rect2d around_cell(const Patch& patch, cv::Size cell, cv::Size size) {
  return {(patch.column + 0.5) * cell.width - size.width / 2.0,
          (patch.row + 0.5) * cell.height - size.height / 2.0, double(size.width),
          double(size.height)};
}

inline cv::Rect2d on_grid(cv::Size frame, const Patch& patch) {
  const int stride = patch.colour == kBlue ? 16 : 32;
  return from_letterbox(frame, around_cell(patch, {stride, stride}, {stride, 2 * stride}));
}

inline cv::Rect2d on_face_level(cv::Size frame, const Patch& patch) {
  return from_face_input(frame, patch.colour == kBlue ? around_cell(patch, {64, 60}, {64, 60})
                                                      : around_cell(patch, {16, 16}, {32, 24}));
}

// Enlarged by a pixel of the input or so, for interpolation dims the edges.
inline void paint(cv::Mat* frame, const cv::Rect2d& where, const cv::Scalar& colour) {
  const int border = 1 + frame->cols / 320;
  cv::rectangle(*frame, cv::Point(cvRound(where.x) - border, cvRound(where.y) - border),
                cv::Point(cvRound(where.br().x) + border, cvRound(where.br().y) + border), colour,
                cv::FILLED);
}

inline cv::Mat grey_frame(cv::Size size) { return cv::Mat(size, CV_8UC3, kGrey); }

}  // namespace kelnn_test

#endif  // KEL_NN_TESTS_PATCHES_H_
