#include "motion_options.h"

#include <algorithm>
#include <cstdlib>

#include "progress_bar.h"
#include "report.h"

namespace kelnn_cli {
namespace {

constexpr int64_t kLongVideo = 100;  // frames; fewer are done before a progress bar is read

}  // namespace

std::unique_ptr<FrameSource> open_moving(const std::string& input) {
  std::unique_ptr<FrameSource> source = open_frames(input);
  if (source->kind() == FrameSource::Kind::kPicture) {
    throw Failure(input + ": a picture; motion takes a video or a camera");
  }
  return source;
}

int64_t progress_total(const FrameSource& source, int64_t limit, bool wants_progress) {
  int64_t total = source.count();
  if (limit > 0) total = std::min(total, limit);
  return wants_progress || (is_terminal_error_output() && total > kLongVideo) ? total : 0;
}

CLI::Validator is_percentage() {
  return CLI::Validator(
      [](std::string& text) {
        char* end = nullptr;
        const double value = std::strtod(text.c_str(), &end);
        const bool is_one = end != text.c_str() && !*end && value >= 0 && value <= 100;
        return is_one ? "" : "\"" + text + "\" is not a percentage from 0 to 100";
      },
      "");
}

void add_motion_settings(CLI::App* command, MotionSettings* settings) {
  command
      ->add_option("--ratio", settings->ratio,
                   "From how many changed pixels on a frame votes for motion, in per cent of the\n"
                   "halved frame")
      ->type_name("PERCENT")
      ->check(is_percentage())
      ->capture_default_str();
  command->add_option("--period", settings->period, "Frames to a decision, by majority")
      ->type_name("N")
      ->check(CLI::Range(1, kMaxPeriod))
      ->capture_default_str();
}

}  // namespace kelnn_cli
