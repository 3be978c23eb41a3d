// SPDX-License-Identifier: Apache-2.0
// kelnn replay: makes the calls of a recording again and says which is the first that differs.
#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>

#include "commands.h"
#include "exporter.h"
#include "files.h"
#include "player.h"
#include "progress_bar.h"

namespace kelnn_cli {
namespace {

namespace fs = std::filesystem;

// Files of a directory in the order in which they were written.
std::vector<std::string> recordings(const std::vector<std::string>& named) {
  std::vector<std::string> files;
  for (const std::string& name : named) {
    std::error_code error;
    if (!fs::is_directory(name, error)) {
      files.push_back(name);
      continue;
    }
    std::vector<std::string> found;
    for (const fs::directory_entry& entry : fs::directory_iterator(name, error)) {
      if (entry.path().extension() == ".rec") found.push_back(entry.path().string());
    }
    if (found.empty()) throw Failure(name, "no recording, kelnn-....rec, in the directory");
    std::sort(found.begin(), found.end(), [](const std::string& a, const std::string& b) {
      return a.size() != b.size() ? a.size() < b.size() : a < b;  // numbers
    });
    files.insert(files.end(), found.begin(), found.end());
  }
  return files;
}

Json told(const Difference& difference) {
  return {{"call", difference.call},         {"began", difference.time},
          {"function", difference.function}, {"value", difference.value},
          {"recorded", difference.recorded}, {"replayed", difference.replayed}};
}

std::string replay_text(const Json& result) {
  std::string text = filled(
      "{calls} calls: {compared} compared, {skipped} skipped, {lost} lost, {missing} missing\n",
      result);
  if (result.contains("exported"))
    text += filled("{exported} pictures and sounds exported\n", result);
  if (!result.contains("difference")) return text + "every compared call gives what was recorded\n";
  const Json& difference = result["difference"];
  const time_t time = static_cast<time_t>(difference["began"].get<double>());
  return text + filled("{differing} differ; the first:\n", result) +
         fmt::format("call {}, {}, at {:%Y-%m-%d %H:%M:%S} UTC\n",
                     difference["call"].get<uint64_t>(), difference["function"].get<std::string>(),
                     fmt::gmtime(time)) +
         filled("  value     {value}\n  recorded  {recorded}\n  replayed  {replayed}\n",
                difference);
}

}  // namespace

bool replay(const ReplayOptions& options, Reporter* reporter) {
  const std::vector<std::string> files = recordings(options.recordings);
  catch_interruption();
  Player player({options.runs_networks, options.root});
  std::optional<Exporter> exporter;
  if (!options.out.empty()) exporter.emplace(options.out);
  ProgressBar progress("replay", static_cast<int64_t>(files.size()), "files");
  int64_t done = 0;
  for (const std::string& file : files) {
    const Bytes bytes = read_file(file);
    ProgressBar within(file, static_cast<int64_t>(bytes.size() >> 10), "kB");
    kelnn_record::RecordingReader reader(bytes);
    if (!reader.is_recording()) throw Failure(file, reader.problem());
    kelnn_record::Entry entry;
    while (!interruption() && reader.next(&entry)) {
      player.play(entry);
      if (exporter) exporter->add(entry);
      reporter->forget_library_lines();
      within.show(static_cast<int64_t>(reader.position() >> 10));
    }
    if (!reader.problem().empty()) reporter->complain(file + ": " + reader.problem());
    progress.show(++done);
  }
  if (exporter) exporter->finish();
  const Comparison& found = player.comparison();
  Json result = {{"calls", found.calls},     {"compared", found.compared},
                 {"skipped", found.skipped}, {"lost", found.lost},
                 {"missing", found.missing}, {"differing", found.differing}};
  if (exporter) result["exported"] = exporter->files();
  if (found.first) result["difference"] = told(*found.first);
  reporter->report(result, replay_text);
  if (found.compared == 0) reporter->complain("nothing could be compared");
  if (exporter && exporter->files() == 0)
    reporter->complain("nothing to export: whole inputs were not recorded");
  return found.compared > 0 && !found.first && (!exporter || exporter->files() > 0);
}

}  // namespace kelnn_cli
