// SPDX-License-Identifier: Apache-2.0
#include "codec_modules.h"

#include <dlfcn.h>

#include <filesystem>

#include "files.h"
#include "report.h"

namespace kelnn_cli {
namespace {

// Never unloaded: what it made may live as long as the program.
template <typename Module>
const Module& load(const char* name) {
  // Not $ORIGIN: where dlopen() is intercepted, as under sanitizers, that is the interceptor's place.
  const std::filesystem::path path =
      std::filesystem::path(program_directory()) / KEL_NN_MODULES / name;
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  void* factory = library ? dlsym(library, "kelnn_module") : nullptr;
  if (!factory) throw Failure("a part of kelnn cannot be loaded: " + std::string(dlerror()));
  return *reinterpret_cast<const Module* (*)()>(factory)();
}

}  // namespace

const OpenCvModule& opencv_module() {
  static const OpenCvModule& module = load<OpenCvModule>("opencv.so");
  return module;
}

const VideoModule& video_module() {
  static const VideoModule& module = load<VideoModule>("video.so");
  return module;
}

}  // namespace kelnn_cli
