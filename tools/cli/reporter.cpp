// SPDX-License-Identifier: Apache-2.0
#include "reporter.h"

#include <fcntl.h>
#include <fmt/args.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <regex>

#include "files.h"
#include "library_call.h"
#include "progress_bar.h"

namespace kelnn_cli {
namespace {

// Standard output may be closed; then nothing that is opened later may take its number by chance.
int duplicate(int descriptor) { return fcntl(descriptor, F_DUPFD_CLOEXEC, 3); }

std::atomic<int> g_finishes = 0, g_signal = 0;  // any thread may take a signal
std::atomic<int> g_is_held = 0, g_waiting = 0;  // Uninterrupted's

void on_signal(int signal) {
  if (g_is_held) {
    g_waiting = signal;
    return;
  }
  if (g_finishes && !g_signal && signal != SIGPIPE) {
    g_signal = signal;
    return;
  }
  remove_temporary_files();
  ProgressBar::erase();
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

}  // namespace

std::string filled(const std::string& format, const Json& result) {
  fmt::dynamic_format_arg_store<fmt::format_context> arguments;
  for (const auto& [name, value] : result.items()) {
    if (value.is_string()) {
      arguments.push_back(fmt::arg(name.c_str(), value.get<std::string>()));
    } else if (value.is_number_float()) {
      arguments.push_back(fmt::arg(name.c_str(), value.get<double>()));
    } else if (value.is_number()) {
      arguments.push_back(fmt::arg(name.c_str(), value.get<int64_t>()));
    }
  }
  return fmt::vformat(format, arguments);
}

Text line(const std::string& format) {
  return [format](const Json& result) { return filled(format, result); };
}

Reporter::Reporter(const ReportOptions& options)
    : options_(options), output_(duplicate(STDOUT_FILENO)) {
  if (dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {  // standard error is closed
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere >= 0) dup2(nowhere, STDOUT_FILENO);
  }
  set_standard_output(output_);
  // In step with what goes to standard error directly. Lines are no unit here: the library ends its
  // colour behind the newline.
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  library_lines_.emplace();
}

Reporter::~Reporter() {
  if (options_.is_verbose) show_library_lines();
  if (output_ >= 0) close(output_);
}

void Reporter::forget_library_lines() {
  if (options_.is_verbose) return show_library_lines();
  library_lines_.reset();  // before there is another one
  library_lines_.emplace();
}

void Reporter::show_library_lines() {
  std::string text = library_lines_->text();
  if (!isatty(STDERR_FILENO)) text = std::regex_replace(text, std::regex("\033\\[[0-9;]*m"), "");
  {
    const ProgressBar::Hidden hidden;
    std::fputs(text.c_str(), stderr);
  }
  library_lines_.reset();
  library_lines_.emplace();
}

void Reporter::begin(const ResultKind& kind) {
  const ResultPaths& paths = options_.files;
  const std::vector<std::string> all = {paths.csv, paths.coco, paths.vtt};
  const auto printed = std::count_if(all.begin(), all.end(), [](const std::string& path) {
    return path == "-" || (!path.empty() && is_standard_output(path));
  });
  if (printed + options_.wants_json > 1) {
    throw UsageError("standard output takes one of --json, --csv, --coco and --vtt");
  }
  prints_ = printed == 0;
  files_ = make_result_files(paths, kind);
}

void Reporter::add(const Work& work) {
  work_.frames += work.frames;
  work_.reading += work.reading;
  work_.writing += work.writing;
}

void Reporter::finish() {
  outlasts_ = false;  // there is nothing more to wait for
  if (!waiting_.empty()) write("");
  for (const auto& file : files_) file->finish();
  const bool is_wanted = options_.wants_progress || (work_.frames > 1 && isatty(STDERR_FILENO));
  if (is_wanted && work_.frames > 0 && !options_.is_quiet) sum_up();
}

void Reporter::sum_up() const {
  const std::chrono::duration<double> all = std::chrono::steady_clock::now() - start_;
  const auto part = [&all](double seconds) { return 100 * seconds / all.count(); };
  const double reading = part(work_.reading), writing = part(work_.writing);
  const ProgressBar::Hidden hidden;
  fmt::print(stderr,
             "kelnn: {} frames, {} found, {:.1f} frames/s; {:.1f} s: reading {:.0f} %, finding "
             "{:.0f} %, writing {:.0f} %\n",
             work_.frames, found_, static_cast<double>(work_.frames) / all.count(), all.count(),
             reading, 100 - reading - writing, writing);
}

void Reporter::write(const std::string& text) {
  constexpr size_t kMostWaiting = 16 << 20;
  const bool was_full = !waiting_.empty();
  if (waiting_.size() + text.size() <= kMostWaiting) {
    waiting_ += text;
  } else if (!has_lost_) {
    has_lost_ = true;
    complain("results are lost from here on, until there is room for those that wait");
  }
  size_t done = 0;
  while (done < waiting_.size()) {
    const ssize_t written = ::write(output_, waiting_.data() + done, waiting_.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) break;
    done += static_cast<size_t>(written);
  }
  const int reason = done < waiting_.size() ? errno : 0;
  waiting_.erase(0, done);
  if (reason == 0) return;
  if (!outlasts_ || (reason != ENOSPC && reason != EDQUOT)) {
    waiting_.clear();
    throw OutputFailure(std::string("cannot write the result: ") + std::strerror(reason));
  }
  if (!was_full) complain("the disk of the results is full; they are kept until there is room");
}

void Reporter::write_files(const Json& result, bool is_picture) {
  for (auto file = files_.begin(); file != files_.end();) {
    try {
      (*file)->add(result, is_picture);
      ++file;
    } catch (const OutputFailure& failure) {
      if (!outlasts_) throw;
      complain(std::string(failure.what()) + "; this file is given up");
      has_lost_ = true;
      file = files_.erase(file);
    }
  }
}

void Reporter::tell(const Json& result, const Text& text, bool is_only_one, bool is_picture) {
  if (options_.is_verbose) show_library_lines();
  write_files(result, is_picture);
  found_ += result.contains("motion") && result["motion"] == true;
  if (result.contains("boxes")) found_ += static_cast<int64_t>(result["boxes"].size());
  if (!prints_ || (options_.is_quiet && !options_.wants_json)) return;
  const ProgressBar::Hidden hidden;
  write(options_.wants_json ? dumped(result, is_only_one) + "\n" : harmless(text(result)));
}

void Reporter::complain(const std::string& message) {
  const ProgressBar::Hidden hidden;
  fmt::print(stderr, "kelnn: {}\n", harmless(message));
}

void Reporter::complain(const std::exception& error) {
  const auto* of_library = dynamic_cast<const kel_nn::Error*>(&error);
  if (of_library && of_library->kind() == kel_nn::Error::kModel &&
      !unusable_models_.insert(of_library->task()).second) {
    return forget_library_lines();
  }
  const std::string message = of_library ? explanation(*of_library) : error.what();
  if (options_.is_verbose || library_lines_->errors() > 0) show_library_lines();
  complain(message);
}

void handle_signals() {
  std::signal(SIGXFSZ, SIG_IGN);  // a file that grows too large is a Failure
  for (const int signal : {SIGHUP, SIGINT, SIGPIPE, SIGTERM}) {
    struct sigaction action = {};
    sigaction(signal, nullptr, &action);
    if (action.sa_handler == SIG_IGN) continue;  // as nohup has it
    action.sa_handler = on_signal;
    action.sa_flags = SA_RESTART;
    sigaction(signal, &action, nullptr);
  }
}

void catch_interruption() { g_finishes = 1; }

int interruption() { return g_signal; }

// Not by masking them: other threads, as OpenCV has some, would take them.
Uninterrupted::Uninterrupted() { g_is_held = 1; }

Uninterrupted::~Uninterrupted() {
  g_is_held = 0;
  if (g_waiting) std::raise(g_waiting);
}

InputSettings told(const InputSettings& settings, Reporter* reporter) {
  InputSettings all = settings;
  all.tell = [reporter](const std::string& message) { reporter->complain(message); };
  all.is_over = [] { return interruption() != 0; };
  return all;
}

bool for_each_input(const Inputs& inputs, Reporter* reporter,
                    const std::function<void(const std::string&)>& work) {
  bool ok = true;
  ProgressBar progress("inputs", static_cast<int64_t>(inputs.names.size()), "inputs");
  int64_t done = 0;
  for (const std::string& input : inputs.names) {
    if (done++ > 0) progress.show(done - 1);
    if (interruption()) {
      reporter->complain(fmt::format("interrupted before {}", input));
      break;
    }
    try {
      work(input);
      reporter->forget_library_lines();
    } catch (const OutputFailure&) {
      throw;
    } catch (const std::exception& error) {
      reporter->complain(error);
      ok = false;
    }
  }
  return ok;
}

}  // namespace kelnn_cli
