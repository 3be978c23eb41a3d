// kelnn models: what the tasks are called, and what a network needs to be one's.
#include <memory>

#include "command.h"

namespace kelnn_cli {
namespace {

std::string count_text(const Output& output) {
  return std::to_string(output.count) + (output.or_more ? "+" : "");
}

std::string describe(const Task& task) {
  std::string text = std::string(task.key) + "\n  " + task.purpose + "\n  input   " +
                     onnx_input(task.height, task.width, task.channels);
  text += "   " + std::to_string(task.width) + " wide, " + std::to_string(task.height) + " high, " +
          (task.channels == 1 ? "grey" : "colour") + "\n";
  for (size_t i = 0; i < task.outputs.size(); ++i) {
    const std::string count = count_text(task.outputs[i]);
    text += "  " + (i == 0 ? std::string("output  ") : std::string(8, ' ')) + count +
            std::string(count.size() < 7 ? 7 - count.size() : 1, ' ') + task.outputs[i].meaning +
            "\n";
  }
  return text + "  file    " + task.file_name + "\n";
}

Json to_json(const Task& task) {
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

Report models(const std::string& only) {
  Report report;
  report.json["models"] = Json::array();
  for (const Task& task : tasks()) {
    if (!only.empty() && only != task.key) continue;
    report.text += (report.text.empty() ? "" : "\n") + describe(task);
    report.json["models"].push_back(to_json(task));
  }
  return report;
}

}  // namespace

void add_models(CLI::App& app, Command* chosen) {
  auto only = std::make_shared<std::string>();
  CLI::App* command =
      app.add_subcommand("models",
                         "Lists the tasks: the file, input and outputs of each.\n"
                         "Inputs are in the order of ONNX: 1, channels, height, width.");
  command->add_option("task", *only, "One task (default: all)")->check(is_task());
  command->callback([=] { *chosen = [only] { return models(*only); }; });
}

}  // namespace kelnn_cli
