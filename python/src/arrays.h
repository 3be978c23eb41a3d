// SPDX-License-Identifier: Apache-2.0
// numpy arrays: those of the user are looked at where they lie or refused, those of the module own their memory.
#ifndef KELNN_PYTHON_ARRAYS_H_
#define KELNN_PYTHON_ARRAYS_H_

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <kel_nn.hpp>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace kelnn_python {

namespace py = pybind11;

using Pair = std::pair<int, int>;  // a size, as (width, height)

inline kel_nn::Size size_of(Pair size) { return {size.first, size.second}; }
inline Pair pair_of(kel_nn::Size size) { return {size.w, size.h}; }

// "`name` must be WANTED, not a float64 array of shape (3, 4)".
[[noreturn]] void refuse(const char* name, const std::string& wanted, py::handle value);

// `value` as an array of T with these sides, -1 being any, that lies in C order; or a TypeError, which names them by
// `shape`: "(height, width)".
template <typename T>
py::array_t<T> take(py::handle value, const char* name, const char* shape,
                    std::initializer_list<py::ssize_t> sides) {
  using Array = py::array_t<T, py::array::c_style>;
  if (Array::check_(value)) {
    auto array = py::reinterpret_borrow<py::array_t<T>>(value);
    const bool is_aligned = array.flags() & py::detail::npy_api::NPY_ARRAY_ALIGNED_;
    const bool has_shape =
        array.ndim() == static_cast<py::ssize_t>(sides.size()) &&
        std::equal(sides.begin(), sides.end(), array.shape(),
                   [](py::ssize_t side, py::ssize_t has) { return side < 0 || side == has; });
    if (has_shape && is_aligned && array.size() <= INT32_MAX) return array;
  }
  const std::string type =
      std::is_same_v<T, kel_nn_box_t> ? "kelnn.BOX" : std::string(py::str(py::dtype::of<T>()));
  refuse(name, type + " array of shape " + shape + " in C order", value);
}

// The same, to be written to.
template <typename T>
T* take_mutable(py::array_t<T>& array, const char* name) {
  if (!array.writeable()) throw py::type_error(std::string(name) + " must be writeable");
  return array.mutable_data();
}

// Rows of 8-bit pixels that may be padded: what an array of (rows, columns) or (rows, columns, channels) is.
struct Rows {
  const uint8_t* data;
  py::ssize_t rows, columns, channels, stride;
};

// `value` as rows; `channels` is how many there must be, 1 meaning two dimensions alone, 0 any from 1 to 4.
Rows take_rows(py::handle value, const char* name, const char* shape, int channels,
               bool may_go_upwards = false);

// An array of its own with a copy of these values.
template <typename T>
py::array_t<T> array_of(const T* values, std::vector<py::ssize_t> shape) {
  return py::array_t<T>(std::move(shape), values);
}

// A new one, to be filled.
template <typename T>
py::array_t<T> new_array(std::vector<py::ssize_t> shape) {
  return py::array_t<T>(std::move(shape));
}

// How many rows of luma are in so many rows of NV12; 0: NV12 has no such number.
inline py::ssize_t luma_rows(py::ssize_t rows) {
  return rows % 3 == 2 ? 0 : rows / 3 * 2 + rows % 3;
}

// What frames are made of: the object holds the arrays.
struct Frame {
  kel_nn::Frame frame;
  py::object pixels, chroma;
};

// A Frame; or an array of (height, width) as grey, of (height, width, 3) as red, green, blue. It holds as long as
// `value` does.
kel_nn::Frame frame_of(py::handle value);

}  // namespace kelnn_python

#endif  // KELNN_PYTHON_ARRAYS_H_
