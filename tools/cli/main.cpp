// SPDX-License-Identifier: Apache-2.0
// kelnn, the command line of libkelnn. Exit codes: 0 fine, 1 the command failed or found something
// wrong, 2 it was called wrongly. Results go to standard output, everything else to standard error.
#include <exception>
#include <opencv2/core/utils/logger.hpp>

#include "options.h"

int main(int argc, char** argv) {
  using namespace kelnn_cli;
  cv::utils::logging::setLogLevel(
      cv::utils::logging::LOG_LEVEL_SILENT);  // failures are reported here
  const CommandLine line = parse(argc, argv);
  if (!line.command) return line.exit_code;
  Reporter reporter(line.wants_json);
  try {
    return line.command(&reporter) ? kFine : kFailed;
  } catch (const std::exception& error) {
    reporter.complain(error);
    return kFailed;
  }
}
