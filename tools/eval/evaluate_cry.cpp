// SPDX-License-Identifier: Apache-2.0
// kelnn eval for cry detection: every full window of every sound.
#include <fmt/format.h>

#include <map>
#include <memory>

#include "evaluation.h"
#include "figures.h"
#include "sound_window.h"

namespace kelnn_cli {
namespace {

constexpr float kCryProbability = 0.5f;
enum Class { kNoCry, kCry, kClassCount };

struct LabelledSound {
  std::string path, kind;
  int cry;
};

std::vector<LabelledSound> read_sounds(const std::string& directory) {
  std::vector<LabelledSound> sounds;
  for (const LabelRow& row :
       read_labels(directory, {{"file", "cry", "kind"}, {}}, RowsPerFile::kOne).rows) {
    sounds.push_back({path_of(directory, row), row.text(2), row.whole_number(1, kCry)});
  }
  return sounds;
}

struct Windows {
  ConfusionMatrix confusion{kClassCount};
  size_t too_quiet = 0;

  void add(const Windows& other) {
    for (const int truth : {kNoCry, kCry}) {
      for (const int found : {kNoCry, kCry}) {
        confusion.add(truth, found, other.confusion.count(truth, found));
      }
    }
    too_quiet += other.too_quiet;
  }
};

Windows hear(const LabelledSound& labelled, kel_nn::CryDetector* detector) {
  const std::unique_ptr<Sound> sound = open_sound(labelled.path);
  Windows windows;
  for (;;) {
    const std::vector<int16_t> window = next_window(sound.get());
    if (window.size() < kWindowSamples) break;
    const float probability = cry_probability(window, detector);
    check_is_number(probability, labelled.path);
    windows.confusion.add(labelled.cry, probability >= kCryProbability ? kCry : kNoCry);
    windows.too_quiet += !is_loud_enough(window, kLowestGate);
  }
  if (windows.confusion.count() == 0) throw Failure(labelled.path, "shorter than a window of 3 s");
  return windows;
}

Report report_of(const EvaluationSettings& settings, size_t sound_count, const Windows& all,
                 const std::map<std::string, Windows>& kinds) {
  Report report = begin_report(settings, sound_count, "sounds");
  const ConfusionMatrix& confusion = all.confusion;
  report.text += fmt::format(
      "{} windows of 3 s, {} of them cries; {} too quiet for the gate, which are no cry\n",
      confusion.count(), confusion.count(kCry), all.too_quiet);
  report.json["windows"] = confusion.count();
  report.json["cries"] = confusion.count(kCry);
  report.json["too_quiet"] = all.too_quiet;
  add_figures({{{"accuracy", "accuracy"}, confusion.accuracy()},
               {{"recall", "recall of cries"}, confusion.recall(kCry)},
               {{"false_alarm_rate", "false alarms, of windows without a cry"},
                share(confusion.count(kNoCry, kCry), confusion.count(kNoCry))}},
              &report);
  Table table = {"kinds",
                 {{"kind", "kind"},
                  {"windows", "windows"},
                  {"cries", "cries"},
                  {"too_quiet", "too quiet"},
                  {"heard_as_cry", "heard as a cry"},
                  {"accuracy", "accuracy"}},
                 {}};
  for (const auto& [kind, windows] : kinds) {
    const ConfusionMatrix& of_kind = windows.confusion;
    table.rows.push_back({kind, of_kind.count(), of_kind.count(kCry), windows.too_quiet,
                          of_kind.count(kNoCry, kCry) + of_kind.count(kCry, kCry),
                          of_kind.accuracy()});
  }
  add_table(table, &report);
  return report;
}

}  // namespace

Report evaluate_cry(const EvaluationSettings& settings) {
  const std::vector<LabelledSound> sounds = read_sounds(settings.data);
  kel_nn::CryDetector detector{kel_nn::Library(settings.root)};
  Windows all;
  std::map<std::string, Windows> kinds;
  for_each_file(settings, sounds, [&](const LabelledSound& sound) {
    const Windows windows = hear(sound, &detector);
    all.add(windows);
    kinds[sound.kind].add(windows);
  });
  return report_of(settings, sounds.size(), all, kinds);
}

}  // namespace kelnn_cli
