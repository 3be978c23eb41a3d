// kelnn doctor: looks at a model directory the way the library does and says what is wrong.
#include <fmt/format.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>

#include "commands.h"
#include "model_inspection.h"
#include "model_search.h"

namespace kelnn_cli {
namespace {

namespace fs = std::filesystem;
using State = Inspection::State;

struct Finding {
  std::string problem, to_do;
};

// Why a root leads to no model at all.
Finding inspect_root(const std::string& root) {
  const std::string looked = where_models_were_looked_for(root);
  if (!looked.empty()) {
    return {"no model of any task; " + looked,
            "install the package kelnn-models, name a directory with --root, or kelnn pack TASK "
            "NETWORK.onnx"};
  }
  std::error_code error;
  const std::string directory = root.empty() ? "." : root;
  if (!fs::exists(directory, error)) {
    return {fmt::format("there is no directory \"{}\", seen from {}", root,
                        fs::current_path(error).string()),
            "check the spelling; the first kelnn pack makes the directory"};
  }
  if (!fs::is_directory(directory, error)) {
    return {fmt::format("\"{}\" is not a directory", root),
            "name the directory that the models are in"};
  }
  if (directory.back() != '/' && !root.empty()) {
    return {fmt::format("the root \"{}\" does not end with \"/\"; the library appends file names "
                        "as they are, and so looks beside the directory, not in it",
                        root),
            fmt::format("give it as \"{}/\", here and to kel_nn_set_model_root_dir()", root)};
  }
  return {"the directory holds no model of any task",
          fmt::format("kelnn pack TASK NETWORK.onnx --root {} (an ONNX file that is merely copied "
                      "there is not found)",
                      root.empty() ? "./" : root)};
}

struct Diagnosis {
  std::string root;
  std::vector<std::pair<const Task*, Inspection>> models;
  std::optional<Finding> of_root;  // where there is no model

  size_t count(State state) const {
    return static_cast<size_t>(
        std::count_if(models.begin(), models.end(),
                      [state](const auto& model) { return model.second.state == state; }));
  }
  bool ok() const { return count(State::kOk) > 0 && count(State::kBroken) == 0; }
};

const char* name_of(State state) {
  return state == State::kOk ? "ok" : state == State::kMissing ? "missing" : "broken";
}

std::string text_of(const Diagnosis& diagnosis) {
  std::string text;
  for (const auto& [task, model] : diagnosis.models) {
    const bool is_broken = model.state == State::kBroken;
    text += fmt::format("{:9}{}\n{:9}{}\n", is_broken ? "BROKEN" : name_of(model.state), task->key,
                        "", model.path);
    if (is_broken) {
      text += fmt::format("{0:9}problem: {1}\n{0:9}to do: {2}\n", "", model.problem, model.command);
    }
  }
  text += fmt::format("\n{} ok, {} missing, {} broken\n", diagnosis.count(State::kOk),
                      diagnosis.count(State::kMissing), diagnosis.count(State::kBroken));
  if (const auto& finding = diagnosis.of_root) {
    text += fmt::format("problem: {}\nto do: {}\n", finding->problem, finding->to_do);
  }
  return text;
}

Json json_of(const Diagnosis& diagnosis) {
  Json json = {{"root", diagnosis.root}, {"ok", diagnosis.ok()}, {"models", Json::array()}};
  for (const auto& [task, model] : diagnosis.models) {
    Json entry = {{"task", task->key}, {"path", model.path}, {"state", name_of(model.state)}};
    if (model.state == State::kBroken) {
      entry["problem"] = model.problem;
      entry["to_do"] = model.command;
    }
    json["models"].push_back(entry);
  }
  if (const auto& finding = diagnosis.of_root) {
    json["problem"] = finding->problem;
    json["to_do"] = finding->to_do;
  }
  return json;
}

}  // namespace

bool doctor(const DoctorOptions& options, Reporter* reporter) {
  Diagnosis diagnosis = {options.root, {}, {}};
  for (const Task& task : tasks()) {
    diagnosis.models.emplace_back(&task, inspect_model(task, options.root));
  }
  if (diagnosis.count(State::kMissing) == tasks().size()) {
    diagnosis.of_root = inspect_root(options.root);
  }
  reporter->report(diagnosis);
  return diagnosis.ok();
}

}  // namespace kelnn_cli
