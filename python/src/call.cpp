// SPDX-License-Identifier: Apache-2.0
#include "call.h"

#include <pthread.h>

namespace kelnn_python {
namespace {

constexpr char kErrorTag[] = "[Error]";

std::string& printed() {
  static std::string* text = new std::string;  // never destroyed, like the stream that writes to it
  return *text;
}

ssize_t append(void*, const char* data, size_t size) {
  printed().append(data, size);
  return static_cast<ssize_t>(size);
}

// One for the whole process, and never closed: another thread of C code may be about to print into it.
FILE* stream() {
  static FILE* const stream = [] {
    FILE* made = fopencookie(nullptr, "w", {nullptr, append, nullptr, nullptr});
    if (made) std::setvbuf(made, nullptr, _IOFBF, 4096);
    return made;
  }();
  return stream;
}

// "[Error]text" of the last error, without the tag; empty if there is none.
std::string last_error(const std::string& text) {
  const size_t tag = text.rfind(kErrorTag);
  if (tag == std::string::npos) return {};
  const size_t start = tag + sizeof(kErrorTag) - 1;
  return text.substr(start, text.find('\n', start) - start);
}

}  // namespace

std::mutex& one_caller() {
  static std::mutex* const mutex = [] {
    // A child of fork() has its parent's lock but not the thread that would give it back.
    static std::mutex* made = new std::mutex;
    pthread_atfork([] { made->lock(); }, [] { made->unlock(); }, [] { made->unlock(); });
    return made;
  }();
  return *mutex;
}

Caught::Caught() : outer_(stdout) {
  if (FILE* const ours = stream()) stdout = ours;
}

Caught::~Caught() { stdout = outer_; }

std::string Caught::take() {
  if (FILE* const ours = stream()) std::fflush(ours);
  return std::exchange(printed(), std::string());
}

void Caught::forget_first_error() {
  std::fflush(stdout);
  std::string& text = printed();
  const size_t start = text.find("\033[0;31m"), end = text.find("\033[0m", start);
  if (end != std::string::npos) text.erase(start, end + 4 - start);
}

kel_nn::Error with_line(const kel_nn::Error& error, const std::string& printed) {
  const std::string line = last_error(printed);
  if (!error.line().empty() || line.empty()) return error;
  const bool is_memory = error.kind() == kel_nn::Error::kModel && line == "Out of memory.";
  const std::string problem =
      std::string(error.what()).substr(std::string(error.task()).size() + 2);
  return {is_memory ? kel_nn::Error::kMemory : error.kind(), error.task(), problem, line};
}

void log(const std::string& printed) {
  py::module_::import("kelnn._messages").attr("log")(py::bytes(printed));
}

void add_errors(py::module_&) {
  py::register_exception_translator([](std::exception_ptr thrown) {
    try {
      if (thrown) std::rethrow_exception(thrown);
    } catch (const kel_nn::Error& error) {
      constexpr const char* kNames[] = {"OutOfMemoryError", "ModelError", "RunError", "FrameError",
                                        "InUseError"};
      const py::object type = py::module_::import("kelnn._errors").attr(kNames[error.kind()]);
      const py::object raised = type(error.what(), error.task(), error.line());
      PyErr_SetObject(type.ptr(), raised.ptr());
    }
  });
}

}  // namespace kelnn_python
