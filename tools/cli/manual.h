// SPDX-License-Identifier: Apache-2.0
// What is made of the description of the options besides --help.
#pragma once

#include <CLI/App.hpp>
#include <string>
#include <vector>

namespace kelnn_cli {

std::string manual_page(const CLI::App& app);  // for man, section 1

// For shells: what the last of the words behind the program's name may become, a line each, with what it is behind a
// tab. Nothing where that is the name of a file.
std::string completions(const CLI::App& app, const std::vector<std::string>& words);

}  // namespace kelnn_cli
