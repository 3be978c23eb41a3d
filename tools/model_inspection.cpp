#include "model_inspection.h"

#include <filesystem>

#include "network.h"
#include "packed_model.h"
#include "report.h"

namespace kelnn_cli {
namespace {

std::string pack_command(const Task& task, const std::string& root) {
  return std::string("kelnn pack ") + task.key + " NETWORK.onnx --root " +
         (root.empty() ? "./" : root);
}

// The tasks that a network would fit, as " of face-features or face-classes".
std::string fitting_tasks(Network* network) {
  std::string keys;
  for (const Task& task : tasks()) {
    if (!network->misfit(task).empty()) continue;
    keys += (keys.empty() ? "" : " or ") + std::string(task.key);
  }
  return keys;
}

}  // namespace

Inspection inspect_model(const Task& task, const std::string& root) {
  using State = Inspection::State;
  const std::string path = root + task.file_name;
  std::error_code error;
  if (!std::filesystem::exists(path, error)) {
    return {State::kMissing, path, "There is no such file.",
            "Pack a network for it: " + pack_command(task, root)};
  }
  const std::string pack_again = "Pack the network again: " + pack_command(task, root);
  try {
    unpack_network(path);
  } catch (const Failure& failure) {
    return {State::kBroken, path, failure.what(), pack_again};
  }
  Network network(path, Network::File::kScrambled);
  if (!network.problem().empty()) {
    return {State::kBroken, path, "The network does not load: " + network.problem() + ".",
            "Pack another network: " + pack_command(task, root)};
  }
  const std::string misfit = network.misfit(task);
  if (misfit.empty()) return {State::kOk, path, "", ""};
  const std::string other = fitting_tasks(&network);
  if (other.empty()) {
    return {State::kBroken, path, "The network does not fit the task: " + misfit + ".",
            "Pack another network: " + pack_command(task, root)};
  }
  return {State::kBroken, path,
          "This is the network of another task, " + other + ": " + misfit + ".",
          "Pack the right network: " + pack_command(task, root)};
}

}  // namespace kelnn_cli
