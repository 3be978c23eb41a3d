// SPDX-License-Identifier: Apache-2.0
// Sound, motion, and networks of one's own.
#include "arrays.h"
#include "call.h"

namespace kelnn_python {
namespace {

constexpr char kClose[] = "Releases what it holds. It takes nothing more.";

py::array_t<int16_t> take_samples(py::handle samples) {
  return take<int16_t>(samples, "samples", "(n,)", {-1});
}

void add_cry_detector(py::module_& module) {
  using Held = Closable<kel_nn::CryDetector>;
  auto type = py::class_<Held>(module, "CryDetector", "Is a baby crying?");
  type.def(py::init([](Library& library, float gate) {
             return std::make_unique<Held>("cry detection",
                                           [&](auto& task) { task.emplace(library.open(), gate); });
           }),
           py::arg("library"), py::arg("gate") = kel_nn::kLowestGate,
           "Loads the model. `gate`: how loud(), at least, a window must be to be shown to the "
           "network.")
      .def(
          "add",
          [](Held& task, py::handle samples) {
            const auto array = take_samples(samples);
            const int16_t* const data = array.data();
            const auto n = static_cast<size_t>(array.size());
            return call([&] {
              std::vector<float> probabilities;
              task.open().add(data, n,
                              [&](float probability) { probabilities.push_back(probability); });
              return probabilities;
            });
          },
          py::arg("samples"),
          "Takes any number of samples, int16 of (n,), mono, 16000 a second. Gives the probability "
          "of crying of each\n"
          "window of 3 seconds that they fill, 0.00001 for one that is too quiet. Nothing is lost "
          "between windows.");
  Held::add_to(type, kClose);
}

void add_sound_features(py::module_& module) {
  using Held = Closable<kel_nn::SoundFeatures>;
  auto type = py::class_<Held>(
      module, "SoundFeatures",
      "What the network of CryDetector sees of a window: energies in mel channels, a row for\n"
      "every 10 ms. Needs no model.");
  type.def(py::init([](float gate) {
             return std::make_unique<Held>("sound features",
                                           [&](auto& made) { made.emplace(gate); });
           }),
           py::arg("gate") = kel_nn::kLowestGate, "`gate`: how loud(), at least, a window must be.")
      .def(
          "of",
          [](Held& features, py::handle window) -> std::optional<py::array_t<uint8_t>> {
            constexpr auto kSamples = static_cast<py::ssize_t>(kel_nn::kWindowSamples);
            const auto samples = take<int16_t>(window, "window", "(48000,)", {kSamples});
            const int16_t* const data = samples.data();
            auto matrix = new_array<uint8_t>({297, 64});
            uint8_t* const bytes = matrix.mutable_data();
            const auto size = static_cast<size_t>(matrix.size());
            const bool is_loud = call([&] {
              kel_nn::SoundFeatures& open = features.open();
              if (!open.of(data)) return false;
              std::copy_n(open.bytes(), size, bytes);
              return true;
            });
            if (!is_loud) return std::nullopt;
            return matrix;
          },
          py::arg("window"),
          "Of a window, int16 of (48000,): uint8, (297, 64), the lowest channel first; 128 is a "
          "channel's mean over the\n"
          "window. None: it is too quiet.")
      .def(
          "centre_hz",
          [](Held& features, int channel) {
            return call([&] { return features.open().centre_hz(channel); });
          },
          py::arg("channel"), "The middle of a channel, in Hz; channels from 0.")
      .def(
          "channel_at",
          [](Held& features, double hz) {
            return call([&] { return features.open().channel_at(hz); });
          },
          py::arg("hz"), "The inverse of centre_hz().");
  Held::add_to(type, kClose);
}

void add_motion_filter(py::module_& module) {
  using Held = Closable<kel_nn::MotionFilter>;
  auto type = py::class_<Held>(module, "MotionFilter", "Did the picture really move?");
  type.def(py::init([](Library& library, float ratio, int period) {
             return std::make_unique<Held>(
                 "motion", [&](auto& task) { task.emplace(library.open(), ratio, period); });
           }),
           py::arg("library"), py::arg("ratio") = kel_nn::MotionFilter::kUsualRatio,
           py::arg("period") = kel_nn::MotionFilter::kUsualPeriod,
           "Needs no model. `ratio`: from how many changed pixels on a frame votes for motion, in "
           "per cent of the halved\n"
           "frame; `period`: frames in a period.")
      .def(
          "take",
          [](Held& filter, py::handle luma) {
            const auto plane = take<uint8_t>(luma, "luma", "(height, width)", {-1, -1});
            const uint8_t* const data = plane.data();
            const kel_nn::Size size = {static_cast<int32_t>(plane.shape(1)),
                                       static_cast<int32_t>(plane.shape(0))};
            return call([&] { return filter.open().take(data, size); });
          },
          py::arg("luma"),
          "Takes a luma plane, uint8 of (height, width). At the end of a period: whether there was "
          "motion; else None.\n"
          "Frames of another size than the ones before start anew.");
  Held::add_to(type, kClose);
}

// (height, width, channels), which a network keeps.
std::array<py::ssize_t, 3> shape_of(Closable<kel_nn::Graph>& graph) {
  return call([&]() -> std::array<py::ssize_t, 3> {
    const kel_nn::Size size = graph.open().input_size();
    return {size.h, size.w, graph.open().input_channels()};
  });
}

}  // namespace

void add_sound(py::module_& module) {
  module.attr("SAMPLE_RATE") = kel_nn::kSoundRate;
  module.attr("WINDOW_SAMPLES") = kel_nn::kWindowSamples;
  module.attr("LOWEST_GATE") = kel_nn::kLowestGate;
  module.def(
      "loudness",
      [](py::handle samples) {
        const auto array = take_samples(samples);
        return kel_nn::loudness(array.data(), static_cast<size_t>(array.size()));
      },
      py::arg("samples"),
      "How loud a window, int16 of (n,), is: what a gate is compared with, the sizes of every "
      "tenth sample added up.");
  add_cry_detector(module);
  add_sound_features(module);
  add_motion_filter(module);
}

void add_graph(py::module_& module) {
  using Held = Closable<kel_nn::Graph>;
  auto type =
      py::class_<Held>(module, "Graph", "A network that is no task's. There may be any number.");
  type.def(py::init([](py::object path, bool is_scrambled) {
             const auto file = py::module_::import("os").attr("fsencode")(path).cast<std::string>();
             return std::make_unique<Held>("graph",
                                           [&](auto& graph) { graph.emplace(file, is_scrambled); });
           }),
           py::arg("path"), py::arg("is_scrambled") = false,
           "Loads a network. `is_scrambled`: the file is like those of the tasks; else the runtime "
           "reads it itself.")
      .def_property_readonly(
          "input_shape",
          [](Held& graph) {
            const auto [height, width, channels] = shape_of(graph);
            return py::make_tuple(height, width, channels);
          },
          "(height, width, channels).")
      .def(
          "run",
          [](Held& graph, py::handle image) {
            const auto [height, width, channels] = shape_of(graph);
            const bool is_flat = channels == 1 && py::isinstance<py::array>(image) &&
                                 py::reinterpret_borrow<py::array>(image).ndim() == 2;
            const std::string shape = py::str("({}, {}, {})").format(height, width, channels);
            const auto array =
                is_flat ? take<uint8_t>(image, "image", shape.c_str(), {height, width})
                        : take<uint8_t>(image, "image", shape.c_str(), {height, width, channels});
            const uint8_t* const pixels = array.data();
            using Values = std::pair<std::vector<py::ssize_t>, std::vector<float>>;
            const auto outputs = call([&] {
              kel_nn::Graph& open = graph.open();
              open.run(pixels);
              std::vector<Values> all;
              for (size_t i = 0; open.output(i).values; ++i) {
                const kel_nn::Graph::Output output = open.output(i);
                all.push_back({{output.dim.begin(), output.dim.end()},
                               {output.values, output.values + output.count()}});
              }
              return all;
            });
            py::list arrays;
            for (const auto& [dimensions, values] : outputs)
              arrays.append(array_of(values.data(), dimensions));
            return arrays;
          },
          py::arg("image"),
          "Runs it on an image, uint8 of `input_shape`, (height, width) for one channel. Gives the "
          "outputs, float32, each\n"
          "with the three dimensions that the model gives.");
  Held::add_to(type, kClose);
}

}  // namespace kelnn_python
