// kelnn, the command line of libkelnn. Exit codes: 0 fine, 1 the command failed or found something
// wrong, 2 it was called wrongly. Results go to standard output, everything else to standard error.
#include <cstdio>
#include <iostream>
#include <memory>
#include <opencv2/core/utils/logger.hpp>
#include <sstream>

#include "command.h"
#include "kel_nn.h"
#include "library_output.h"

namespace {

using namespace kelnn_cli;

enum ExitCode { kFine = 0, kFailed = 1, kBadUsage = 2 };

std::string version() {
  return "kelnn " + std::to_string(KEL_NN_VERSION_MAJOR) + "." +
         std::to_string(KEL_NN_VERSION_MINOR) + "." + std::to_string(KEL_NN_VERSION_PATCH);
}

void complain(const std::string& message) { std::cerr << "kelnn: " << message << "\n"; }

// In the list of all commands each gets one line: the first of its description.
class ShortList : public CLI::Formatter {
  std::string make_subcommand(const CLI::App* command) const override {
    const std::string description = command->get_description();
    std::stringstream line;
    CLI::detail::format_help(line, command->get_name(),
                             description.substr(0, description.find('\n')), column_width_);
    return line.str();
  }
};

constexpr int kJsonIndent = 2;
constexpr int kJsonOnOneLine = -1;

std::string rendered(const Report& report, bool as_json, int json_indent) {
  if (!as_json) return report.text;
  // File names need not be UTF-8.
  return report.json.dump(json_indent, ' ', false, Json::error_handler_t::replace) + "\n";
}

int run(const Command& command, const StreamingCommand& streaming_command, bool as_json) {
  ResultOutput output;
  try {
    if (streaming_command) {
      const auto report = [&](const Report& report) {
        output.write(rendered(report, as_json, kJsonOnOneLine));
      };
      return streaming_command({report, complain}) ? kFine : kFailed;
    }
    const Report report = command();
    output.write(rendered(report, as_json, kJsonIndent));
    if (!report.complaint.empty()) complain(report.complaint);
    return report.ok ? kFine : kFailed;
  } catch (const std::exception& error) {
    complain(error.what());
    return kFailed;
  }
}

}  // namespace

int main(int argc, char** argv) {
  cv::utils::logging::setLogLevel(
      cv::utils::logging::LOG_LEVEL_SILENT);  // failures are reported here
  CLI::App app("On-device neural-network tasks on a PC: model files, pictures and sound.", "kelnn");
  app.formatter(std::make_shared<ShortList>());
  Command command;
  StreamingCommand streaming_command;
  bool as_json = false;
  app.require_subcommand(0, 1);  // none is told below, in better words
  app.fallthrough();
  app.set_version_flag("--version", version(), "Print the version and exit");
  app.add_flag("--json", as_json, "Print the result as JSON");
  app.footer("kelnn COMMAND --help tells more. Exit codes: 0 fine, 1 failed, 2 called wrongly.");
  for (const auto add : {add_models, add_pack, add_unpack, add_doctor, add_feature, add_compare,
                         add_landmarks, add_classifiers, add_features, add_eval}) {
    add(app, &command);
  }
  for (const auto add : {add_detectors, add_motion, add_watch, add_cry})
    add(app, &streaming_command);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& wanted) {  // --help, --version
    return app.exit(wanted);
  } catch (const CLI::ParseError& error) {
    complain(std::string(error.what()) + "\nkelnn --help tells how it is called.");
    return kBadUsage;
  }
  if (!command && !streaming_command) {
    complain("which command?\n\n" + app.help());
    return kBadUsage;
  }
  return run(command, streaming_command, as_json);
}
