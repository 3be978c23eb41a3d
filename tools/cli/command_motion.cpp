// SPDX-License-Identifier: Apache-2.0
// kelnn motion: the motion filter on a recording or a camera, and what other settings would say.
#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "drawing.h"
#include "frames.h"
#include "library_call.h"
#include "report.h"

namespace kelnn_cli {
namespace {

// ----- One run

// Of the frames that had a vote, the shares of changed pixels in per cent: what more than half of them
// reach, so that it is this one that decides (of an even number the lower one), and the largest one.
Json period_json(const std::string& input, const Frame& frame, bool is_motion,
                 std::vector<double> shares) {
  if (shares.empty()) shares = {0};
  std::sort(shares.begin(), shares.end());
  Json json = place_json(input, frame);
  json["motion"] = is_motion;
  json["changed"] = shares[(shares.size() - 1) / 2];
  json["changed_max"] = shares.back();
  return json;
}

std::string period_text(const Json& period) {
  const char* const decision = period["motion"].get<bool>() ? ": motion" : ": still";
  return filled(kPlace, period) + decision +
         filled(", changed {changed:.3f} %, at most {changed_max:.3f} %\n", period);
}

void watch_motion(const MotionOptions& options, const std::string& input, DrawingTarget* drawings,
                  Reporter* reporter) {
  FrameWalk walk(input, FrameWalk::Takes::kMoving, options.frames, reporter, drawings);
  kel_nn::MotionFilter filter(kel_nn::Library(), options.settings.ratio, options.settings.period);
  ChangedPixels changed_pixels;
  std::vector<double> shares;
  std::optional<bool> last;
  while (const Frame* frame = walk.next()) {
    const cv::Mat luma = luma_of(frame->pixels);
    const cv::Mat changed = changed_pixels.take(luma);
    if (!changed.empty()) shares.push_back(percentage(changed));
    if (const std::optional<bool> is_motion = filter.take(luma.data, size_of(luma))) {
      last = is_motion;
      reporter->report_one(period_json(input, *frame, *is_motion, shares), period_text);
      shares.clear();
    }
    walk.draw([&] { return frame_with_changes(frame->pixels, changed, last); });
  }
  if (!last) walk.object_to_no_decision(options.settings.period);
}

// ----- A recording with many settings

struct Count {
  MotionSettings settings;
  int64_t decisions = 0, motion = 0;
  int64_t lead = 0;  // votes for motion less votes against it in this period
};

// What each setting decides, from one pass over the frames: there is one filter at a time, so it takes a few frames again
// with each ratio, in periods of one frame, which tell its votes. The counts lie period after period, for each ratio.
class Sweep {
 public:
  explicit Sweep(const MotionOptions& options) : options_(options) {
    for (const float ratio : options.ratios) {
      for (const int period : options.periods) counts_.push_back({{ratio, period}});
    }
  }

  void take(const cv::Mat& luma) {
    if (!frames_.empty() && luma.size() != frames_.back().size()) start_anew();
    frames_.push_back(luma);
    if (frames_.size() == kMostFrames) vote();
  }
  // After the last frame.
  const std::vector<Count>& finish() {
    vote();
    return counts_;
  }

 private:
  static constexpr size_t kMostFrames = 10, kHistory = 2;  // a filter's first frames have no vote

  // With a frame of another size, as the filter does.
  void start_anew() {
    vote();
    frames_.clear();
    first_ = 1;
    for (Count& count : counts_) count.lead = 0;
  }
  void vote() {
    for (size_t of_ratio = 0; of_ratio < counts_.size(); of_ratio += options_.periods.size()) {
      kel_nn::MotionFilter filter(library_, counts_[of_ratio].settings.ratio, 1);
      for (size_t i = 0; i < frames_.size(); ++i) {
        const auto is_motion = filter.take(frames_[i].data, size_of(frames_[i]));
        for (size_t c = of_ratio; is_motion && c < of_ratio + options_.periods.size(); ++c) {
          add(*is_motion, first_ + static_cast<int64_t>(i), &counts_[c]);
        }
      }
    }
    const size_t done = frames_.size() - std::min(frames_.size(), kHistory);
    frames_.erase(frames_.begin(), frames_.begin() + static_cast<ptrdiff_t>(done));
    first_ += static_cast<int64_t>(done);
  }
  static void add(bool is_motion, int64_t number, Count* count) {
    count->lead += is_motion ? 1 : -1;
    if (number % count->settings.period != 0) return;
    ++count->decisions;
    count->motion += count->lead > 0;
    count->lead = 0;
  }

  const MotionOptions& options_;
  kel_nn::Library library_;
  std::vector<cv::Mat> frames_;  // luma
  int64_t first_ = 1;            // the number of the first of them
  std::vector<Count> counts_;
};

Json sweep_json(const std::string& input, int64_t frame_count, const std::vector<Count>& counts) {
  Json cells = Json::array();
  for (const Count& count : counts) {
    cells.push_back({{"ratio", count.settings.ratio},
                     {"period", count.settings.period},
                     {"decisions", count.decisions},
                     {"motion_decisions", count.motion}});
  }
  return {{"input", input}, {"frames", frame_count}, {"sweep", cells}};
}

std::string sweep_text(const MotionOptions& options, const Json& sweep) {
  std::string text =
      filled("{input}: decisions for motion, of all; ratio down, period across\n", sweep) +
      std::string(14, ' ');
  for (const int period : options.periods) text += fmt::format("{:>14}", period);
  for (size_t i = 0; i < sweep["sweep"].size(); ++i) {
    const Json& cell = sweep["sweep"][i];
    if (i % options.periods.size() == 0) {
      text += fmt::format("\n{:>14}", filled("{ratio:.6g} %", cell));
    }
    text += fmt::format(" {:>13}", filled("{motion_decisions} of {decisions}", cell));
  }
  return text + "\n";
}

void sweep_motion(const MotionOptions& options, const std::string& input, Reporter* reporter) {
  FrameWalk walk(input, FrameWalk::Takes::kRecordings, options.frames, reporter);
  Sweep sweep(options);
  int64_t frame_count = 0;
  for (; const Frame* frame = walk.next(); ++frame_count) sweep.take(luma_of(frame->pixels));
  if (interruption()) throw Failure("interrupted: there is no table of half a recording");
  const std::vector<Count>& counts = sweep.finish();
  for (size_t i = 0; i < options.periods.size(); ++i) {
    if (counts[i].decisions == 0) walk.object_to_no_decision(options.periods[i]);
  }
  reporter->report_one(sweep_json(input, frame_count, counts),
                       [&](const Json& json) { return sweep_text(options, json); });
}

}  // namespace

bool motion(const MotionOptions& options, Reporter* reporter) {
  const Inputs inputs =
      listed(options.inputs, InputKind::kVideos, !options.frames.input.raw.empty());
  DrawingTarget drawings(options.out, inputs);
  reporter->begin({options.wants_sweep ? "input,frames,ratio,period,decisions,motion_decisions"
                                       : "input,frame,time,motion,changed,changed_max",
                   inputs,
                   {}});
  return for_each_input(inputs, reporter, [&](const std::string& input) {
    if (options.wants_sweep) return sweep_motion(options, input, reporter);
    watch_motion(options, input, &drawings, reporter);
  });
}

}  // namespace kelnn_cli
