// SPDX-License-Identifier: Apache-2.0
#include "module.h"

#include <dlfcn.h>

#include <filesystem>

#include "files.h"
#include "report.h"

namespace kelnn_cli {

// Never unloaded: what it made may live as long as the program.
void* module_function(const char* file) {
  // Not $ORIGIN: where dlopen() is intercepted, as under sanitizers, that is the interceptor's place.
  const std::filesystem::path path =
      std::filesystem::path(program_directory()) / KEL_NN_MODULES / file;
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  void* function = library ? dlsym(library, "kelnn_module") : nullptr;
  if (!function) throw Failure("a part of kelnn cannot be loaded: " + std::string(dlerror()));
  return function;
}

}  // namespace kelnn_cli
