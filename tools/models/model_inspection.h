// SPDX-License-Identifier: Apache-2.0
// What is the matter with a task's model file? In words for someone who sees it for the first time.
#ifndef KEL_NN_TOOLS_MODEL_INSPECTION_H_
#define KEL_NN_TOOLS_MODEL_INSPECTION_H_

#include <string>

#include "task_catalogue.h"

namespace kelnn_cli {

struct Inspection {
  enum class State { kOk, kMissing, kBroken };
  State state;
  std::string path;     // what the library opens: the root and the file's name, joined
  std::string problem;  // none for kOk
  std::string command;  // what to type to put it right
};

Inspection inspect_model(const Task& task, const std::string& root);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_MODEL_INSPECTION_H_
