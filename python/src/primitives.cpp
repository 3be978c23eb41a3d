// SPDX-License-Identifier: Apache-2.0
// Vectors, boxes, decoders, resizing, and single steps of the audio front end. All but the decoders and kel_nn_nms(),
// which may print, are free for any thread.
#include <complex>

#include "arrays.h"
#include "call.h"

namespace kelnn_python {
namespace {

using Floats = py::array_t<float>;
using Boxes = py::array_t<kel_nn_box_t>;

Floats take_vector(py::handle value, const char* name) {
  return take<float>(value, name, "(n,)", {-1});
}

Boxes take_boxes(py::handle value, const char* name) {
  return take<kel_nn_box_t>(value, name, "(n,)", {-1});
}

uint32_t count_of(const py::array& array) { return static_cast<uint32_t>(array.size()); }

template <typename Work>
auto without_gil(Work work) {
  const py::gil_scoped_release released;
  return work();
}

void require(bool condition, const char* message) {
  if (!condition) throw py::value_error(message);
}

void add_vectors(py::module_& module) {
  const auto add_norm = [&](const char* name, float (*norm)(float*, uint32_t), const char* what) {
    module.def(
        name,
        [norm](py::handle data) {
          Floats array = take_vector(data, "data");
          float* const values = take_mutable(array, "data");
          return without_gil([&] { return norm(values, count_of(array)); });
        },
        py::arg("data"), what);
  };
  add_norm("l1norm", kel_nn_l1norm,
           "Divides the elements of float32 (n,), in place, by the sum of their absolute values, "
           "and gives the sum; 0,\n"
           "with the data left alone, when it is below 0.00001.");
  add_norm("l2norm", kel_nn_l2norm,
           "Divides the elements of float32 (n,), in place, by the root of the sum of their "
           "squares, and gives the root;\n"
           "0, with the data left alone, when the sum is below 0.00001.");
  module.def(
      "softmax",
      [](py::handle data) {
        Floats array = take_vector(data, "data");
        float* const values = take_mutable(array, "data");
        without_gil([&] { kel_nn_softmax(values, count_of(array)); });
      },
      py::arg("data"),
      "Replaces the elements of float32 (n,), in place, by exp(x) / sum of exp(x). One above 88.7 "
      "overflows to NaN.");
  module.def(
      "inner",
      [](py::handle a, py::handle b) {
        const Floats first = take_vector(a, "a"),
                     second = take<float>(b, "b", "that of `a`", {first.size()});
        const float *const x = first.data(), *const y = second.data();
        return without_gil([&] { return kel_nn_inner(x, y, count_of(first)); });
      },
      py::arg("a"), py::arg("b"),
      "The inner product of two float32 (n,), in single precision from first to last.");
  module.def("sigmoid", &kel_nn_sigmoid, py::arg("x"), "1 / (exp(-x) + 1), in single precision.");
  module.def(
      "similarity",
      [](py::handle a, py::handle b) {
        const Floats first = take<float>(a, "a", "(256,)", {256}),
                     second = take<float>(b, "b", "(256,)", {256});
        // The library only reads them.
        const kel_nn_feature_t x = {const_cast<float*>(first.data()), 256},
                               y = {const_cast<float*>(second.data()), 256};
        return kel_nn_face_feature_similarity_calcul(&x, &y);
      },
      py::arg("a"), py::arg("b"),
      "How alike two faces are, by their features, float32 (256,): 1 the most, -1 the least.");
}

void add_boxes(py::module_& module) {
  PYBIND11_NUMPY_DTYPE(kel_nn_box_t, cx, cy, w, h, score, class_id);
  module.attr("BOX") = py::dtype::of<kel_nn_box_t>();
  module.def(
      "iou",
      [](py::handle a, py::handle b) {
        const Boxes first = take_boxes(a, "a"), second = take_boxes(b, "b");
        Floats shares = new_array<float>({first.size(), second.size()});
        float* to = shares.mutable_data();
        const kel_nn_box_t *const x = first.data(), *const y = second.data();
        const py::ssize_t rows = first.size(), columns = second.size();
        without_gil([&] {
          for (py::ssize_t i = 0; i < rows; ++i) {
            for (py::ssize_t j = 0; j < columns; ++j) *to++ = nn_calcu_iou(&x[i], &y[j]);
          }
        });
        return shares;
      },
      py::arg("a"), py::arg("b"),
      "The overlap of each of the boxes `a` with each of `b`, the area shared over the area "
      "covered together: BOX (n,)\n"
      "and (m,) give float32 (n, m).");
  module.def(
      "nms",
      [](py::handle boxes, float iou_threshold, bool is_weighted) {
        const Boxes given = take_boxes(boxes, "boxes");
        std::vector<kel_nn_box_t> kept(given.data(), given.data() + given.size());
        const int count = call([&] {
          return kel_nn_nms(kept.data(), static_cast<int>(kept.size()), iou_threshold,
                            is_weighted ? KEL_NN_NMS_WEIGHTED : KEL_NN_NMS_HARD);
        });
        return array_of(kept.data(), {count});
      },
      py::arg("boxes"), py::arg("iou_threshold"), py::arg("is_weighted") = false,
      "Boxes, BOX (n,), thinned: a group of those that overlap by more than `iou_threshold` "
      "becomes its best box, or a\n"
      "weighted sum of its boxes. Classes are not compared.");
  module.def(
      "rects",
      [](py::handle boxes) {
        const Boxes given = take_boxes(boxes, "boxes");
        std::vector<kel_nn::Rect> found;
        for (py::ssize_t i = 0; i < given.size(); ++i)
          found.push_back(kel_nn_kit_rect_of_box(given.data() + i));
        return found;
      },
      py::arg("boxes"), "The rectangles of boxes, BOX (n,), rounded to whole pixels.");
}

// What a decoder makes of a map of one scale, at most `limit` boxes. The map must have the shape that the decoder takes
// it to have.
template <typename Param>
Boxes decode(int (*decoder)(const float*, int, const Param*, kel_nn_box_t*, uint32_t),
             py::handle map, int stride, const Param& param, py::ssize_t cell, uint32_t limit) {
  require(stride > 0 && param.input_w > 0 && param.input_h > 0, "stride and sizes must be above 0");
  const Floats values =
      take<float>(map, "map", "(input height / stride, input width / stride, values of a cell)",
                  {param.input_h / stride, param.input_w / stride, cell});
  const float* const data = values.data();
  // The places the library writes to beyond what it is told of: one.
  std::vector<kel_nn_box_t> boxes(std::max<size_t>(limit, 1));
  const int count = call([&] { return decoder(data, stride, &param, boxes.data(), limit); });
  return array_of(boxes.data(), {count});
}

void add_decoders(py::module_& module) {
  module.def(
      "yolov3",
      [](py::handle map, int stride, Pair image_size, Pair input_size, py::handle anchors,
         int classes, float score_threshold, uint32_t limit) {
        const auto sizes = take<int32_t>(anchors, "anchors", "(n, 2)", {-1, 2});
        const auto anchor_count = static_cast<int32_t>(sizes.shape(0));
        require(classes > 0 && anchor_count > 0, "there must be classes and anchors");
        const kel_nn_yolov3_param_t param = {image_size.first,  image_size.second, input_size.first,
                                             input_size.second, classes,           anchor_count,
                                             sizes.data(),      score_threshold};
        return decode(kel_nn_yolov3_postprocess, map, stride, param,
                      py::ssize_t{anchor_count} * (5 + classes), limit);
      },
      py::arg("map"), py::arg("stride"), py::kw_only(), py::arg("image_size"),
      py::arg("input_size"), py::arg("anchors"), py::arg("classes"), py::arg("score_threshold"),
      py::arg("limit") = 1000,
      "Boxes, BOX (n,), in pixels of an image of `image_size`, of a YOLOv3 map of one scale.\n\n"
      "map: float32, (input height / stride, input width / stride, anchors * (5 + classes)), all "
      "raw. Sizes are\n"
      "(width, height); `anchors` is int32 (n, 2), width and height in pixels of the input. Boxes "
      "that score\n"
      "`score_threshold` are kept. Decoding stops, with a warning, at `limit` boxes.");
  module.def(
      "centernet",
      [](py::handle map, int stride, Pair image_size, Pair input_size, int reg_max, int classes,
         float score_threshold, uint32_t limit) {
        require(classes > 0 && reg_max >= 0,
                "there must be classes, and reg_max must not be below 0");
        const kel_nn_centernet_param_t param = {
            image_size.first, image_size.second, input_size.first, input_size.second,
            reg_max,          classes,           score_threshold};
        const py::ssize_t cell = classes + 4 * (py::ssize_t{reg_max} + 1);
        return decode(kel_nn_centernet_postprocess, map, stride, param, cell, limit);
      },
      py::arg("map"), py::arg("stride"), py::kw_only(), py::arg("image_size"),
      py::arg("input_size"), py::arg("reg_max"), py::arg("classes"), py::arg("score_threshold"),
      py::arg("limit") = 1000,
      "Boxes, BOX (n,), in pixels of an image of `image_size`, of a CenterNet map of one scale.\n\n"
      "map: float32, (input height / stride, input width / stride, classes + 4 * (reg_max + 1)), "
      "all raw. Sizes are\n"
      "(width, height). Boxes that score `score_threshold` are dropped. Decoding stops, with a "
      "warning, at the first\n"
      "box beyond `limit`.");
}

void add_resizing(py::module_& module) {
  module.def(
      "resize",
      [](py::handle image, Pair size) {
        constexpr const char* kShape = "(height, width) or (height, width, 1 to 4)";
        const Rows from = take_rows(image, "image", kShape, 0, /*may_go_upwards=*/true);
        require(from.rows >= 2 && from.columns >= 2, "an image has at least 2 x 2 pixels");
        const auto [width, height] = size;
        require(width >= 1 && height >= 1 && width <= INT32_MAX / 4,
                "the size must be at least 1 x 1");
        using Resize = void (*)(const uint8_t*, int, int, int, uint8_t*, int, int, int);
        constexpr Resize kResize[] = {resize_bilinear_c1, resize_bilinear_c2, resize_bilinear_c3,
                                      resize_bilinear_c4};
        const bool is_flat = py::reinterpret_borrow<py::array>(image).ndim() == 2;
        auto to = is_flat ? new_array<uint8_t>({height, width})
                          : new_array<uint8_t>({height, width, from.channels});
        uint8_t* const pixels = to.mutable_data();
        const auto channels = static_cast<int>(from.channels);
        without_gil([&, width = width, height = height] {
          kResize[channels - 1](from.data, static_cast<int>(from.columns),
                                static_cast<int>(from.rows), static_cast<int>(from.stride), pixels,
                                width, height, width * channels);
        });
        return to;
      },
      py::arg("image"), py::arg("size"),
      "An image of uint8, (height, width) or (height, width, 1 to 4), from 2 x 2 on, at `size` "
      "(width, height):\n"
      "bilinear, in fixed point. Rows may be padded or go upwards.");
  module.def(
      "resize_nv12",
      [](py::handle image, Pair size) {
        constexpr const char* kShape = "(height + height // 2, width)";
        const auto from = take<uint8_t>(image, "image", kShape, {-1, -1});
        const auto rows = static_cast<int>(luma_rows(from.shape(0))),
                   columns = static_cast<int>(from.shape(1));
        require(rows >= 2 && columns >= 2, "no NV12 image has so few columns, or that many rows");
        const auto [width, height] = size;
        require(width >= 1 && height >= 1 && height <= INT32_MAX / 2,
                "the size must be at least 1 x 1");
        auto to = new_array<uint8_t>({height + height / 2, width});
        uint8_t* const pixels = to.mutable_data();
        std::fill_n(pixels, to.size(), uint8_t{0});
        const uint8_t* const data = from.data();
        without_gil([&, width = width, height = height] {
          resize_bilinear_yuv420sp(data, columns, rows, pixels, width, height);
        });
        return to;
      },
      py::arg("image"), py::arg("size"),
      "An NV12 image, uint8 of (height + height // 2, width), at `size` (width, height). An odd "
      "width leaves the last\n"
      "byte of each row of chroma 0; so is all chroma that is made of less than 4 x 4 pixels.");
}

// A vector as the audio routines take it: its length in front.
std::vector<float> counted(const Floats& values) {
  std::vector<float> vector = {static_cast<float>(values.size())};
  vector.insert(vector.end(), values.data(), values.data() + values.size());
  return vector;
}

bool is_power_of_two(py::ssize_t n) { return n > 0 && (n & (n - 1)) == 0; }

void add_audio_steps(py::module_& module) {
  using Complex = std::complex<float>;
  module.def(
      "fft",
      [](py::handle values, bool invert) {
        const auto given = take<Complex>(values, "values", "(n,)", {-1});
        require(is_power_of_two(given.size()) && given.size() <= (1 << 22),
                "n must be a power of two, up to 2**22");
        const auto* const parts = reinterpret_cast<const float*>(given.data());
        std::vector<float> vector = {static_cast<float>(2 * given.size())};
        vector.insert(vector.end(), parts, parts + 2 * given.size());
        without_gil([&] { kel_nn_fft(vector.data(), invert); });
        return array_of(reinterpret_cast<const Complex*>(vector.data() + 1), {given.size()});
      },
      py::arg("values"), py::arg("invert") = false,
      "The Fourier transform of complex64 (n,), n a power of two: the sum of x[t] exp(+2 pi i k t "
      "/ n), or, inverted,\n"
      "of x[t] exp(-2 pi i k t / n) / n.");
  module.def(
      "real_fft",
      [](py::handle values) {
        const Floats given = take_vector(values, "values");
        require(is_power_of_two(given.size()) && given.size() >= 2 && given.size() <= (1 << 23),
                "n must be a power of two, from 2 to 2**23");
        std::vector<float> vector = counted(given);
        without_gil([&] { kel_nn_real_fft(vector.data()); });
        return array_of(reinterpret_cast<const Complex*>(vector.data() + 1), {given.size() / 2});
      },
      py::arg("values"),
      "The Fourier transform of float32 (n,), n a power of two: bins 0 to n / 2 - 1, complex64 (n "
      "/ 2,).");
  module.def(
      "zero_mean",
      [](py::handle values) {
        std::vector<float> vector = counted(take_vector(values, "values"));
        without_gil([&] { kel_nn_zeromean_frame(vector.data()); });
        return array_of(vector.data() + 1, {static_cast<py::ssize_t>(vector.size() - 1)});
      },
      py::arg("values"), "float32 (n,) less its mean.");
  module.def(
      "pre_emphasise",
      [](py::handle values, float k) {
        std::vector<float> vector = counted(take_vector(values, "values"));
        vector.push_back(0);  // an empty one needs the room of one
        without_gil([&] { kel_nn_pre_emphasise(vector.data(), k); });
        return array_of(vector.data() + 1, {static_cast<py::ssize_t>(vector.size() - 2)});
      },
      py::arg("values"), py::arg("k") = 0.97f,
      "float32 (n,), less `k` times the element before; the first is multiplied by 1 - k.");
  module.def("mel", &kel_nn_mel_filter, py::arg("k"), py::arg("fres"),
             "The mel value of bin `k`, 1127 ln(1 + (k - 1) * fres); `fres` is the distance of two "
             "bins in Hz, over 700.");
  module.def("warp_frequency", &kel_nn_warp_freq, py::arg("lower"), py::arg("upper"),
             py::arg("frequency"), py::arg("min_frequency"), py::arg("max_frequency"),
             py::arg("alpha"), "A frequency warped for the length of a speaker's vocal tract.");
}

}  // namespace

void add_primitives(py::module_& module) {
  add_vectors(module);
  add_boxes(module);
  add_decoders(module);
  add_resizing(module);
  add_audio_steps(module);
}

}  // namespace kelnn_python
