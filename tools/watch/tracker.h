// SPDX-License-Identifier: Apache-2.0
// Which of the things in this frame is which of those in the frames before: tracks, as in SORT (2016). Each box is expected
// where its way leads, by a Kalman filter, and gets what was found that fits it best, all of them together.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

#include "kel_nn.hpp"

namespace kelnn_cli {

// Where a box is and will be, as it is measured with errors: its middle moves, its size does not by itself. Lengths are in
// heights of the box, so that near and far things are treated alike and one covariance serves both axes.
class BoxMotion {
 public:
  explicit BoxMotion(const cv::Rect2d& box);
  void advance(double seconds);
  void correct(const cv::Rect2d& box);
  void rest();  // it does not move any more, until it is seen to
  cv::Rect2d box() const;
  cv::Point2d middle() const { return middle_; }
  double doubt() const;  // of where its middle will be measured: a standard deviation, in pixels

 private:
  cv::Point2d middle_, speed_;  // pixels, pixels a second
  cv::Size2d size_;
  double place_variance_, covariance_, speed_variance_;  // in heights
};

struct Track {
  int64_t id = 0;               // from 1, in the order in which they became sure; 0: not sure yet
  kel_nn::Detection last = {};  // as it was found last
  double first_seen = 0, last_seen = 0;  // seconds
};

class Tracker {
 public:
  struct Changes {
    std::vector<int64_t> ids;          // of what was found, in its order; 0: not sure yet
    std::vector<Track> entered, left;  // only those that are sure
  };

  // A frame that was looked at. Times do not go back.
  Changes take(const std::vector<kel_nn::Detection>& found, double seconds, cv::Size frame);
  // One that was not, since nothing moves: what was there the last time stays, and what was missing then is missed on.
  std::vector<Track> rest(double seconds);
  std::vector<Track> finish();  // all that are sure, which leave now

 private:
  struct Followed {
    Track track;
    BoxMotion motion;
    int times_found = 1;
    bool is_found = true;  // in the last frame that was looked at
  };

  std::vector<Track> without_the_lost();

  int64_t last_id_ = 0;
  double seconds_ = 0;  // of the last frame
  cv::Rect2d frame_;
  std::vector<Followed> all_;
};

}  // namespace kelnn_cli
