// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>

#include "manual.h"
#include "task_catalogue.h"

namespace kelnn_cli {
namespace {

// "--draw --every ..." of a command.
std::string words_of(const CLI::App& command) {
  std::string words = "--help";
  for (const CLI::Option* option : options_of(command)) {
    for (const std::string& name : option->get_lnames()) words += " --" + name;
  }
  return words;
}

// What a value is completed to, which its type's name tells.
enum Value { kNone, kFile, kDirectory, kTask, kOther };

Value value_of(const CLI::Option& option) {
  if (option.get_items_expected_max() == 0) return kNone;
  const std::string type = option.get_type_name();
  const auto begins = [&type](const char* name) { return type.rfind(name, 0) == 0; };
  if (begins("TASK")) return kTask;
  if (begins("DIR")) return kDirectory;
  return begins("FILE") || begins("OUT") || begins("INPUT") ? kFile : kOther;
}

std::string task_keys() {
  std::string keys;
  for (const Task& task : tasks()) keys += (keys.empty() ? "" : " ") + std::string(task.key);
  return keys;
}

// The first sentence, with a backslash before each of these, as a word in quotation marks.
std::string help_of(const std::string& text, const std::string& special) {
  std::string safe;
  for (size_t i = 0; i < text.size() && (i == 0 || text[i - 1] != '.' || text[i] > ' '); ++i) {
    if (special.find(text[i]) != std::string::npos) safe += '\\';
    safe += text[i] == '\'' ? "'\\''" : std::string(1, text[i] == '\n' ? ' ' : text[i]);
  }
  return safe;
}

// ----- zsh

// Words for _arguments.
std::string zsh_arguments(const CLI::App& command) {
  std::string text;
  for (const CLI::Option* option : options_of(command)) {
    const bool repeats = option->get_items_expected_max() > 1;
    const std::string actions[] = {"", "_files", "_files -/", "(" + task_keys() + ")", " "};
    const std::string value = actions[value_of(*option)];
    if (option->get_positional()) {
      text +=
          fmt::format(" \\\n        '{}:{}:{}'", repeats ? "*" : "", option->get_name(true), value);
      continue;
    }
    const auto add = [&](const std::string& name) {
      text += fmt::format(" \\\n        '{}{}[{}]", repeats ? "*" : "", name,
                          help_of(option->get_description(), "[]:\\"));
      text += value.empty() ? "'" : fmt::format(":value:{}'", value);
    };
    for (const std::string& name : option->get_snames()) add("-" + name);
    for (const std::string& name : option->get_lnames()) add("--" + name);
  }
  return text;
}

// ----- fish

std::string fish_options(const CLI::App& command, const std::string& condition) {
  const std::string values[] = {"", " -rF", " -xa '(__fish_complete_directories)'",
                                " -xa '" + task_keys() + "'", " -x"};
  std::string text;
  for (const CLI::Option* option : options_of(command)) {
    const Value value = value_of(*option);
    text += fmt::format("complete -c kelnn -n '{}'", condition);
    for (const std::string& name : option->get_snames()) text += " -s " + name;
    for (const std::string& name : option->get_lnames()) text += " -l " + name;
    if (option->get_positional()) {
      text += value == kTask ? " -a '" + task_keys() + "'\n" : " -F\n";
    } else {
      text += fmt::format("{} -d '{}'\n", values[value], help_of(option->get_description(), "\\"));
    }
  }
  return text;
}

}  // namespace

std::string bash_completion(const CLI::App& app) {
  std::string commands, cases;
  for (const CLI::App* command : app.get_subcommands(nullptr)) {
    commands += (commands.empty() ? "" : " ") + command->get_name();
    cases += fmt::format("    {}) words=\"{}\" ;;\n", command->get_name(),
                         words_of(*command) + " --json");
  }
  return fmt::format(R"(# What follows a kelnn on bash's command line.
_kelnn() {{
  local cur=${{COMP_WORDS[COMP_CWORD]}} command=${{COMP_WORDS[1]}} words
  case $command in
{}    *) words="{}" ;;
  esac
  if [[ $COMP_CWORD -eq 1 ]]; then
    words="{} {}"
  elif [[ $cur != -* ]]; then
    case $command in
      models|pack|unpack) [[ $COMP_CWORD -eq 2 ]] || return 0; words="{}" ;;
      *) return 0 ;;
    esac
  fi
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$cur")
}}
complete -o default -F _kelnn kelnn
)",
                     cases, words_of(app), commands, words_of(app), task_keys());
}

std::string zsh_completion(const CLI::App& app) {
  std::string commands, cases;
  for (const CLI::App* command : app.get_subcommands(nullptr)) {
    commands += fmt::format("    '{}:{}'\n", command->get_name(),
                            help_of(command->get_description(), ":\\"));
    cases += fmt::format("      {}) _arguments{}{} ;;\n", command->get_name(),
                         zsh_arguments(*command), zsh_arguments(app));
  }
  return fmt::format(R"(#compdef kelnn
_kelnn() {{
  local -a line commands=(
{}  )
  local state
  _arguments -C{} \
        '1:command:->command' '*::argument:->argument'
  case $state in
    command) _describe command commands ;;
    argument) case $line[1] in
{}      esac ;;
  esac
}}
_kelnn "$@"
)",
                     commands, zsh_arguments(app), cases);
}

std::string fish_completion(const CLI::App& app) {
  std::string text = "complete -c kelnn -f\n" + fish_options(app, "true");
  for (const CLI::App* command : app.get_subcommands(nullptr)) {
    text += fmt::format("complete -c kelnn -n __fish_use_subcommand -a {} -d '{}'\n",
                        command->get_name(), help_of(command->get_description(), "\\"));
    text += fish_options(*command, "__fish_seen_subcommand_from " + command->get_name());
  }
  return text;
}

}  // namespace kelnn_cli
