// One recording through the motion filter with many settings.
#ifndef KEL_NN_TOOLS_MOTION_SWEEP_H_
#define KEL_NN_TOOLS_MOTION_SWEEP_H_

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "report.h"

namespace kelnn_cli {

struct SweepGrid {
  std::vector<double> ratios = {0.5, 1, 2, 5};
  std::vector<int> periods = {5, 10, 25};
};

void add_sweep_grid(CLI::App* command, CLI::Option* sweep, SweepGrid* grid);

// How many decisions said motion, for every ratio and period. A Failure for what cannot be read
// again: a camera.
Report sweep_motion(const std::string& input, const SweepGrid& grid, int64_t limit,
                    bool wants_progress);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_MOTION_SWEEP_H_
