// SPDX-License-Identifier: Apache-2.0
// Numbers out of text.
#pragma once

#include <charconv>
#include <string>

namespace kelnn_cli {

// False, unless the whole text is one number that fits.
template <typename Number>
bool parse_number(const std::string& text, Number* value) {
  const char* end = text.data() + text.size();
  const std::from_chars_result result = std::from_chars(text.data(), end, *value);
  return result.ec == std::errc() && result.ptr == end;
}

}  // namespace kelnn_cli
