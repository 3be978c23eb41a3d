// SPDX-License-Identifier: Apache-2.0
// kelnn._kelnn: libkelnn for Python, over kel_nn.hpp. What users import is kelnn, in python/kelnn.
#include "call.h"

PYBIND11_MODULE(_kelnn, module) {
  using namespace kelnn_python;
  module.doc() = "What kelnn is made of.";
  module.attr("__version__") = std::to_string(KEL_NN_VERSION_MAJOR) + "." +
                               std::to_string(KEL_NN_VERSION_MINOR) + "." +
                               std::to_string(KEL_NN_VERSION_PATCH);
  add_errors(module);
  add_pictures(module);
  add_tasks(module);
  add_sound(module);
  add_graph(module);
  add_primitives(module);
}
