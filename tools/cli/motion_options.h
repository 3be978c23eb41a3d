// What the commands that look for motion have in common: their input and the filter's settings.
#ifndef KEL_NN_TOOLS_MOTION_OPTIONS_H_
#define KEL_NN_TOOLS_MOTION_OPTIONS_H_

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "frame_source.h"
#include "motion_filter.h"

namespace kelnn_cli {

constexpr char kMovingInputHelp[] = "A video file, or a camera as camera:0, camera:1, ...";
constexpr int kMaxPeriod = 1000000;  // frames

// A Failure for a picture, which does not move.
std::unique_ptr<FrameSource> open_moving(const std::string& input);

// How many frames a progress bar counts; 0: none is wanted, or nobody knows.
int64_t progress_total(const FrameSource& source, int64_t limit, bool wants_progress);

void add_motion_settings(CLI::App* command, MotionSettings* settings);
CLI::Validator is_percentage();

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_MOTION_OPTIONS_H_
