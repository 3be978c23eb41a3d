// SPDX-License-Identifier: Apache-2.0
#include "arrays.h"

namespace kelnn_python {

void refuse(const char* name, const std::string& wanted, py::handle value) {
  std::string found = py::str(py::type::handle_of(value).attr("__name__"));
  if (py::isinstance<py::array>(value)) {
    found = std::string(py::str(value.attr("dtype"))) + " array of shape " +
            std::string(py::str(value.attr("shape")));
    const bool is_in_order = py::reinterpret_borrow<py::array>(value).flags() & py::array::c_style;
    if (!is_in_order) found += " with strides " + std::string(py::str(value.attr("strides")));
  }
  throw py::type_error(std::string(name) + " must be: " + wanted + "; this is: " + found);
}

Rows take_rows(py::handle value, const char* name, const char* shape, int channels,
               bool may_go_upwards) {
  if (py::array_t<uint8_t, 0>::check_(value)) {
    const auto array = py::reinterpret_borrow<py::array>(value);
    const py::ssize_t dimensions = array.ndim();
    const bool has_dimensions = dimensions == 3 ? channels != 1 : dimensions == 2 && channels <= 1;
    if (has_dimensions) {
      Rows rows = {static_cast<const uint8_t*>(array.data()), array.shape(0), array.shape(1), 1, 0};
      if (dimensions == 3) rows.channels = array.shape(2);
      const py::ssize_t row = rows.columns * rows.channels;
      // numpy leaves the stride of a single item open, and all of an array without any.
      rows.stride = rows.rows > 1 ? array.strides(0) : row;
      const bool is_packed =
          array.size() == 0 || ((rows.columns == 1 || array.strides(1) == rows.channels) &&
                                (rows.channels == 1 || array.strides(dimensions - 1) == 1));
      const bool has_channels =
          channels == 0 ? rows.channels >= 1 && rows.channels <= 4 : rows.channels == channels;
      const bool has_stride = rows.stride >= row || (may_go_upwards && -rows.stride >= row);
      if (is_packed && has_channels && has_stride && array.size() <= INT32_MAX &&
          std::abs(rows.stride) <= INT32_MAX) {
        return rows;
      }
    }
  }
  refuse(name,
         std::string("uint8 array of shape ") + shape +
             " whose rows, which may be padded, lie in C order",
         value);
}

namespace {

kel_nn::Frame frame_of_rows(const Rows& rows, kel_nn::Format format,
                            const uint8_t* chroma = nullptr) {
  return kel_nn::Frame({rows.data, static_cast<int>(rows.columns), static_cast<int>(rows.rows),
                        static_cast<int>(rows.stride), format, chroma});
}

kel_nn::Format format_of_nv12(bool is_full_range) {
  return is_full_range ? KEL_NN_KIT_NV12_FULL : KEL_NN_KIT_NV12;
}

Frame make_colour(py::object pixels, kel_nn::Format format) {
  return {frame_of_rows(take_rows(pixels, "pixels", "(height, width, 3)", 3), format), pixels,
          py::none()};
}

Frame make_nv12(py::object pixels, py::object chroma, bool is_full_range) {
  const kel_nn::Format format = format_of_nv12(is_full_range);
  if (chroma.is_none()) {
    Rows rows = take_rows(pixels, "pixels", "(height + height // 2, width)", 1);
    rows.rows = luma_rows(rows.rows);
    if (rows.rows == 0)
      refuse("pixels", "uint8 array of shape (height + height // 2, width)", pixels);
    return {frame_of_rows(rows, format), pixels, chroma};
  }
  const Rows luma = take_rows(pixels, "luma", "(height, width)", 1);
  const char* const shape = "(height // 2, width // 2, 2)";
  const Rows pairs = take_rows(chroma, "chroma", shape, 2);
  const bool is_single_row = luma.rows <= 3;  // whose stride nobody needs
  if (pairs.rows != luma.rows / 2 || pairs.columns != luma.columns / 2 ||
      (pairs.stride != luma.stride && !is_single_row)) {
    refuse(
        "chroma",
        std::string("uint8 array of shape ") + shape + " whose rows lie as far apart as the luma's",
        chroma);
  }
  return {frame_of_rows(luma, format, pairs.data), pixels, chroma};
}

}  // namespace

kel_nn::Frame frame_of(py::handle value) {
  if (py::isinstance<Frame>(value)) return value.cast<const Frame&>().frame;
  const char* const shape = "(height, width) or (height, width, 3)";
  const bool is_grey =
      py::isinstance<py::array>(value) && py::reinterpret_borrow<py::array>(value).ndim() == 2;
  return frame_of_rows(take_rows(value, "frame", shape, is_grey ? 1 : 3),
                       is_grey ? KEL_NN_KIT_GREY : KEL_NN_KIT_RGB);
}

void add_frame(py::module_& module) {
  py::class_<Frame>(
      module, "Frame",
      "A picture in the memory of numpy arrays, which it keeps alive and does not copy.")
      .def_static(
          "grey",
          [](py::object pixels) {
            return Frame{
                frame_of_rows(take_rows(pixels, "pixels", "(height, width)", 1), KEL_NN_KIT_GREY),
                pixels, py::none()};
          },
          py::arg("pixels"), "Grey: uint8, (height, width).")
      .def_static(
          "rgb", [](py::object pixels) { return make_colour(pixels, KEL_NN_KIT_RGB); },
          py::arg("pixels"), "Red, green, blue: uint8, (height, width, 3).")
      .def_static(
          "bgr", [](py::object pixels) { return make_colour(pixels, KEL_NN_KIT_BGR); },
          py::arg("pixels"), "Blue, green, red, as OpenCV has them: uint8, (height, width, 3).")
      .def_static(
          "nv12", &make_nv12, py::arg("pixels"), py::arg("chroma") = py::none(), py::kw_only(),
          py::arg("full_range") = false,
          "NV12, as video is stored: uint8, (height + height // 2, width), the luma above the "
          "chroma.\n\n"
          "With `chroma`, two planes whose rows lie equally far apart: luma (height, width) and "
          "chroma\n"
          "(height // 2, width // 2, 2). `full_range`: values from 0 to 255, as JPEG stores them.")
      .def_property_readonly(
          "size", [](const Frame& frame) { return pair_of(frame.frame.size()); },
          "(width, height), in pixels.")
      .def("__repr__", [](const Frame& frame) {
        const kel_nn::Size size = frame.frame.size();
        return "<kelnn.Frame of " + std::to_string(size.w) + " x " + std::to_string(size.h) +
               " pixels>";
      });
}

}  // namespace kelnn_python
