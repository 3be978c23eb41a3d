// SPDX-License-Identifier: Apache-2.0
#include "model_inspection.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "files.h"
#include "model_search.h"
#include "network.h"
#include "packed_model.h"
#include "report.h"

namespace kelnn_cli {
namespace {

std::string pack_command(const Task& task, const std::string& root, const char* network) {
  const std::string pack = fmt::format("kelnn pack {} {}", task.key, network);
  if (is_filled_by_pack(root)) return pack;
  return fmt::format("{} --root {}", pack, quoted(root.empty() ? "./" : root));
}

// The tasks that a network would fit: "face-features or face-classes".
std::string fitting_tasks(Network* network) {
  std::vector<const char*> keys;
  for (const Task& task : tasks()) {
    if (network->misfit(task).empty()) keys.push_back(task.key);
  }
  return fmt::format("{}", fmt::join(keys, " or "));
}

// What keeps a file that is whole from being a task's model on a PC, which loads it; or nothing.
std::string misfit_on_pc(const Task& task, const std::string& path, const ModelFile& file) {
  if (!file.is_onnx) return "not a model that was packed for a PC";
  Network network(path, file.network);
  if (!network.problem().empty()) return "the network does not load: " + network.problem();
  const std::string misfit = network.misfit(task);
  if (misfit.empty()) return "";
  const std::string others = fitting_tasks(&network);
  return (others.empty() ? "the network does not fit this task: "
                         : "this is a network for " + others + ": ") +
         misfit;
}

// The same on the board, whose networks nothing here can load.
std::string misfit_on_board(const Task& task, const ModelFile& file) {
  if (file.is_onnx) return "an ONNX network for a PC, which the board's runtime does not read";
  if (!file.is_labelled || file.task == &task) return "";
  return fmt::format("packed as the model of {}", file.task ? file.task->key : "no task");
}

}  // namespace

Inspection inspect_model(const Task& task, const std::string& root, Machine machine) {
  using State = Inspection::State;
  const bool is_pc = machine == Machine::kPc;
  const std::string path = root + task.file_name;
  const std::string pack = pack_command(task, root, is_pc ? "NETWORK.onnx" : "NETWORK --raw");
  std::error_code error;
  const bool exists = std::filesystem::exists(path, error);
  if (error) return {&task, State::kBroken, path, error.message(), pack};
  if (!exists) {
    const std::string looked = where_models_were_looked_for(root);
    return {&task, State::kMissing, path,
            "there is no such file" + (looked.empty() ? "" : " (" + looked + ")"), pack};
  }
  try {
    const ModelFile file = read_model_file(path);
    std::string problem = file.problem;
    if (problem.empty()) {
      problem = is_pc ? misfit_on_pc(task, path, file) : misfit_on_board(task, file);
    }
    if (!problem.empty()) return {&task, State::kBroken, path, problem, pack};
    const bool is_sure = is_pc || file.is_labelled;
    return {&task, State::kOk, path, is_sure ? "" : "no label: nothing tells whether it is whole",
            ""};
  } catch (const Failure& failure) {
    return {&task, State::kBroken, path, failure.problem(), pack};
  }
}

std::vector<Inspection> misnamed_models(const std::string& root) {
  std::vector<Inspection> found;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(root.empty() ? "." : root, error)) {
    const std::string path = entry.path(), name = entry.path().filename();
    const auto has_name = [&name](const Task& task) { return name == task.file_name; };
    if (std::any_of(tasks().begin(), tasks().end(), has_name)) continue;
    try {
      const Task* task = read_model_file(path).task;
      if (!task) continue;
      found.push_back({task, Inspection::State::kBroken, path, "no task opens a file of this name",
                       fmt::format("mv {} {}", quoted(path),
                                   quoted(entry.path().parent_path() / task->file_name))});
    } catch (const Failure&) {  // no file, or not one for us to read
    }
  }
  return found;
}

}  // namespace kelnn_cli
