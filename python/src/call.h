// SPDX-License-Identifier: Apache-2.0
// How Python calls the library: one caller at a time, without the interpreter's lock, and with what the library
// prints on its way to `logging`.
#ifndef KELNN_PYTHON_CALL_H_
#define KELNN_PYTHON_CALL_H_

#include <pybind11/pybind11.h>

#include <cstdio>
#include <kel_nn.hpp>
#include <mutex>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

namespace kelnn_python {

namespace py = pybind11;

// The one caller that the library may have. Taken by a thread that has released the interpreter's lock, and given
// back before that is taken again: neither is ever waited for while the other is held. (A fork waits for it with the
// interpreter's lock held, which its holder does not need to finish.)
std::mutex& one_caller();

// Takes what C code prints while it lives; held by the one caller. The C library's `stdout` leads elsewhere meanwhile,
// not descriptor 1: that costs nothing, and what other Python threads print goes where it should.
class Caught {
 public:
  Caught();
  ~Caught();
  Caught(const Caught&) = delete;
  Caught& operator=(const Caught&) = delete;

  // All that was printed.
  std::string take();

  // Forgets the first error that was printed, which is none of the user's.
  static void forget_first_error();

 private:
  FILE* outer_;
};

// The error, with the library's line if it has none yet.
kel_nn::Error with_line(const kel_nn::Error& error, const std::string& printed);

// Hands what was printed to the logger kelnn.messages.
void log(const std::string& printed);

// What `work` returns, as the one caller; with the interpreter's lock, which it must hold, released.
template <typename Work>
auto call(Work work) {
  using Result = std::invoke_result_t<Work>;
  std::conditional_t<std::is_void_v<Result>, std::optional<bool>, std::optional<Result>> result;
  std::optional<kel_nn::Error> error;
  std::exception_ptr other;
  std::string printed;
  {
    const py::gil_scoped_release released;
    const std::lock_guard<std::mutex> lock(one_caller());
    Caught caught;
    try {
      if constexpr (std::is_void_v<Result>) {
        work();
      } else {
        result.emplace(work());
      }
    } catch (const kel_nn::Error& thrown) {
      error.emplace(thrown);
    } catch (...) {
      other = std::current_exception();
    }
    printed = caught.take();
  }
  if (!printed.empty()) log(printed);
  if (error) throw with_line(*error, printed);
  if (other) std::rethrow_exception(other);
  if constexpr (!std::is_void_v<Result>) return std::move(*result);
}

// An object of the library that Python may close before it lets go of it. Both happen as the one caller.
template <typename Object>
class Closable {
 public:
  template <typename Make>
  Closable(const char* name, Make make) : name_(name) {
    call([&] { make(object_); });
  }
  ~Closable() { close(); }
  Closable(const Closable&) = delete;
  Closable& operator=(const Closable&) = delete;

  void close() {
    call([&] { object_.reset(); });
  }

  // For the one caller: another thread may close the object until then.
  Object& open() {
    if (!object_) throw py::value_error(std::string(name_) + " is closed");
    return *object_;
  }

  // Adds what objects with a close() have in Python.
  template <typename Class>
  static void add_to(Class& type, const char* what) {
    type.def("close", &Closable::close, what)
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__", [](Closable& self, const py::args&) { self.close(); });
  }

 private:
  const char* name_;
  std::optional<Object> object_;
};

using Library = Closable<kel_nn::Library>;

// The parts of the module.
void add_errors(py::module_& module);
void add_pictures(py::module_& module);
void add_tasks(py::module_& module);
void add_sound(py::module_& module);
void add_graph(py::module_& module);
void add_primitives(py::module_& module);

}  // namespace kelnn_python

#endif  // KELNN_PYTHON_CALL_H_
