// SPDX-License-Identifier: Apache-2.0
// What is made of the description of the options besides --help.
#pragma once

#include <CLI/App.hpp>
#include <string>
#include <vector>

namespace kelnn_cli {

std::string manual_page(const CLI::App& app);  // for man, section 1

// For shells.
std::string bash_completion(const CLI::App& app);
std::string zsh_completion(const CLI::App& app);
std::string fish_completion(const CLI::App& app);

// Of a command, those in its groups too; nothing that is hidden or that every command has.
std::vector<const CLI::Option*> options_of(const CLI::App& command);

}  // namespace kelnn_cli
