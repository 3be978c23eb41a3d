// SPDX-License-Identifier: Apache-2.0
// What is made of the description of the options besides --help.
#pragma once

#include <CLI/App.hpp>
#include <string>

namespace kelnn_cli {

std::string manual_page(const CLI::App& app);  // for man, section 1
std::string completion(const CLI::App& app);   // for bash-completion

}  // namespace kelnn_cli
