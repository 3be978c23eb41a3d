// kelnn pack: makes an ONNX network the model of a task.
#include <cstdio>
#include <memory>

#include "command.h"
#include "network.h"
#include "packed_model.h"

namespace kelnn_cli {
namespace {

struct Options {
  std::string task, network, root;
};

// Loaded the way the task will load it, and held against the task's shapes.
void check_network(const std::string& path, const Task& task) {
  Network network(path, Network::File::kPlain);
  std::fputs(network.library_lines().c_str(), stdout);  // which is standard error
  if (!network.problem().empty()) throw Failure(path + ": " + network.problem());
  const std::string misfit = network.misfit(task);
  if (!misfit.empty()) throw Failure(path + " does not fit " + task.key + ": " + misfit);
}

Report pack(const Options& options) {
  const Task& task = *find_task(options.task);
  const Bytes onnx = read_file(options.network);
  check_network(options.network, task);
  const std::string path = with_slash(options.root) + task.file_name;
  const Bytes packed = pack_network(onnx);
  write_file(path, packed);

  Report report;
  report.text =
      std::string(task.key) + ": " + path + " (" + std::to_string(packed.size()) + " bytes)\n";
  report.json = {{"task", task.key}, {"path", path}, {"bytes", packed.size()}};
  return report;
}

}  // namespace

void add_pack(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "pack",
      "Makes an ONNX network the model of a task.\n"
      "Checks that the network runs and has the shapes of the task, and writes it under the\n"
      "file name of the task. The directory is made when there is none. The old model stays\n"
      "until the new one is whole.");
  command->add_option("task", options->task, "The task; kelnn models lists them")
      ->required()
      ->check(is_task());
  command->add_option("network", options->network, "The ONNX file")->required()->type_name("FILE");
  add_root(command, &options->root);
  command->callback([=] { *chosen = [options] { return pack(*options); }; });
}

}  // namespace kelnn_cli
