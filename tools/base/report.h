// SPDX-License-Identifier: Apache-2.0
// How results are told as JSON, and what is thrown where there is none.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <stdexcept>
#include <string>

#include "numbers.h"

// Of the numbers that are read back as the same float the one with the fewest digits: 0.9, not 0.8999999761581421.
template <>
struct nlohmann::adl_serializer<float> {
  template <typename AnyJson>
  static void to_json(AnyJson& json, float value) {
    char text[32];
    double shortest = 0;
    const std::to_chars_result end = std::to_chars(text, text + sizeof(text), value);
    std::from_chars(text, end.ptr, shortest);
    json = shortest;
  }
  template <typename AnyJson>
  static void from_json(const AnyJson& json, float& value) {
    value = static_cast<float>(json.template get<double>());
  }
};

namespace kelnn_cli {

using Json = nlohmann::ordered_json;

// Numbers have the fewest digits that give them back; null stands for what is none.
std::string dumped(const Json& json, bool is_indented = false);

// Without what a terminal would obey: names in files and recordings, which others wrote, may hold such.
std::string harmless(const std::string& text);

class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& problem) : runtime_error(problem), problem_(problem) {}
  Failure(const std::string& path, const std::string& problem)
      : runtime_error(path + ": " + problem), problem_(problem) {}
  const std::string& problem() const { return problem_; }  // without the path

 private:
  std::string problem_;
};

// The call asks for what must not be done.
class UsageError : public Failure {
 public:
  using Failure::Failure;
};

// Nobody takes the result any more: no reason to go on.
class OutputFailure : public Failure {
 public:
  using Failure::Failure;
};

}  // namespace kelnn_cli
