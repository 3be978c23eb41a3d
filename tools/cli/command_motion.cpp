// kelnn motion: the motion filter on a recording or a camera, and what other settings would say.
#include <algorithm>
#include <filesystem>
#include <memory>
#include <opencv2/imgcodecs.hpp>

#include "changed_pixels.h"
#include "command.h"
#include "drawing_target.h"
#include "formatted.h"
#include "interruption.h"
#include "motion_drawing.h"
#include "motion_options.h"
#include "motion_sweep.h"
#include "progress_bar.h"

namespace kelnn_cli {
namespace {

struct Options {
  std::string input, out;
  MotionSettings settings;
  bool wants_sweep = false;
  SweepGrid grid;
  int64_t limit = 0;
  bool wants_progress = false;
};

// Of the frames that had a vote since the last decision, the shares of changed pixels.
class Shares {
 public:
  void add(double percent) { shares_.push_back(percent); }
  double largest() const {
    return shares_.empty() ? 0 : *std::max_element(shares_.begin(), shares_.end());
  }
  // What more than half of the frames reach, so that it is this share that decides: the median, of
  // an even number the lower one.
  double deciding() const {
    if (shares_.empty()) return 0;
    std::vector<double> sorted = shares_;
    std::sort(sorted.begin(), sorted.end());
    return sorted[(sorted.size() - 1) / 2];
  }
  void clear() { shares_.clear(); }

 private:
  std::vector<double> shares_;
};

Report report_of(const Options& options, const Frame& frame, bool is_motion, const Shares& shares) {
  Report report;
  report.text = options.input + " frame " + std::to_string(frame.index) + " at " +
                formatted("%.3f", frame.seconds) + " s: " + (is_motion ? "motion" : "still") +
                ", changed " + formatted("%.3f", shares.deciding()) + " %, at most " +
                formatted("%.3f", shares.largest()) + " %\n";
  report.json = {{"input", options.input},       {"frame", frame.index},
                 {"time", frame.seconds},        {"motion", is_motion},
                 {"changed", shares.deciding()}, {"changed_max", shares.largest()}};
  return report;
}

// A video of frames, or one picture of all decisions.
class Drawing {
 public:
  Drawing(const Options& options, const FrameSource& source) : ratio_(options.settings.ratio) {
    if (options.out.empty()) return;
    is_strip_ = std::filesystem::path(options.out).has_extension() && !is_video_name(options.out) &&
                cv::haveImageWriter(options.out);
    sink_ = is_strip_ ? make_picture(options.out)
                      : DrawingTarget(options.out, {options.input}).open(options.input, source, 1);
  }
  void add_frame(const cv::Mat& bgr, const cv::Mat& changed, Decision last_decision) {
    if (sink_ && !is_strip_) sink_->write(frame_with_changes(bgr, changed, last_decision));
  }
  void add_decision(bool is_motion, double changed) {
    if (is_strip_) decisions_.push_back({is_motion, changed});
  }
  void finish() {
    if (is_strip_) sink_->write(decision_strip(decisions_, ratio_));
    if (sink_) sink_->finish();
  }

 private:
  double ratio_;
  bool is_strip_ = false;
  std::unique_ptr<FrameSink> sink_;
  std::vector<DecisionMark> decisions_;
};

bool watch_motion(const Options& options, const Listener& listener) {
  const std::unique_ptr<FrameSource> source = open_moving(options.input);
  Drawing drawing(options, *source);
  ProgressBar progress(options.input,
                       progress_total(*source, options.limit, options.wants_progress));
  MotionFilter filter(options.settings);
  ChangedPixels changed_pixels;
  Shares shares;
  Decision last = Decision::kNotYet;
  Frame frame;
  for (int64_t seen = 0; options.limit == 0 || seen < options.limit; ++seen) {
    if (is_interrupted() || !source->read(&frame)) break;
    const cv::Mat luma = luma_of(frame.pixels);
    const cv::Mat changed = changed_pixels.take(luma);
    if (!changed.empty()) shares.add(percentage(changed));
    const Decision decision = filter.take(luma);
    if (decision != Decision::kNotYet) {
      const bool is_motion = decision == Decision::kMotion;
      last = decision;
      progress.hide();
      listener.report(report_of(options, frame, is_motion, shares));
      drawing.add_decision(is_motion, shares.deciding());
      shares.clear();
    }
    drawing.add_frame(frame.pixels, changed, last);
    progress.show(frame.index + 1);
  }
  drawing.finish();
  return true;
}

}  // namespace

void add_motion(CLI::App& app, StreamingCommand* chosen) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "motion",
      "Tells motion in a recording or of a camera; needs no model.\n"
      "At the end of each period: motion or still, the share of the halved frame's pixels\n"
      "that changed (more than half of the period's frames reach it: motion is where it is at\n"
      "least the ratio), and the largest share. With --json an object a line.\n"
      "--sweep runs a recording once for each of several ratios and periods and counts how\n"
      "many decisions said motion, to choose both without filming again.");
  command->add_option("input", options->input, kMovingInputHelp)->required()->type_name("INPUT");
  add_motion_settings(command, &options->settings);
  command
      ->add_option(
          "--draw", options->out,
          "Write a video (.avi, .mp4) with the changed pixels in red; or a picture with a\n"
          "cell for each decision, red for motion, its bar the share of changed pixels")
      ->type_name("OUT");
  CLI::Option* sweep = command->add_flag("--sweep", options->wants_sweep,
                                         "Count decisions for a grid of ratios and periods");
  add_sweep_grid(command, sweep, &options->grid);
  command->get_option("--draw")->excludes(sweep);
  command->add_option("--limit", options->limit, "Look at this many frames at most")
      ->type_name("N")
      ->check(CLI::Range(int64_t{1}, int64_t{1000000000}));
  command->add_flag("--progress", options->wants_progress,
                    "Show on standard error how far it is, also when that is no terminal");
  command->callback([=] {
    *chosen = [options](const Listener& listener) {
      catch_interruption();
      if (!options->wants_sweep) return watch_motion(*options, listener);
      listener.report(
          sweep_motion(options->input, options->grid, options->limit, options->wants_progress));
      return true;
    };
  });
}

}  // namespace kelnn_cli
