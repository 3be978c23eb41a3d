// SPDX-License-Identifier: Apache-2.0
// kelnn models, pack and unpack: what the tasks need, and how a network becomes one's model and back.
#include <fmt/format.h>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "files.h"
#include "network.h"
#include "packed_model.h"
#include "report.h"
#include "task_catalogue.h"

namespace kelnn_cli {
namespace {

// What a task is called, and what a network needs to be its model.
Json json_of(const Task& task) {
  Json outputs = Json::array();
  for (const Output& output : task.outputs) {
    outputs.push_back(
        {{"meaning", output.meaning}, {"values", output.count}, {"or_more", output.or_more}});
  }
  return {{"task", task.key},
          {"purpose", task.purpose},
          {"file", task.file_name},
          {"input", {{"height", task.height}, {"width", task.width}, {"channels", task.channels}}},
          {"outputs", outputs}};
}

std::string task_text(const Json& task) {
  const Json& input = task["input"];
  const int channels = input["channels"];
  std::string text = filled("{task}\n  {purpose}\n", task) +
                     filled(
                         "  input   [1, {channels}, {height}, {width}]   {width} wide, {height} "
                         "high, ",
                         input) +
                     (channels == 1 ? "grey\n" : "colour\n");
  const char* heading = "output";
  for (const Json& output : task["outputs"]) {
    const std::string count = output["values"].dump() + (output["or_more"].get<bool>() ? "+" : "");
    text += fmt::format("  {:8}{:6} {}\n", heading, count, output["meaning"].get<std::string>());
    heading = "";
  }
  return text + filled("  file    {file}\n", task);
}

std::string list_text(const Json& list) {
  std::string text;
  for (const Json& task : list["models"]) text += (text.empty() ? "" : "\n") + task_text(task);
  return text;
}

// Loaded the way the task will load it, and held against the task's shapes.
void check_network(const std::string& path, const Task& task) {
  Network network(path, Network::File::kPlain);
  std::fputs(network.library_lines().c_str(), stdout);  // which is standard error
  if (!network.problem().empty()) throw Failure(path + ": " + network.problem());
  const std::string misfit = network.misfit(task);
  if (!misfit.empty()) throw Failure(path + " does not fit " + task.key + ": " + misfit);
}

}  // namespace

bool list_models(const ModelsOptions& options, Reporter* reporter) {
  Json models = Json::array();
  for (const Task& task : tasks()) {
    if (options.task.empty() || options.task == task.key) models.push_back(json_of(task));
  }
  reporter->report({{"models", models}}, list_text);
  return true;
}

bool pack(const PackOptions& options, Reporter* reporter) {
  const Task& task = *find_task(options.task);
  const Bytes onnx = read_file(options.network);
  check_network(options.network, task);
  const std::string path = with_slash(options.root) + task.file_name;
  const Bytes packed = pack_network(onnx);
  write_file(path, packed);
  reporter->report({{"task", task.key}, {"path", path}, {"bytes", packed.size()}},
                   line("{task}: {path} ({bytes} bytes)\n"));
  return true;
}

bool unpack(const UnpackOptions& options, Reporter* reporter) {
  const Task* task = find_task(options.model);
  const std::string path = task ? with_slash(options.root) + task->file_name : options.model;
  const Bytes onnx = unpack_network(path);
  write_file(options.output, onnx);
  reporter->report({{"model", path}, {"path", options.output}, {"bytes", onnx.size()}},
                   line("{path} ({bytes} bytes)\n"));
  return true;
}

}  // namespace kelnn_cli
