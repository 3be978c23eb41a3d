// kelnn doctor: looks at a model directory the way the library does and says what is wrong.
#include <filesystem>
#include <memory>

#include "command.h"
#include "model_inspection.h"

namespace kelnn_cli {
namespace {

namespace fs = std::filesystem;

struct Finding {
  std::string problem, to_do;  // none: nothing is wrong
};

// Why a root leads to no model at all.
Finding inspect_root(const std::string& root) {
  std::error_code error;
  const std::string directory = root.empty() ? "." : root;
  if (!fs::exists(directory, error)) {
    return {"there is no directory \"" + root + "\", seen from " + fs::current_path(error).string(),
            "check the spelling; the first kelnn pack makes the directory"};
  }
  if (!fs::is_directory(directory, error)) {
    return {"\"" + root + "\" is not a directory", "name the directory that the models are in"};
  }
  if (directory.back() != '/' && !root.empty()) {
    return {"the root \"" + root +
                "\" does not end with \"/\"; the library appends file names as " +
                "they are, and so looks beside the directory, not in it",
            "give it as \"" + root + "/\", here and to kel_nn_set_model_root_dir()"};
  }
  return {"the directory holds no model of any task",
          "kelnn pack TASK NETWORK.onnx --root " + (root.empty() ? "./" : root) +
              " (an ONNX file that is merely copied there is not found)"};
}

const char* name_of(Inspection::State state) {
  switch (state) {
    case Inspection::State::kOk:
      return "ok";
    case Inspection::State::kMissing:
      return "missing";
    case Inspection::State::kBroken:
      return "broken";
  }
  return "";
}

std::string padded(std::string text, size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text;
}

Report doctor(const std::string& root) {
  constexpr size_t kMargin = 9;  // as wide as the names of the states
  const std::string indent(kMargin, ' ');
  Report report;
  report.json = {{"root", root}, {"ok", false}, {"models", Json::array()}};
  size_t count[3] = {};
  for (const Task& task : tasks()) {
    const Inspection model = inspect_model(task, root);
    const bool is_broken = model.state == Inspection::State::kBroken;
    ++count[static_cast<int>(model.state)];
    report.text += padded(is_broken ? "BROKEN" : name_of(model.state), kMargin) + task.key + "\n" +
                   indent + model.path + "\n";
    Json entry = {{"task", task.key}, {"path", model.path}, {"state", name_of(model.state)}};
    if (is_broken) {
      report.text += indent + "problem: " + model.problem + "\n";
      report.text += indent + "to do: " + model.command + "\n";
      entry["problem"] = model.problem;
      entry["to_do"] = model.command;
    }
    report.json["models"].push_back(entry);
  }
  const auto [ok, missing, broken] = count;
  report.text += "\n" + std::to_string(ok) + " ok, " + std::to_string(missing) + " missing, " +
                 std::to_string(broken) + " broken\n";

  if (ok + broken == 0) {
    const Finding finding = inspect_root(root);
    report.text += "problem: " + finding.problem + "\nto do: " + finding.to_do + "\n";
    report.json["problem"] = finding.problem;
    report.json["to_do"] = finding.to_do;
  }
  report.ok = ok > 0 && broken == 0;
  report.json["ok"] = report.ok;
  return report;
}

}  // namespace

void add_doctor(CLI::App& app, Command* chosen) {
  auto root = std::make_shared<std::string>();
  CLI::App* command = app.add_subcommand(
      "doctor",
      "Says what is wrong with a directory of models, and what to do.\n"
      "Looks at every task's model the way the library does: which file it opens, and whether\n"
      "the file is there, whole, loads and has the task's shapes. The root is taken as it is\n"
      "given, without adding a \"/\" at its end. Succeeds when at least one model is there and\n"
      "all that are there are fine.");
  add_root(command, root.get());
  command->callback([=] { *chosen = [root] { return doctor(*root); }; });
}

}  // namespace kelnn_cli
