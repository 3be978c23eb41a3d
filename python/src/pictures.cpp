// SPDX-License-Identifier: Apache-2.0
// Rectangles, frames and the kit. The kit prints nothing and any thread may use it.
#include "arrays.h"
#include "call.h"

namespace kelnn_python {

void add_frame(py::module_& module);

namespace {

using kel_nn::Rect;

std::string text_of(const Rect& rect) {
  return "Rect(x=" + std::to_string(rect.x) + ", y=" + std::to_string(rect.y) +
         ", w=" + std::to_string(rect.w) + ", h=" + std::to_string(rect.h) + ")";
}

auto fields(const Rect& rect) { return std::make_tuple(rect.x, rect.y, rect.w, rect.h); }

void add_rect(py::module_& module) {
  py::class_<Rect>(module, "Rect",
                   "A part of a picture, in pixels. Where one is wanted, (x, y, w, h) will do.")
      .def(py::init([](int x, int y, int w, int h) {
             return Rect{x, y, w, h};
           }),
           py::arg("x"), py::arg("y"), py::arg("w"), py::arg("h"))
      .def(py::init([](std::tuple<int, int, int, int> values) {
             return std::apply([](auto... value) { return Rect{value...}; }, values);
           }),
           py::arg("values"))
      .def_readonly("x", &Rect::x, "The first column.")
      .def_readonly("y", &Rect::y, "The first row.")
      .def_readonly("w", &Rect::w, "How many columns.")
      .def_readonly("h", &Rect::h, "How many rows.")
      .def("__iter__", [](const Rect& rect) { return py::iter(py::cast(fields(rect))); })
      .def("__len__", [](const Rect&) { return 4; })
      .def(
          "__eq__", [](const Rect& a, const Rect& b) { return fields(a) == fields(b); },
          py::is_operator())
      .def("__hash__", [](const Rect& rect) { return py::hash(py::cast(fields(rect))); })
      .def("__repr__", &text_of);
  py::implicitly_convertible<py::tuple, Rect>();
}

// The image that `fill` makes, an array of its own.
template <typename Fill>
py::array_t<uint8_t> make_image(Pair size, kel_nn::Format format, Fill fill) {
  const auto [width, height] = size;
  if (width < 1 || width > KEL_NN_KIT_MAX_SIDE || height < 1 || height > KEL_NN_KIT_MAX_SIDE) {
    throw kel_nn::Error(kel_nn::Error::kFrame, "picture", "no image has this size");
  }
  if (format > KEL_NN_KIT_BGR)
    throw kel_nn::Error(kel_nn::Error::kFrame, "picture", "no image has this format");
  auto array = format == KEL_NN_KIT_GREY ? new_array<uint8_t>({height, width})
                                         : new_array<uint8_t>({height, width, 3});
  const kel_nn_kit_image_t image = {array.mutable_data(), width, height, format, nullptr};
  int result = 0;
  {
    const py::gil_scoped_release released;
    result = fill(image);
  }
  kel_nn::Image::check(result);
  return array;
}

}  // namespace

void add_pictures(py::module_& module) {
  add_rect(module);
  add_frame(module);

  py::enum_<kel_nn::Format>(module, "Format",
                            "How the pixels of an image are stored, 8 bits a sample.")
      .value("GREY", KEL_NN_KIT_GREY)
      .value("RGB", KEL_NN_KIT_RGB)
      .value("BGR", KEL_NN_KIT_BGR);

  module.def(
      "scale",
      [](py::handle frame, Pair size, kel_nn::Format format) {
        const kel_nn::Frame from = frame_of(frame);
        return make_image(size, format, [&](const auto& image) {
          return kel_nn_kit_scale(&from.view(), &image);
        });
      },
      py::arg("frame"), py::arg("size"), py::arg("format") = KEL_NN_KIT_RGB,
      "The whole frame at `size` (width, height), not keeping its proportions: what face detection "
      "wants.\n\n"
      "Gives uint8, (height, width, 3), or (height, width) for Format.GREY.");
  module.def(
      "letterbox",
      [](py::handle frame, Pair size, kel_nn::Format format) {
        const kel_nn::Frame from = frame_of(frame);
        return make_image(size, format, [&](const auto& image) {
          return kel_nn_kit_letterbox(&from.view(), &image);
        });
      },
      py::arg("frame"), py::arg("size"), py::arg("format") = KEL_NN_KIT_RGB,
      "The frame in the middle of an image of `size` (width, height), scaled by max(image sides) / "
      "max(frame sides)\n"
      "and padded with 128, or cut off: what person and four-class detection want.\n\n"
      "Gives uint8, (height, width, 3), or (height, width) for Format.GREY.");
  module.def(
      "crop",
      [](py::handle frame, Rect rect, Pair size, kel_nn::Format format) {
        const kel_nn::Frame from = frame_of(frame);
        return make_image(size, format, [&](const auto& image) {
          return kel_nn_kit_crop(&from.view(), rect, &image);
        });
      },
      py::arg("frame"), py::arg("rect"), py::arg("size") = Pair(112, 112),
      py::arg("format") = KEL_NN_KIT_RGB,
      "A rectangle of the frame, cut off at its edges, at `size` (width, height), not keeping its "
      "proportions.\n\n"
      "Gives uint8, (height, width, 3), or (height, width) for Format.GREY. FrameError: it lies "
      "outside.");
  module.def(
      "align",
      [](py::handle frame, py::handle points, Pair size, kel_nn::Format format) {
        const kel_nn::Frame from = frame_of(frame);
        const auto places =
            take<float>(points, "points", "(5, 2)", {KEL_NN_KIT_FACE_POINT_COUNT, 2});
        return make_image(size, format, [&](const auto& image) {
          return kel_nn_kit_align_face(&from.view(), places.data(), &image);
        });
      },
      py::arg("frame"), py::arg("points"), py::arg("size") = Pair(112, 112),
      py::arg("format") = KEL_NN_KIT_GREY,
      "A face turned, scaled and moved so that its `points` come to lie where networks for face "
      "features expect them.\n\n"
      "points: float32, (5, 2), x and y in the frame's pixels of the left and the right eye as the "
      "picture "
      "shows them, the tip of\n"
      "the nose, the left and the right corner of the mouth; Landmarks.points are parts of the "
      "cut-out.\n\n"
      "Gives uint8, (height, width), or (height, width, 3) for Format.RGB and Format.BGR. "
      "FrameError: no face has such\n"
      "points.");
  module.def(
      "letterbox_rects",
      [](Pair frame_size, Pair image_size) {
        Rect source, destination;
        if (kel_nn_kit_letterbox_rects(size_of(frame_size), size_of(image_size), &source,
                                       &destination) != 0) {
          throw kel_nn::Error(kel_nn::Error::kFrame, "picture", "no frame or image has this size");
        }
        return std::make_pair(source, destination);
      },
      py::arg("frame_size"), py::arg("image_size"),
      "Where letterbox() puts what, for sizes as (width, height): a Rect of the frame, and the one "
      "of the image that\n"
      "it fills.");
  module.def(
      "detector_input",
      [](Pair frame_size) {
        return pair_of(kel_nn_kit_detector_input(frame_size.first, frame_size.second));
      },
      py::arg("frame_size"),
      "The input of the person and four-class detectors, both as (width, height).");
  module.def("centre_square", &kel_nn_kit_centre_square, py::arg("rect"),
             "The largest square in the middle of a rectangle.");
}

}  // namespace kelnn_python
