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
  int64_t frames, decisions, motion;
};

// The counts lie period after period, for each ratio.
Json sweep_json(const std::string& input, const std::vector<Count>& counts) {
  Json cells = Json::array();
  for (const Count& count : counts) {
    cells.push_back({{"ratio", count.settings.ratio},
                     {"period", count.settings.period},
                     {"decisions", count.decisions},
                     {"motion_decisions", count.motion}});
  }
  return {{"input", input}, {"frames", counts.front().frames}, {"sweep", cells}};
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

// The recording is decoded anew for every setting: the library has one filter at a time, and a
// recording need not fit in memory.
Count count_decisions(const MotionOptions& options, const std::string& input,
                      const kel_nn::Library& library, const MotionSettings& settings,
                      Reporter* reporter) {
  Count count = {settings, 0, 0, 0};
  kel_nn::MotionFilter filter(library, settings.ratio, settings.period);
  const std::string label =
      fmt::format("{}, {:.6g} %, {} frames", input, settings.ratio, settings.period);
  FrameWalk walk(input, FrameWalk::Takes::kRecordings, options.frames, reporter, label);
  while (const Frame* frame = walk.next()) {
    const std::optional<bool> is_motion =
        filter.take(luma_of(frame->pixels).data, size_of(frame->pixels));
    ++count.frames;
    count.decisions += is_motion.has_value();
    count.motion += is_motion.value_or(false);
  }
  if (interruption()) throw Failure("interrupted: there is no table of half a recording");
  if (count.decisions == 0) walk.object_to_no_decision(settings.period);
  return count;
}

void sweep_motion(const MotionOptions& options, const std::string& input, Reporter* reporter) {
  const kel_nn::Library library;
  std::vector<Count> counts;
  for (const float ratio : options.ratios) {
    for (const int period : options.periods) {
      counts.push_back(count_decisions(options, input, library, {ratio, period}, reporter));
    }
  }
  reporter->report_one(sweep_json(input, counts),
                       [&](const Json& sweep) { return sweep_text(options, sweep); });
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
