// SPDX-License-Identifier: Apache-2.0
// The library's handle, and the tasks that look at pictures.
#include "arrays.h"
#include "call.h"

namespace kelnn_python {
namespace {

using kel_nn::Detection;
using kel_nn::FaceClass;
using kel_nn::Rect;

// Face detection, quiet about frames of another size: the front door hands one to the library's start, which takes the
// size over and then complains that the task has started.
class FaceDetector {
 public:
  explicit FaceDetector(const kel_nn::Library& library) : faces_(library) {}

  std::vector<Detection> detect(const kel_nn::Frame& frame) {
    const Pair size = pair_of(frame.size());
    std::vector<Detection> found = faces_.detect(frame);
    if (std::exchange(size_, size) != size) Caught::forget_first_error();
    return found;
  }

 private:
  kel_nn::FaceDetector faces_;
  Pair size_ = {0, 0};
};

constexpr char kCloseTask[] =
    "Releases the model; what was found stays. The task takes nothing more.";

// A class of a task: made of a library, and closed.
template <typename Task>
auto add_task(py::module_& module, const char* name, const char* key, const char* what) {
  using Held = Closable<Task>;
  auto type = py::class_<Held>(module, name, what);
  Held::add_to(type, kCloseTask);
  if constexpr (std::is_constructible_v<Task, const kel_nn::Library&, kel_nn::Size>) {
    type.def(py::init([key](Library& library, Pair frame_size) {
               return std::make_unique<Held>(
                   key, [&](auto& task) { task.emplace(library.open(), size_of(frame_size)); });
             }),
             py::arg("library"), py::arg("frame_size"),
             "Loads the model for frames of that orientation; `frame_size` is (width, height).");
  } else {
    type.def(py::init([key](Library& library) {
               return std::make_unique<Held>(key,
                                             [&](auto& task) { task.emplace(library.open()); });
             }),
             py::arg("library"), "Loads the model.");
  }
  return type;
}

template <typename Detector>
void add_detector(py::module_& module, const char* name, const char* key, const char* what) {
  add_task<Detector>(module, name, key, what)
      .def(
          "detect",
          [](Closable<Detector>& detector, py::handle frame) {
            const kel_nn::Frame view = frame_of(frame);
            return call([&] { return detector.open().detect(view); });
          },
          py::arg("frame"),
          "What is in a frame, best score first.\n\n"
          "frame: a Frame, or uint8 of (height, width), grey, or (height, width, 3), red, green, "
          "blue. Sizes may change\n"
          "from call to call.");
}

// A task on what was cut out: of(image) and of(frame, rect). `to_python` makes the result's object.
template <typename Task, typename ToPython>
void add_crop_task(py::module_& module, const char* name, const char* key, const char* what,
                   int channels, const char* result, ToPython to_python) {
  add_task<Task>(module, name, key, what)
      .def(
          "of",
          [=](Closable<Task>& task, py::handle frame, std::optional<Rect> rect) {
            if (rect) {
              const kel_nn::Frame view = frame_of(frame);
              return to_python(call([&] { return task.open().of(view, *rect); }));
            }
            const auto image = channels == 1
                                   ? take<uint8_t>(frame, "image", "(112, 112)", {112, 112})
                                   : take<uint8_t>(frame, "image", "(112, 112, 3)", {112, 112, 3});
            const uint8_t* const pixels = image.data();
            return to_python(call([&] { return task.open().of(pixels); }));
          },
          py::arg("frame"), py::arg("rect") = py::none(),
          (std::string(result) +
           "\n\nWith `rect`: of that part of a frame, cut off at its edges. Without: of a cut-out, "
           "uint8 of " +
           (channels == 1 ? "(112, 112)" : "(112, 112, 3)") + ", which is taken as it is.")
              .c_str());
}

void add_results(py::module_& module) {
  py::class_<Detection>(module, "Detection", "Something in a frame.")
      .def_readonly("box", &Detection::box, "In pixels of the frame; never empty.")
      .def_readonly("score", &Detection::score, "0 to 1, the higher the surer.")
      .def_readonly("class_id", &Detection::class_id, "0 in detectors of one class.")
      .def("__repr__", [](const Detection& found) {
        return py::str("Detection(box={}, score={:.3f}, class_id={})")
            .format(found.box, found.score, found.class_id);
      });
  py::class_<FaceClass>(module, "FaceClass", "A class of a face.")
      .def_readonly("id", &FaceClass::id, "0 to 2; what they are comes with the model.")
      .def_readonly("score", &FaceClass::score, "0 to 1; does not depend on the other classes.")
      .def("__repr__", [](const FaceClass& found) {
        return py::str("FaceClass(id={}, score={:.3f})").format(found.id, found.score);
      });
}

// Five points and a pose, as arrays.
struct Landmarks {
  py::array_t<float> points, pose;
};

}  // namespace

void add_tasks(py::module_& module) {
  auto library = py::class_<Library>(module, "Library",
                                     "The library's handle, and the directory of its models.");
  library
      .def(py::init([](py::object directory) {
             const auto path =
                 py::module_::import("os").attr("fsencode")(directory).cast<std::string>();
             return std::make_unique<Library>("the library",
                                              [&](auto& made) { made.emplace(path); });
           }),
           py::arg("directory") = "",
           "`directory` may end with \"/\" or not; empty: the working directory. Whether it is "
           "there is seen when a\n"
           "model is loaded.")
      .def_property_readonly(
          "directory", [](Library& made) { return call([&] { return made.open().directory(); }); },
          "The directory, ended by \"/\" or empty.");
  Library::add_to(library, "Lets go of the handle; tasks keep it until they are closed, too.");

  add_results(module);
  add_detector<FaceDetector>(module, "FaceDetector", "face detection", "Where are faces?");
  add_detector<kel_nn::PersonDetector>(module, "PersonDetector", "person detection",
                                       "Where are people?");
  add_detector<kel_nn::ObjectDetector>(
      module, "ObjectDetector", "four-class detection",
      "Where are things of four kinds? `class_id` is 0 to 3, as the model defines "
      "them.");
  add_crop_task<kel_nn::FaceFeatures>(
      module, "FaceFeatures", "face features", "Who is it?", 1,
      "float32, (256,): values that stand for a face; their squares add up to 1. similarity() "
      "compares them.",
      [](const kel_nn::Feature& found) { return array_of(found.data(), {256}); });

  py::class_<Landmarks>(module, "Landmarks",
                        "Five points of a face and which way it looks, as the model gives them.")
      .def_readonly("points", &Landmarks::points, "float32, (5, 2): x and y of each.")
      .def_readonly("pose", &Landmarks::pose, "float32, (3,).");
  add_crop_task<kel_nn::FaceLandmarks>(
      module, "FaceLandmarks", "face landmarks", "Where are eyes, nose and mouth?", 1,
      "The face's Landmarks.", [](const kel_nn::Landmarks& found) {
        return Landmarks{array_of(found.points.data(), {5, 2}), array_of(found.pose.data(), {3})};
      });
  add_crop_task<kel_nn::FaceClassifier>(module, "FaceClassifier", "face classes",
                                        "Which of three kinds of face?", 1, "The face's FaceClass.",
                                        [](FaceClass found) { return found; });
  add_crop_task<kel_nn::PersonClassifier>(module, "PersonClassifier", "person classes",
                                          "Is it a person?", 3,
                                          "The probability, 0 to 1, of the first of two classes. "
                                          "Which of them is a person comes with the model.",
                                          [](float found) { return found; });
}

}  // namespace kelnn_python
