// SPDX-License-Identifier: Apache-2.0
// Parts of the program that take long to load: each module is a shared library beside the program, loaded when it is
// first asked for. A module exports one function, kelnn_module(), which gives its table.
#pragma once

namespace kelnn_cli {

// kelnn_module() of that file. A Failure when the module cannot be loaded.
void* module_function(const char* file);

template <typename Module>
const Module& load_module(const char* file) {
  return *reinterpret_cast<const Module* (*)()>(module_function(file))();
}

}  // namespace kelnn_cli
