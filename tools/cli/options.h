// SPDX-License-Identifier: Apache-2.0
// The command line: what commands and options there are, their help and what is checked of them.
#pragma once

#include <functional>
#include <string>

#include "reporter.h"

namespace kelnn_cli {

enum ExitCode { kFine = 0, kFailed = 1, kBadUsage = 2 };

struct CommandLine {
  std::function<bool(Reporter*)> command;  // none: nothing is left to do
  std::string name;                        // the command's
  ReportOptions report;
  int exit_code = kFine;  // without a command: help was wanted, or the call was wrong and told so
};
CommandLine parse(int argc, char** argv);

}  // namespace kelnn_cli
