// SPDX-License-Identifier: Apache-2.0
// Where a command's results and complaints go, and Ctrl-C, which asks it to end.
#pragma once

#include <chrono>
#include <exception>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "inputs.h"
#include "kel_nn.hpp"
#include "report.h"
#include "result_file.h"

namespace kelnn_cli {

// A result is described once, as JSON; its text, whole lines, is made from that when it is wanted.
using Text = std::function<std::string(const Json& result)>;

// The result's members in their places: "{input}: {score:.2f}\n".
std::string filled(const std::string& format, const Json& result);
Text line(const std::string& format);  // filled() for whatever result comes

// What is told, and where.
struct ReportOptions {
  bool wants_json = false, is_verbose = false, is_quiet = false, wants_progress = false;
  ResultPaths files;
};

// What was done with frames, and seconds that went into parts of it.
struct Work {
  int64_t frames = 0;
  double reading = 0, writing = 0;
};

// Whose standard output is it? The library prints its lines there by design; the tool's result is to
// be piped. So as long as there is a reporter file descriptor 1 leads to standard error, and results go where it led
// before. What the library prints is held back until something fails; `is_verbose`: until the next word of the command's own.
class Reporter {
 public:
  explicit Reporter(const ReportOptions& options);
  ~Reporter();
  Reporter(const Reporter&) = delete;
  Reporter& operator=(const Reporter&) = delete;

  // Before the first result: what it is going to be. A UsageError when a file would take the place of an input.
  void begin(const ResultKind& kind);
  // For work that lasts for days: what does not fit on a full disk is kept for when there is room, as far as there is memory
  // for it, and a file that cannot be written is given up; both are told.
  void outlast_full_disks() { outlasts_ = true; }
  bool is_all_written() const { return !has_lost_; }
  void add(const Work& work);
  // After the last one. Without it none of the files appears. Sums up.
  void finish();

  // All that a command has to say.
  void report(const Json& result, const Text& text) {
    tell(result, text, /*is_only_one=*/true, true);
  }
  // One result of many; JSON has a line for each. `is_picture`: all that there is of an input, not a video's frame.
  void report_one(const Json& result, const Text& text, bool is_picture = false) {
    tell(result, text, /*is_only_one=*/false, is_picture);
  }
  // To standard error. The second one shows the library's lines too, and tells of a model that does not load once.
  void complain(const std::string& message);
  void complain(const std::exception& error);
  void forget_library_lines();  // what they are about went well

 private:
  void show_library_lines();
  void sum_up() const;
  void tell(const Json& result, const Text& text, bool is_only_one, bool is_picture);
  void write(const std::string& text);  // at once
  void write_files(const Json& result, bool is_picture);

  ReportOptions options_;
  bool prints_ = true;  // false: a file goes to standard output
  Work work_;
  int64_t found_ = 0;  // boxes and periods with motion
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  int output_;           // descriptor
  std::string waiting_;  // for room on a full disk
  bool outlasts_ = false, has_lost_ = false;
  std::vector<std::unique_ptr<ResultFile>> files_;
  std::optional<kel_nn::Messages> library_lines_;  // there is always one
  std::set<std::string> unusable_models_;          // tasks
};

// A signal that ends the process leaves no temporary files. From main().
void handle_signals();
// From here on Ctrl-C is a wish to end, so that what has been begun is finished; the second time it ends the process.
// SIGTERM and SIGHUP are the same.
void catch_interruption();
int interruption();  // the signal; 0: none
// While it lives no signal ends the process; one that comes does so afterwards.
class Uninterrupted {
 public:
  Uninterrupted();
  ~Uninterrupted();
  Uninterrupted(const Uninterrupted&) = delete;
  Uninterrupted& operator=(const Uninterrupted&) = delete;
};

// What is told of an input is a complaint.
InputSettings told(const InputSettings& settings, Reporter* reporter);

// Does something with each input. One that fails is complained about and the others are still done;
// false: there was one.
bool for_each_input(const Inputs& inputs, Reporter* reporter,
                    const std::function<void(const std::string&)>& work);

}  // namespace kelnn_cli
