// SPDX-License-Identifier: Apache-2.0
// What is the matter with a task's model file? In words for someone who sees it for the first time.
#pragma once

#include <string>
#include <vector>

#include "task_catalogue.h"

namespace kelnn_cli {

struct Inspection {
  enum class State { kOk, kMissing, kBroken };
  const Task* task;
  State state;
  std::string path;     // what the library opens: the root and the file's name, joined
  std::string problem;  // of kOk: what could not be checked
  std::string command;  // what to type to put it right
};

// On a PC the network is loaded; the board's cannot be: the file's name, size and label have to do.
enum class Machine { kPc, kBoard };
Inspection inspect_model(const Task& task, const std::string& root, Machine machine = Machine::kPc);

// Packed models that no task opens, for their names; of their tasks' files it could only be said that
// they are not there.
std::vector<Inspection> misnamed_models(const std::string& root);

}  // namespace kelnn_cli
