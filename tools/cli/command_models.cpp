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

// What the tasks are called, and what a network needs to be one's.
struct TaskList {
  std::vector<const Task*> tasks;
};

std::string text_of(const Task& task) {
  std::string text = fmt::format("{}\n  {}\n  input   {}   {} wide, {} high, {}\n", task.key,
                                 task.purpose, onnx_input(task.height, task.width, task.channels),
                                 task.width, task.height, task.channels == 1 ? "grey" : "colour");
  const char* heading = "output";
  for (const Output& output : task.outputs) {
    const std::string count = fmt::format("{}{}", output.count, output.or_more ? "+" : "");
    text += fmt::format("  {:8}{:6} {}\n", heading, count, output.meaning);
    heading = "";
  }
  return text + fmt::format("  file    {}\n", task.file_name);
}

std::string text_of(const TaskList& list) {
  std::string text;
  for (const Task* task : list.tasks) text += (text.empty() ? "" : "\n") + text_of(*task);
  return text;
}

Json json_of(const TaskList& list) {
  Json models = Json::array();
  for (const Task* task : list.tasks) {
    Json outputs = Json::array();
    for (const Output& output : task->outputs) {
      outputs.push_back(
          {{"meaning", output.meaning}, {"values", output.count}, {"or_more", output.or_more}});
    }
    models.push_back(
        {{"task", task->key},
         {"purpose", task->purpose},
         {"file", task->file_name},
         {"input",
          {{"height", task->height}, {"width", task->width}, {"channels", task->channels}}},
         {"outputs", outputs}});
  }
  return {{"models", models}};
}

// A file that pack or unpack wrote; `source` is what of.
struct Written {
  const char* source_key;
  std::string source, path, text;
  size_t bytes;
};
std::string text_of(const Written& file) {
  return fmt::format("{}{} ({} bytes)\n", file.text, file.path, file.bytes);
}
Json json_of(const Written& file) {
  return {{file.source_key, file.source}, {"path", file.path}, {"bytes", file.bytes}};
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
  TaskList list;
  for (const Task& task : tasks()) {
    if (options.task.empty() || options.task == task.key) list.tasks.push_back(&task);
  }
  reporter->report(list);
  return true;
}

bool pack(const PackOptions& options, Reporter* reporter) {
  const Task& task = *find_task(options.task);
  const Bytes onnx = read_file(options.network);
  check_network(options.network, task);
  const std::string path = with_slash(options.root) + task.file_name;
  const Bytes packed = pack_network(onnx);
  write_file(path, packed);
  reporter->report(Written{"task", task.key, path, options.task + ": ", packed.size()});
  return true;
}

bool unpack(const UnpackOptions& options, Reporter* reporter) {
  const Task* task = find_task(options.model);
  const std::string path = task ? with_slash(options.root) + task->file_name : options.model;
  const Bytes onnx = unpack_network(path);
  write_file(options.output, onnx);
  reporter->report(Written{"model", path, options.output, "", onnx.size()});
  return true;
}

}  // namespace kelnn_cli
