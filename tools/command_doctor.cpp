// kelnn doctor: looks at a model directory the way the library does and says what is wrong.
#include <filesystem>
#include <memory>

#include "command.h"
#include "model_inspection.h"

namespace kelnn_cli {
namespace {

namespace fs = std::filesystem;

struct Finding {
  std::string problem, advice;  // a sentence each; none: nothing is wrong
};

// The root itself. `count` is how many models were found.
Finding inspect_root(const std::string& root, size_t count) {
  std::error_code error;
  if (!root.empty() && root.back() != '/' && fs::is_directory(root, error)) {
    return {"The root \"" + root +
                "\" does not end with \"/\". The library appends file names as they "
                "are, so it looks beside the directory, not in it.",
            "Give the root as \"" + root + "/\", here and to kel_nn_set_model_root_dir()."};
  }
  const fs::path directory = fs::path(root.empty() ? "./" : root).parent_path();
  if (!directory.empty() && !fs::exists(directory, error)) {
    return {"There is no directory \"" + directory.string() + "\" (seen from " +
                fs::current_path(error).string() + ").",
            "Check the spelling; the first kelnn pack makes the directory."};
  }
  if (!directory.empty() && !fs::is_directory(directory, error)) {
    return {"\"" + directory.string() + "\" is not a directory.", "Give the directory's own name."};
  }
  if (count > 0) return {};
  return {"No task's model is there.",
          "Pack one: kelnn pack TASK NETWORK.onnx --root " + (root.empty() ? "./" : root) +
              "  (an ONNX file that is merely copied there is not found)"};
}

const char* name_of(Inspection::State state) {
  switch (state) {
    case Inspection::State::kOk:
      return "ok";
    case Inspection::State::kMissing:
      return "missing";
    case Inspection::State::kBroken:
      return "BROKEN";
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
  report.json = {
      {"root", root}, {"ok", false}, {"root_problem", nullptr}, {"models", Json::array()}};
  size_t count[3] = {};
  for (const Task& task : tasks()) {
    const Inspection model = inspect_model(task, root);
    ++count[static_cast<int>(model.state)];
    report.text +=
        padded(name_of(model.state), kMargin) + task.key + "\n" + indent + model.path + "\n";
    Json entry = {{"task", task.key}, {"path", model.path}, {"state", name_of(model.state)}};
    if (model.state == Inspection::State::kBroken) {
      report.text += indent + model.problem + "\n" + indent + model.advice + "\n";
      entry["problem"] = model.problem;
      entry["advice"] = model.advice;
    }
    report.json["models"].push_back(entry);
  }
  const auto [ok, missing, broken] = count;
  report.text += "\n" + std::to_string(ok) + " ok, " + std::to_string(missing) + " missing, " +
                 std::to_string(broken) + " broken\n";

  const Finding finding = inspect_root(root, ok + broken);
  if (!finding.problem.empty()) {
    report.text += finding.problem + "\n" + finding.advice + "\n";
    report.json["root_problem"] = finding.problem;
    report.json["root_advice"] = finding.advice;
  }
  report.ok = ok > 0 && broken == 0 && finding.problem.empty();
  report.json["ok"] = report.ok;
  return report;
}

}  // namespace

void add_doctor(CLI::App& app, Command* chosen) {
  auto root = std::make_shared<std::string>();
  CLI::App* command = app.add_subcommand(
      "doctor",
      "Looks at every task's model the way the library does: which file it opens, and whether the\n"
      "file is there, whole, loads and has the task's shapes. Says what to do about what is "
      "wrong.\n"
      "The root is taken as it is given, without adding a \"/\" at its end.\n"
      "Succeeds when at least one model is there and all that are there are fine.");
  add_root(command, root.get());
  command->callback([=] { *chosen = [root] { return doctor(*root); }; });
}

}  // namespace kelnn_cli
