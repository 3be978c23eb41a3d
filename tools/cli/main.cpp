// SPDX-License-Identifier: Apache-2.0
// kelnn, the command line of libkelnn. Exit codes: 0 fine, 1 the command failed or found something
// wrong, 2 it was called wrongly, 128 and the number of the signal that interrupted it. Results go to standard output, everything else to standard error.
#include <exception>
#include <opencv2/core/utils/logger.hpp>

#include "options.h"
#include "progress_bar.h"

int main(int argc, char** argv) {
  using namespace kelnn_cli;
  cv::utils::logging::setLogLevel(
      cv::utils::logging::LOG_LEVEL_SILENT);  // failures are reported here
  handle_signals();
  const CommandLine line = parse(argc, argv);
  if (!line.command) return line.exit_code;
  ProgressBar::set(line.report.is_quiet         ? ShowProgress::kNever
                   : line.report.wants_progress ? ShowProgress::kAlways
                                                : ShowProgress::kAtTerminals,
                   line.name);
  Reporter reporter(line.report);
  int exit_code = kFailed;
  try {
    exit_code = line.command(&reporter) ? kFine : kFailed;
    reporter.finish();
  } catch (const UsageError& error) {
    reporter.complain(error);
    exit_code = kBadUsage;
  } catch (const std::exception& error) {
    reporter.complain(error);
  }
  return interruption() ? 128 + interruption() : exit_code;
}
