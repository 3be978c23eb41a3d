// SPDX-License-Identifier: Apache-2.0
#include "manual.h"

#include <fmt/format.h>

#include <algorithm>

#include "commands.h"
#include "kel_nn.h"
#include "task_catalogue.h"

namespace kelnn_cli {

namespace {

// Of a command, those in its groups too; nothing that is hidden or that every command has.
std::vector<const CLI::Option*> options_of(const CLI::App& command) {
  std::vector<const CLI::Option*> options;
  for (const CLI::Option* option : command.get_options()) {
    if (!option->get_group().empty() && option != command.get_help_ptr()) options.push_back(option);
  }
  for (const CLI::App* group : command.get_subcommands(nullptr)) {
    if (!group->get_name().empty()) continue;
    for (const CLI::Option* option : options_of(*group)) options.push_back(option);
  }
  return options;
}

// ----- The manual

// As roff's text: no line is taken for a request, no "-" for a hyphen.
std::string roff(const std::string& text) {
  std::string escaped;
  bool at_start = true;
  for (const char c : text) {
    if (at_start && (c == '.' || c == '\'')) escaped += "\\&";
    if (c == '-' || c == '\\') escaped += '\\';
    escaped += c == '\\' ? 'e' : c;
    at_start = c == '\n';
  }
  return escaped;
}

// A text with indented lines is a table, whose lines stay as they are.
std::string paragraph(const std::string& text) {
  const bool is_table = text.find("\n  ") != std::string::npos;
  return fmt::format("{}{}\n{}", is_table ? ".nf\n" : "", roff(text), is_table ? ".fi\n" : "");
}

std::string manual_entry(const CLI::Option& option) {
  const std::string type = option.get_type_name();
  std::string text = fmt::format(
      ".TP\n.B {}\n",
      roff(option.get_positional() ? option.get_name(true) : option.get_name(false, true)));
  if (!option.get_positional() && !type.empty()) text.insert(text.size() - 1, " " + roff(type));
  text += roff(option.get_description()) + "\n";
  const std::string preset = option.get_default_str();
  if (!preset.empty()) text += fmt::format("Default: {}.\n", roff(preset));
  return text;
}

std::string manual_section(const CLI::App& command) {
  const std::string description = command.get_description();
  const size_t end_of_line = description.find('\n');
  std::string synopsis = command.get_name();
  std::string entries;
  for (const CLI::Option* option : options_of(command)) {
    if (option->get_positional()) {
      synopsis += fmt::format(option->get_required() ? " {}" : " [{}]", option->get_name(true));
    }
    entries += manual_entry(*option);
  }
  std::string text =
      fmt::format(".SS {}\n{}\n", roff(synopsis), roff(description.substr(0, end_of_line)));
  if (end_of_line != std::string::npos) text += paragraph(description.substr(end_of_line + 1));
  return text + entries;
}

// ----- Completion

bool is_option(const std::string& word) { return word.rfind('-', 0) == 0; }

// A description's first sentence, in one line.
std::string summary_of(const std::string& description) {
  std::string sentence = description.substr(0, description.find(".\n"));
  std::replace(sentence.begin(), sentence.end(), '\n', ' ');
  return sentence;
}

// The words that a value may be, if it is one of a few.
std::vector<std::string> values_of(const CLI::App& command, const CLI::Option& option) {
  if (option.get_type_name().rfind("TASK", 0) != 0) return {};
  if (command.get_name() == "eval") return evaluated_tasks();
  std::vector<std::string> keys;
  for (const Task& task : tasks()) keys.push_back(task.key);
  return keys;
}

}  // namespace

std::string completions(const CLI::App& app, const std::vector<std::string>& words) {
  const std::string typed = words.empty() ? "" : words.back();
  std::string lines;
  const auto offer = [&](const std::string& word, const std::string& help) {
    if (word.rfind(typed, 0) == 0) lines += fmt::format("{}\t{}\n", word, summary_of(help));
  };
  const bool is_first = words.size() < 2;
  std::vector<const CLI::App*> apps = app.get_subcommands(
      [&](const CLI::App* command) { return !is_first && command->check_name(words[0]); });
  apps.insert(apps.begin(), &app);
  const CLI::App& command = *apps.back();
  const std::string before = is_first ? "" : words[words.size() - 2];
  const bool has_place_for_task = words.size() == 2;
  const CLI::Option* valued = has_place_for_task  ? command.get_option_no_throw("task")
                              : is_option(before) ? command.get_option_no_throw(before)
                                                  : nullptr;
  if (is_option(typed)) {
    offer("--help", "Print this help message and exit");
    for (const CLI::App* one : apps) {
      for (const CLI::Option* option : options_of(*one)) {
        for (const std::string& name : option->get_lnames()) {
          offer("--" + name, option->get_description());
        }
      }
    }
  } else if (is_first) {
    for (const CLI::App* one : app.get_subcommands(nullptr)) {
      offer(one->get_name(), one->get_description());
    }
  } else if (valued) {
    for (const std::string& value : values_of(command, *valued)) offer(value, "");
  }
  return lines;
}

std::string manual_page(const CLI::App& app) {
  std::string text = fmt::format(
      ".TH KELNN 1 \"\" \"kelnn {}.{}.{}\" \"User Commands\"\n"
      ".SH NAME\nkelnn \\- {}\n"
      ".SH SYNOPSIS\n.B kelnn\n.I COMMAND\n[\\fIOPTIONS\\fR]\n",
      KEL_NN_VERSION_MAJOR, KEL_NN_VERSION_MINOR, KEL_NN_VERSION_PATCH,
      roff(app.get_description()));
  text += ".SH OPTIONS\n";
  for (const CLI::Option* option : options_of(app)) text += manual_entry(*option);
  text += ".SH COMMANDS\n";
  for (const CLI::App* command : app.get_subcommands(nullptr)) text += manual_section(*command);
  return text +
         ".SH EXIT STATUS\n0 fine, 1 the command failed or found something wrong, 2 it was called "
         "wrongly, 128 and a signal's number: it ended by that, and left no file half written (130 "
         "SIGINT, "
         "143 SIGTERM).\n"
         ".SH ENVIRONMENT\n.TP\n.B KELNN_MODELS\nThe directory of the model files for commands "
         "without \\-\\-root.\n"
         ".SH FILES\n.TP\n.I ~/.local/share/kelnn/models\nThe user's models; "
         "$XDG_DATA_HOME/kelnn/models where that is set.\n"
         ".TP\n.I /usr/share/kelnn/models\nThe models that packages bring.\n";
}

}  // namespace kelnn_cli
