// SPDX-License-Identifier: Apache-2.0
#include "model_inspection.h"

#include <fmt/format.h>

#include <filesystem>

#include "model_search.h"
#include "network.h"
#include "packed_model.h"
#include "report.h"

namespace kelnn_cli {
namespace {

std::string pack_command(const Task& task, const std::string& root) {
  const std::string pack = fmt::format("kelnn pack {} NETWORK.onnx", task.key);
  if (root == models_to_write()) return pack;
  return fmt::format("{} --root {}", pack, root.empty() ? "./" : root);
}

// The tasks that a network would fit: "face-features or face-classes".
std::string fitting_tasks(Network* network) {
  std::vector<const char*> keys;
  for (const Task& task : tasks()) {
    if (network->misfit(task).empty()) keys.push_back(task.key);
  }
  return fmt::format("{}", fmt::join(keys, " or "));
}

}  // namespace

Inspection inspect_model(const Task& task, const std::string& root) {
  using State = Inspection::State;
  const std::string path = root + task.file_name;
  const std::string pack = pack_command(task, root);
  std::error_code error;
  const bool exists = std::filesystem::exists(path, error);
  if (error) return {State::kBroken, path, error.message(), pack};
  if (!exists) {
    const std::string looked = where_models_were_looked_for(root);
    return {State::kMissing, path,
            "there is no such file" + (looked.empty() ? "" : " (" + looked + ")"), pack};
  }
  try {
    unpack_network(path);
  } catch (const Failure& failure) {
    return {State::kBroken, path, failure.problem(), pack};
  }
  Network network(path, Network::File::kScrambled);
  if (!network.problem().empty()) {
    return {State::kBroken, path, "the network does not load: " + network.problem(), pack};
  }
  const std::string misfit = network.misfit(task);
  if (misfit.empty()) return {State::kOk, path, "", ""};
  const std::string others = fitting_tasks(&network);
  return {State::kBroken, path,
          (others.empty() ? "the network does not fit this task: "
                          : "this is a network for " + others + ": ") +
              misfit,
          pack};
}

}  // namespace kelnn_cli
