// SPDX-License-Identifier: Apache-2.0
// Where models are when nobody says: the directory that $KELNN_MODELS names; else of the user's directory and the one
// beside the installed program the first that holds a model. Directories are not mixed.
#pragma once

#include <string>

namespace kelnn_cli {

// Where kelnn keeps what is the user's own, with a "/" at the end; empty for somebody without a home.
std::string user_directory();

// Both are roots as the library takes them, with a "/" at the end.
std::string models_to_read();   // if there are none: where packages put them
std::string models_to_write();  // never the packages' directory; "./" for somebody without a home
// Would commands without a root find in it what pack without a root writes? Not of an installed directory with models:
// it is no longer looked in once the user's own has one.
bool is_filled_by_pack(const std::string& root);

// Where models_to_read() looked, in one line; empty if `root` is another directory.
std::string where_models_were_looked_for(const std::string& root);

}  // namespace kelnn_cli
