// kelnn unpack: gets the ONNX network back out of a model file.
#include <memory>

#include "command.h"
#include "packed_model.h"

namespace kelnn_cli {
namespace {

struct Options {
  std::string model, root, output;
};

Report unpack(const Options& options) {
  const Task* task = find_task(options.model);
  const std::string path = task ? with_slash(options.root) + task->file_name : options.model;
  const Bytes onnx = unpack_network(path);
  write_file(options.output, onnx);

  Report report;
  report.text = options.output + " (" + std::to_string(onnx.size()) + " bytes)\n";
  report.json = {{"model", path}, {"path", options.output}, {"bytes", onnx.size()}};
  return report;
}

}  // namespace

void add_unpack(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("unpack", "Gets the ONNX network back out of a model.");
  command->add_option("model", options->model, "A task, or the path of a model file")
      ->required()
      ->type_name("TASK|FILE");
  command->add_option("-o,--output", options->output, "The ONNX file to write")
      ->required()
      ->type_name("FILE");
  add_root(command, &options->root);
  command->callback([=] { *chosen = [options] { return unpack(*options); }; });
}

}  // namespace kelnn_cli
