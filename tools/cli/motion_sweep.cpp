#include "motion_sweep.h"

#include <algorithm>

#include "formatted.h"
#include "interruption.h"
#include "motion_options.h"
#include "progress_bar.h"

namespace kelnn_cli {
namespace {

constexpr size_t kColumnWidth = 14;

struct Count {
  MotionSettings settings;
  int64_t frames, decisions, motion;
};

// The recording is decoded anew for every setting: the library has one filter at a time, and a
// recording need not fit in memory.
Count count_decisions(FrameSource* source, const MotionSettings& settings, int64_t limit,
                      ProgressBar* progress, int64_t frames_before) {
  Count count = {settings, 0, 0, 0};
  MotionFilter filter(settings);
  Frame frame;
  for (; (limit == 0 || count.frames < limit) && source->read(&frame); ++count.frames) {
    if (is_interrupted()) throw Failure("interrupted: there is no table of half a recording");
    const Decision decision = filter.take(luma_of(frame.pixels));
    count.decisions += decision != Decision::kNotYet;
    count.motion += decision == Decision::kMotion;
    progress->show(frames_before + count.frames);
  }
  return count;
}

std::string padded(const std::string& text) {
  return std::string(kColumnWidth - std::min(kColumnWidth - 1, text.size()), ' ') + text;
}

std::string table(const SweepGrid& grid, const std::vector<Count>& counts) {
  std::string text = "decisions for motion, of all; ratio down, period across\n" + padded("");
  for (const int period : grid.periods) text += padded(std::to_string(period));
  for (size_t i = 0; i < counts.size(); ++i) {
    if (i % grid.periods.size() == 0) {
      text += "\n" + padded(formatted("%.6g", counts[i].settings.ratio) + " %");
    }
    text += padded(std::to_string(counts[i].motion) + " of " + std::to_string(counts[i].decisions));
  }
  return text + "\n";
}

}  // namespace

void add_sweep_grid(CLI::App* command, CLI::Option* sweep, SweepGrid* grid) {
  command->add_option("--ratios", grid->ratios, "Ratios to try, in per cent")
      ->type_name("A,B,...")
      ->delimiter(',')
      ->check(is_percentage())
      ->needs(sweep)
      ->capture_default_str();
  command->add_option("--periods", grid->periods, "Periods to try, in frames")
      ->type_name("A,B,...")
      ->delimiter(',')
      ->check(CLI::Range(1, kMaxPeriod))
      ->needs(sweep)
      ->capture_default_str();
}

Report sweep_motion(const std::string& input, const SweepGrid& grid, int64_t limit,
                    bool wants_progress) {
  std::vector<Count> counts;
  std::unique_ptr<FrameSource> source = open_moving(input);
  if (source->kind() == FrameSource::Kind::kCamera) {
    throw Failure(input + ": a camera; --sweep takes a recording, to look at it several times");
  }
  const int64_t passes = static_cast<int64_t>(grid.ratios.size() * grid.periods.size());
  ProgressBar progress(input, passes * progress_total(*source, limit, wants_progress));
  int64_t frames_before = 0;
  for (const double ratio : grid.ratios) {
    for (const int period : grid.periods) {
      if (!source) source = open_moving(input);
      counts.push_back(
          count_decisions(source.get(), {ratio, period}, limit, &progress, frames_before));
      frames_before += counts.back().frames;
      source.reset();
    }
  }
  progress.hide();

  Report report;
  report.text = table(grid, counts);
  report.json = {{"input", input}, {"frames", counts.front().frames}, {"sweep", Json::array()}};
  for (const Count& count : counts) {
    report.json["sweep"].push_back({{"ratio", count.settings.ratio},
                                    {"period", count.settings.period},
                                    {"decisions", count.decisions},
                                    {"motion", count.motion}});
  }
  return report;
}

}  // namespace kelnn_cli
