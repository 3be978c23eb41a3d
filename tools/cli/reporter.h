// Where a command's results and complaints go.
#ifndef KEL_NN_TOOLS_REPORTER_H_
#define KEL_NN_TOOLS_REPORTER_H_

#include <functional>
#include <string>
#include <vector>

#include "library_output.h"
#include "report.h"

namespace kelnn_cli {

// A result is any type with a text_of(), whole lines, and a json_of(); only what is wanted is made.
class Reporter {
 public:
  explicit Reporter(bool wants_json) : wants_json_(wants_json) {}

  // All that a command has to say.
  template <typename Result>
  void report(const Result& result) {
    output_.write(wants_json_ ? on_several_lines(json_of(result)) : text_of(result));
  }
  // One result of many; JSON has a line for each.
  template <typename Result>
  void report_one(const Result& result) {
    output_.write(wants_json_ ? on_one_line(json_of(result)) : text_of(result));
  }
  // To standard error.
  void complain(const std::string& message) const;
  void complain(const std::exception& error) const;

 private:
  static std::string on_several_lines(const Json& json);
  static std::string on_one_line(const Json& json);

  bool wants_json_;
  ResultOutput output_;
};

// Does something with each input. One that fails is complained about and the others are still done;
// false: there was one.
bool for_each_input(const std::vector<std::string>& inputs, const Reporter& reporter,
                    const std::function<void(const std::string&)>& work);

}  // namespace kelnn_cli

#endif  // KEL_NN_TOOLS_REPORTER_H_
