// SPDX-License-Identifier: Apache-2.0
// How results are told as JSON, and what is thrown where there is none.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <stdexcept>
#include <string>

namespace kelnn_cli {

using Json = nlohmann::ordered_json;

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
