// SPDX-License-Identifier: Apache-2.0
#include "report.h"

#include <fmt/format.h>

#include <cctype>
#include <cmath>
#include <nlohmann/json.hpp>

namespace kelnn_cli {
namespace {

// With the fewest digits that give it back, which nlohmann's are not always.
std::string number(double value) {
  if (!std::isfinite(value)) return "null";
  char digits[32];
  const std::string text(digits, std::to_chars(digits, digits + sizeof(digits), value).ptr);
  return text.find_first_of(".e") == std::string::npos ? text + ".0" : text;
}

void append(const Json& json, const std::string& line_break, bool is_indented, std::string* text) {
  if (json.is_number_float()) {
    *text += number(json.get<double>());
  } else if (!json.is_structured() || json.empty()) {  // names of files need not be UTF-8
    *text += json.dump(-1, ' ', false, Json::error_handler_t::replace);
  } else {
    const std::string inner = is_indented ? line_break + "  " : "";
    char separator = json.is_object() ? '{' : '[';
    for (const auto& [name, value] : json.items()) {
      *text += separator + inner;
      separator = ',';
      if (json.is_object()) {
        append(name, inner, is_indented, text);
        *text += is_indented ? ": " : ":";
      }
      append(value, inner, is_indented, text);
    }
    *text += is_indented ? line_break : "";
    *text += json.is_object() ? '}' : ']';
  }
}

}  // namespace

std::string dumped(const Json& json, bool is_indented) {
  std::string text;
  append(json, "\n", is_indented, &text);
  return text;
}

std::string harmless(const std::string& text) {
  std::string shown;
  for (size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const bool is_c1 = byte == 0xc2 && i + 1 < text.size() && (text[i + 1] & 0xe0) == 0x80;
    if (is_c1 || (std::iscntrl(byte) && byte != '\n' && byte != '\t')) {
      shown += fmt::format("\\x{:02x}", is_c1 ? static_cast<unsigned char>(text[++i]) : byte);
    } else {
      shown += text[i];
    }
  }
  return shown;
}

}  // namespace kelnn_cli
