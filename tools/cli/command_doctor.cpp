// SPDX-License-Identifier: Apache-2.0
// kelnn doctor: looks at a model directory the way the library does and says what is wrong.
#include <fmt/format.h>

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "files.h"
#include "model_inspection.h"
#include "model_search.h"
#include "progress_bar.h"

namespace kelnn_cli {
namespace {

namespace fs = std::filesystem;
using State = Inspection::State;

struct Finding {
  std::string problem, to_do;
};

// Why a root leads to no model at all. `pack`: what makes the first one.
Finding inspect_root(const std::string& root, const std::string& pack) {
  const std::string looked = where_models_were_looked_for(root);
  if (!looked.empty()) {
    return {"no model of any task; " + looked,
            "install the package kelnn-models, name a directory with --root, or " + pack};
  }
  std::error_code error;
  const std::string directory = root.empty() ? "." : root;
  if (!fs::exists(directory, error)) {
    return {fmt::format("there is no directory \"{}\", seen from {}", root,
                        fs::current_path(error).string()),
            "check the spelling; this makes the directory: " + pack};
  }
  if (!fs::is_directory(directory, error)) {
    return {fmt::format("\"{}\" is not a directory", root),
            "name the directory that the models are in"};
  }
  return {
      "the directory holds no model of any task; an ONNX file that is merely copied there is not "
      "found",
      pack};
}

const char* name_of(State state) {
  return state == State::kOk ? "ok" : state == State::kMissing ? "missing" : "broken";
}

std::string diagnosis_text(const Json& diagnosis) {
  std::string text;
  std::map<std::string, int> count;
  for (const Json& model : diagnosis["models"]) {
    const std::string state = model["state"];
    ++count[state];
    text += fmt::format("{:9}", state == "broken" ? "BROKEN" : state) +
            filled("{task}\n         {path}\n", model);
    if (model.contains("note")) text += filled("         note: {note}\n", model);
    if (model.contains("problem")) {
      text += filled("         problem: {problem}\n         to do: {to_do}\n", model);
    }
  }
  text += fmt::format("\n{} ok, {} missing, {} broken\n", count["ok"], count["missing"],
                      count["broken"]);
  if (diagnosis.contains("problem"))
    text += filled("problem: {problem}\nto do: {to_do}\n", diagnosis);
  return text;
}

}  // namespace

bool doctor(const DoctorOptions& options, Reporter* reporter) {
  const Machine machine = options.is_for_board ? Machine::kBoard : Machine::kPc;
  std::vector<Inspection> found;
  const std::string root = with_slash(options.root);
  std::vector<std::string> files = {options.public_key};
  for (const Task& task : tasks()) files.push_back(root + task.file_name);
  reporter->begin({"task,path,state,note,problem,to_do", {}, {}, files});
  const std::string unsigned_because =
      options.public_key.empty() ? ""
                                 : signature_problem(root.empty() ? "." : root, options.public_key);
  if (!unsigned_because.empty()) {  // nothing of it is loaded
    const Finding finding = {unsigned_because,
                             "put the directory back as it was signed, or sign it: kelnn sign"};
    const Json diagnosis = {{"root", root},
                            {"ok", false},
                            {"models", Json::array()},
                            {"problem", finding.problem},
                            {"to_do", finding.to_do}};
    reporter->report(diagnosis, diagnosis_text);
    return false;
  }
  if (options.is_for_board) found = misnamed_models(root);
  ProgressBar progress("doctor", static_cast<int64_t>(tasks().size()), "models");
  for (const Task& task : tasks()) {
    found.push_back(inspect_model(task, root, machine));
    progress.show(static_cast<int64_t>(found.size()));
  }
  Json models = Json::array();
  std::map<State, size_t> count;
  for (const Inspection& model : found) {
    ++count[model.state];
    Json& entry = models.emplace_back();
    entry = {{"task", model.task->key}, {"path", model.path}, {"state", name_of(model.state)}};
    if (model.state == State::kMissing || model.problem.empty()) continue;
    entry[model.state == State::kOk ? "note" : "problem"] = model.problem;
    if (model.state == State::kBroken) entry["to_do"] = model.command;
  }
  const bool ok = count[State::kOk] > 0 && count[State::kBroken] == 0;
  Json diagnosis = {{"root", root}, {"ok", ok}, {"models", models}};
  if (count[State::kMissing] == models.size()) {
    const Finding finding = inspect_root(root, found.front().command);
    diagnosis["problem"] = finding.problem;
    diagnosis["to_do"] = finding.to_do;
  }
  reporter->report(diagnosis, diagnosis_text);
  return ok;
}

}  // namespace kelnn_cli
