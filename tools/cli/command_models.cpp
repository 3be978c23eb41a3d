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
  return {{"task", task.key},      {"purpose", task.purpose}, {"file", task.file_name},
          {"height", task.height}, {"width", task.width},     {"channels", task.channels},
          {"outputs", outputs}};
}

std::string task_text(const Json& task) {
  std::string text = filled(
      "{task}\n  {purpose}\n"
      "  input   [1, {channels}, {height}, {width}]   {width} wide, {height} high, ",
      task);
  text += task["channels"] == 1 ? "grey\n" : "colour\n";
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
  for (const Json& task : list["tasks"]) text += (text.empty() ? "" : "\n") + task_text(task);
  return text;
}

// The model that is going to be the task's, loaded the way the task will load it and held against the task's shapes.
// `path` is where the network came from.
void check_network(const std::string& path, const Bytes& onnx, const Successor& model,
                   const Task& task) {
  Network network(model.path(), onnx);
  const std::string misfit = network.problem().empty() ? network.misfit(task) : "";
  if (network.problem().empty() && misfit.empty()) return;
  std::fputs(network.library_lines().c_str(), stdout);  // which is standard error
  if (!network.problem().empty()) throw Failure(path + ": " + network.problem());
  std::string problem = fmt::format("{} does not fit {}: {}\nIts outputs: {}", path, task.key,
                                    misfit, network.outputs());
  const std::string layout = network.layout(task), key = task.key;
  if (!layout.empty()) {
    problem += fmt::format(
        "\nThey look like the layout {}. To make them this task's (docs/models.md):\n"
        "  python3 -m models.adapt {} --layout {} --to {}",
        layout, quoted(path), layout, key.substr(0, key.rfind("detection") + 9));
  }
  throw Failure(problem);
}

// The file that is meant by a task or a path.
std::string model_path(const std::string& model, const std::string& root) {
  const Task* task = find_task(model);
  return task ? with_slash(root) + task->file_name : model;
}

std::string model_text(const Json& model) {
  const Json &label = model["label"], &scrambled = model["scrambled"];
  std::string text = filled("{path}\n  size       {bytes} bytes\n  label      ", model);
  text += label.is_null() ? "none" : filled("{task}: {bytes} bytes, CRC-32 {crc32}", label);
  text += "\n  scrambled  ";
  text += scrambled.is_null() ? "unknown" : scrambled.get<bool>() ? "yes" : "no";
  text += filled("\n  content    {content}\n", model);
  return text + (model.contains("problem") ? filled("  problem    {problem}\n", model) : "");
}

bool inspect(const std::string& path, Reporter* reporter) {
  const ModelFile file = read_model_file(path);
  Json model = {{"path", path}, {"bytes", file.size}, {"label", nullptr}, {"scrambled", nullptr}};
  if (file.is_labelled) {
    model["label"] = {{"task", file.task ? file.task->key : "a task that is not known here"},
                      {"bytes", file.model_size},
                      {"crc32", fmt::format("{:08x}", file.model_checksum)}};
  }
  if (file.is_scrambled) model["scrambled"] = *file.is_scrambled;
  model["content"] = file.is_onnx       ? "an ONNX network in a container, for a PC"
                     : file.is_labelled ? "bytes for another runtime, the board's"
                                        : "unknown";
  if (!file.problem.empty()) model["problem"] = file.problem;
  reporter->report(model, model_text);
  return file.problem.empty();
}

}  // namespace

bool list_models(const ModelsOptions& options, Reporter* reporter) {
  reporter->begin({"task,purpose,file,height,width,channels", {}, {}});
  Json listed = Json::array();
  for (const Task& task : tasks()) {
    if (options.task.empty() || options.task == task.key) listed.push_back(json_of(task));
  }
  reporter->report({{"tasks", listed}}, list_text);
  return true;
}

bool pack(const PackOptions& options, Reporter* reporter) {
  if (!options.inspected.empty()) {
    return inspect(model_path(options.inspected, options.root), reporter);
  }
  const Task& task = *find_task(options.task);
  const std::string path = model_path(options.task, options.root);
  check_outputs({path}, {options.network});
  const Bytes network = read_file(options.network);
  const Bytes packed = options.is_raw ? pack_raw(task, network) : pack_network(task, network);
  Successor model(path);
  model.write(packed);
  if (!options.is_raw) check_network(options.network, network, model, task);
  model.take_over();
  reporter->report({{"task", task.key}, {"path", path}, {"bytes", packed.size()}},
                   line("{task}: {path} ({bytes} bytes)\n"));
  return true;
}

bool unpack(const UnpackOptions& options, Reporter* reporter) {
  const std::string path = model_path(options.model, options.root);
  check_outputs({options.output}, {path});
  const ModelFile file = read_model_file(path);
  if (!file.problem.empty()) throw Failure(path, file.problem);
  if (!file.is_labelled && !file.is_onnx) throw Failure(path, "not a model that kelnn has packed");
  write_file(options.output, file.network);
  if (is_standard_output(options.output)) return true;
  reporter->report({{"model", path}, {"path", options.output}, {"bytes", file.network.size()}},
                   line("{path} ({bytes} bytes)\n"));
  return true;
}

}  // namespace kelnn_cli
