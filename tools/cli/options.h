// What the options of several commands have in common.
#ifndef KEL_NN_TOOLS_OPTIONS_H_
#define KEL_NN_TOOLS_OPTIONS_H_

#include <CLI/CLI.hpp>
#include <string>

#include "picture.h"

namespace kelnn_cli {

void add_box(CLI::App* command, const std::string& name, Box* box, const std::string& help);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_OPTIONS_H_
