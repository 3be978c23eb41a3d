// SPDX-License-Identifier: Apache-2.0
#include "tracker.h"

#include <algorithm>
#include <cmath>

#include "assignment.h"

namespace kelnn_cli {
namespace {

constexpr int kSureAfter = 3;           // frames in which it was found
constexpr double kPatience = 2;         // seconds after which what is sure and not found has left
constexpr double kShortPatience = 0.5;  // of what is not sure
constexpr double kLeastOverlap = 0.3;   // IoU of a box and where it is expected
constexpr double kFar = 3;              // standard deviations, beyond which it is another one
constexpr double kNear =
    0.6;  // heights, within which it may be the same whatever the filter expects
constexpr float kSureScore = 0.5f;  // from which on a track begins
constexpr double kPart = 0.6;  // of its area in another one, from which on it is none of its own
constexpr double kMostGrowth = 2;  // of the height, at most, from one time to the next

// Standard deviations, in heights of the box: of a measured middle, of the speed of what has just appeared, of the change of
// speed within a second. A person who walks does 0.8 heights a second.
constexpr double kMeasured = 0.1, kUnknownSpeed = 2, kAcceleration = 0.5;
constexpr double kUnseen = 0.3;    // of how far what rested has come before motion is decided
constexpr double kSizeGain = 0.5;  // the share of a newly measured size

double squared(double x) { return x * x; }

cv::Rect2d rect_of(const kel_nn::Detection& found) {
  const kel_nn::Rect& box = found.box;
  return cv::Rect2d(box.x, box.y, box.w, box.h);
}

cv::Point2d middle_of(const cv::Rect2d& box) { return (box.tl() + box.br()) * 0.5; }

double iou(const cv::Rect2d& a, const cv::Rect2d& b) {
  const double common = (a & b).area();
  return common / (a.area() + b.area() - common);
}

// From 0, none, to 2. Overlap counts for more than any nearness; that is for what has moved on by more than its width, as at a
// few frames a second.
double fit(const BoxMotion& motion, const cv::Rect2d& found) {
  const cv::Rect2d expected = motion.box();
  const double overlap = iou(expected, found);
  if (overlap >= kLeastOverlap) return 1 + overlap;
  const double growth = found.height / expected.height;
  const double distance =
      cv::norm(middle_of(found) - middle_of(expected)) / (kNear * expected.height);
  return distance < 1 && growth < kMostGrowth && growth > 1 / kMostGrowth ? 1 - distance : 0;
}

// A track begins with what is surer than what goes on with one, and is no part of something that is surer still: a network
// often sees a person twice.
bool can_begin(const kel_nn::Detection& one, const std::vector<kel_nn::Detection>& all) {
  const auto hides_it = [&](const kel_nn::Detection& other) {
    return other.class_id == one.class_id && other.score > one.score &&
           (rect_of(other) & rect_of(one)).area() > kPart * rect_of(one).area();
  };
  return one.score >= kSureScore && std::none_of(all.begin(), all.end(), hides_it);
}

}  // namespace

BoxMotion::BoxMotion(const cv::Rect2d& box) : middle_(middle_of(box)), size_(box.size()) {
  rest();
  place_variance_ = squared(kMeasured);
}

void BoxMotion::rest() {
  speed_ = {};
  place_variance_ = squared(kUnseen);
  covariance_ = 0;
  speed_variance_ = squared(kUnknownSpeed);
}

void BoxMotion::advance(double seconds) {
  middle_ += speed_ * seconds;
  // Between two times the speed may change by a constant acceleration that is not known.
  const double change = squared(kAcceleration * seconds);
  place_variance_ += seconds * (2 * covariance_ + seconds * (speed_variance_ + change / 4));
  covariance_ += seconds * (speed_variance_ + change / 2);
  speed_variance_ += change;
}

void BoxMotion::correct(const cv::Rect2d& box) {
  const cv::Point2d error = middle_of(box) - middle_;
  if (cv::norm(error) > kFar * doubt()) {  // what it has done so far says nothing any more
    *this = BoxMotion(box);
    return;
  }
  const double variance = place_variance_ + squared(kMeasured);
  const double place_gain = place_variance_ / variance, speed_gain = covariance_ / variance;
  middle_ += error * place_gain;
  speed_ += error * speed_gain;
  speed_variance_ -= speed_gain * covariance_;
  covariance_ *= 1 - place_gain;
  place_variance_ *= 1 - place_gain;
  size_ += (box.size() - size_) * kSizeGain;
}

cv::Rect2d BoxMotion::box() const {
  return {middle_.x - size_.width / 2, middle_.y - size_.height / 2, size_.width, size_.height};
}

double BoxMotion::doubt() const {
  return size_.height * std::sqrt(place_variance_ + squared(kMeasured));
}

Tracker::Changes Tracker::take(const std::vector<kel_nn::Detection>& found, double seconds,
                               cv::Size frame) {
  frame_ = {{}, cv::Size2d(frame)};
  for (Followed& one : all_) one.motion.advance(seconds - seconds_);
  seconds_ = seconds;
  std::vector<std::vector<double>> fits(all_.size(), std::vector<double>(found.size(), 0));
  for (size_t i = 0; i < all_.size(); ++i) {
    for (size_t k = 0; k < found.size(); ++k) {
      if (all_[i].track.last.class_id != found[k].class_id) continue;
      fits[i][k] = fit(all_[i].motion, rect_of(found[k]));
    }
  }
  Changes changes;
  changes.ids.resize(found.size());
  std::vector<bool> is_new(found.size(), true);
  const std::vector<int> chosen = best_pairs(fits);
  for (size_t i = 0; i < all_.size(); ++i) {
    Followed& one = all_[i];
    one.is_found = chosen[i] >= 0;
    if (!one.is_found) continue;
    const auto k = static_cast<size_t>(chosen[i]);
    is_new[k] = false;
    one.motion.correct(rect_of(found[k]));
    one.track.last = found[k];
    one.track.last_seen = seconds;
    if (++one.times_found == kSureAfter) {
      one.track.id = ++last_id_;
      changes.entered.push_back(one.track);
    }
    changes.ids[k] = one.track.id;
  }
  for (size_t k = 0; k < found.size(); ++k) {
    if (is_new[k] && can_begin(found[k], found))
      all_.push_back({{0, found[k], seconds, seconds}, BoxMotion(rect_of(found[k]))});
  }
  changes.left = without_the_lost();
  return changes;
}

std::vector<Track> Tracker::rest(double seconds) {
  seconds_ = seconds;
  for (Followed& one : all_) {
    one.motion.rest();
    if (one.is_found) one.track.last_seen = seconds;
  }
  return without_the_lost();
}

// Drops what has not been found for too long, or has gone out of the picture.
std::vector<Track> Tracker::without_the_lost() {
  std::vector<Track> left;
  std::vector<Followed> kept;
  for (const Followed& one : all_) {
    const bool is_sure = one.track.id > 0;
    const double patience = is_sure ? kPatience : kShortPatience;
    const bool is_in_sight = one.is_found || frame_.contains(one.motion.middle());
    if (is_in_sight && seconds_ - one.track.last_seen <= patience) {
      kept.push_back(one);
    } else if (is_sure) {
      left.push_back(one.track);
    }
  }
  all_.swap(kept);
  return left;
}

std::vector<Track> Tracker::finish() {
  std::vector<Track> left;
  for (const Followed& one : all_) {
    if (one.track.id > 0) left.push_back(one.track);
  }
  all_.clear();
  return left;
}

}  // namespace kelnn_cli
