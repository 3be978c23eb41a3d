// SPDX-License-Identifier: Apache-2.0
// Where a command's results and complaints go, and Ctrl-C, which asks it to end.
#pragma once

#include <exception>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "input_settings.h"
#include "kel_nn.hpp"
#include "report.h"

namespace kelnn_cli {

// A result is described once, as JSON; its text, whole lines, is made from that when it is wanted.
using Text = std::function<std::string(const Json& result)>;

// The result's members in their places: "{input}: {score:.2f}\n".
std::string filled(const std::string& format, const Json& result);
Text line(const std::string& format);  // filled() for whatever result comes

// Whose standard output is it? The library prints its lines there by design; the tool's result is to
// be piped. So file descriptor 1 leads to standard error, and the result goes where it led before.
class ResultOutput {
 public:
  ResultOutput();  // from here on the library's lines go to standard error
  ~ResultOutput();
  ResultOutput(const ResultOutput&) = delete;
  ResultOutput& operator=(const ResultOutput&) = delete;

  void write(const std::string& text);  // at once, nothing is held back

 private:
  int descriptor_;
};

// Holds back what the library prints until something fails; `is_verbose`: until the next word of the command's own.
class Reporter {
 public:
  Reporter(bool wants_json, bool is_verbose);
  ~Reporter();

  // All that a command has to say.
  void report(const Json& result, const Text& text);
  // One result of many; JSON has a line for each.
  void report_one(const Json& result, const Text& text);
  // To standard error. The second one shows the library's lines too, and tells of a model that does not load once.
  void complain(const std::string& message);
  void complain(const std::exception& error);
  void forget_library_lines();  // what they are about went well

 private:
  void show_library_lines();

  bool wants_json_, is_verbose_;
  ResultOutput output_;
  std::optional<kel_nn::Messages> library_lines_;  // there is always one
  std::set<std::string> unusable_models_;          // tasks
};

// A signal that ends the process leaves no temporary files. From main().
void handle_signals();
// From here on Ctrl-C is a wish to end, so that what has been begun is finished; the second time it ends the process.
// SIGTERM and SIGHUP are the same.
void catch_interruption();
int interruption();  // the signal; 0: none

// What is told of an input is a complaint.
InputSettings told(const InputSettings& settings, Reporter* reporter);

// Does something with each input. One that fails is complained about and the others are still done;
// false: there was one.
bool for_each_input(const std::vector<std::string>& inputs, Reporter* reporter,
                    const std::function<void(const std::string&)>& work);

}  // namespace kelnn_cli
