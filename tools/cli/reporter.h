// SPDX-License-Identifier: Apache-2.0
// Where a command's results and complaints go, and Ctrl-C, which asks it to end.
#pragma once

#include <exception>
#include <functional>
#include <string>
#include <vector>

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

class Reporter {
 public:
  explicit Reporter(bool wants_json) : wants_json_(wants_json) {}

  // All that a command has to say.
  void report(const Json& result, const Text& text);
  // One result of many; JSON has a line for each.
  void report_one(const Json& result, const Text& text);
  // To standard error.
  void complain(const std::string& message) const;
  void complain(const std::exception& error) const;

 private:
  bool wants_json_;
  ResultOutput output_;
};

// A signal that ends the process leaves no temporary files. From main().
void handle_signals();
// From here on Ctrl-C is a wish to end, so that what has been begun is finished; the second time it ends the process.
// SIGTERM and SIGHUP are the same.
void catch_interruption();
int interruption();  // the signal; 0: none

// Does something with each input. One that fails is complained about and the others are still done;
// false: there was one.
bool for_each_input(const std::vector<std::string>& inputs, const Reporter& reporter,
                    const std::function<void(const std::string&)>& work);

}  // namespace kelnn_cli
