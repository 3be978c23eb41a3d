// What a command has to say, once as text and once as JSON; main() prints one of them. A command
// that cannot do its work throws a Failure instead.
#ifndef KEL_NN_TOOLS_REPORT_H_
#define KEL_NN_TOOLS_REPORT_H_

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

namespace kelnn_cli {

using Json = nlohmann::ordered_json;

struct Report {
  std::string text;  // whole lines
  Json json;
  bool ok = true;         // false: the report is of something that is not as it should be
  std::string complaint;  // for standard error
};

class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& problem) : runtime_error(problem), problem_(problem) {}
  Failure(const std::string& path, const std::string& problem)
      : runtime_error(path + ": " + problem), problem_(problem) {}
  const std::string& problem() const { return problem_; }  // without the path

 private:
  std::string problem_;
};

// Nobody takes the result any more: no reason to go on.
class OutputFailure : public Failure {
 public:
  using Failure::Failure;
};

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_REPORT_H_
