// SPDX-License-Identifier: Apache-2.0
#include "model_search.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "files.h"
#include "task_catalogue.h"

namespace kelnn_cli {
namespace {

namespace fs = std::filesystem;

struct Places {
  std::string chosen, own, installed;  // empty: there is none
};

std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

std::string own_directory() {
  const std::string data = user_directory();
  return data.empty() ? "" : data + "models/";
}

std::string installed_directory() {
  const fs::path programs = program_directory();
  return programs.empty() ? "" : (programs / KEL_NN_INSTALLED_MODELS "/").lexically_normal();
}

Places places() {
  const std::string chosen = variable("KELNN_MODELS");
  return {chosen.empty() ? "" : with_slash(chosen), own_directory(), installed_directory()};
}

bool holds_a_model(const std::string& root) {
  std::error_code error;
  return !root.empty() && std::any_of(tasks().begin(), tasks().end(), [&](const Task& task) {
    return fs::exists(root + task.file_name, error);
  });
}

}  // namespace

std::string user_directory() {
  const fs::path data = variable("XDG_DATA_HOME"), home = variable("HOME");
  if (data.is_absolute()) return data / "kelnn/";  // others are to be ignored
  return home.empty() ? "" : home / ".local/share/kelnn/";
}

std::string models_to_read() {
  const Places at = places();
  if (!at.chosen.empty()) return at.chosen;
  return holds_a_model(at.own) ? at.own : at.installed;
}

std::string models_to_write() {
  const Places at = places();
  if (!at.chosen.empty()) return at.chosen;
  return at.own.empty() ? "./" : at.own;
}

bool is_filled_by_pack(const std::string& root) {
  return root == models_to_write() || (root == models_to_read() && !holds_a_model(root));
}

std::string where_models_were_looked_for(const std::string& root) {
  const Places at = places();
  if (root != models_to_read()) return "";
  if (!at.chosen.empty()) return fmt::format("looked in $KELNN_MODELS: {}", at.chosen);
  const bool is_own = root == at.own;
  return fmt::format("looked in {}{}{}; $KELNN_MODELS is not set", at.own, is_own ? "" : ", then ",
                     is_own ? "" : at.installed);
}

}  // namespace kelnn_cli
