// SPDX-License-Identifier: Apache-2.0
// kelnn eval for cry detection: every full window of every sound.
#include <map>
#include <memory>

#include "evaluation.h"
#include "figures.h"
#include "sound_window.h"

namespace kelnn_cli {
namespace {

constexpr float kCryProbability = 0.5f;
enum Class { kNoCry, kCry, kClassCount };
enum CryColumn : size_t { kSoundFile, kLabel, kKind };

struct Windows {
  ConfusionMatrix confusion{kClassCount};
  size_t too_quiet = 0;  // for the gate, which are no cry

  Json json() const {
    return {{"windows", confusion.count()},
            {"cries", confusion.count(kCry)},
            {"too_quiet", too_quiet},
            {"heard_as_cry", confusion.count(kNoCry, kCry) + confusion.count(kCry, kCry)},
            {"accuracy", confusion.accuracy()}};
  }
};

// Counts the sound's windows among each of those. Whether it was recorded at 16 kHz or more.
bool hear(const std::string& path, int label, kel_nn::CryDetector* detector,
          std::initializer_list<Windows*> counts) {
  const std::unique_ptr<Sound> sound = open_sound(path);
  std::vector<int16_t> window = next_window(sound.get());
  if (window.size() < kWindowSamples) throw Failure(path, "shorter than a window of 3 s");
  for (; window.size() == kWindowSamples; window = next_window(sound.get())) {
    const float probability = cry_probability(window, detector);
    check_are_numbers(std::array{probability}, path);
    for (Windows* windows : counts) {
      windows->confusion.add(label, probability >= kCryProbability ? kCry : kNoCry);
      windows->too_quiet += !is_loud_enough(window, kLowestGate);
    }
  }
  return sound->recorded_rate() >= kSoundRate;
}

}  // namespace

Evaluation evaluate_cry(const EvaluationSettings& settings) {
  const std::vector<LabelRow> rows =
      read_class_labels(settings.data, {{"file", "cry", "kind"}, {}}, kClassCount);
  kel_nn::CryDetector detector{kel_nn::Library(settings.root)};
  Windows all;
  std::map<std::string, Windows> kinds;
  size_t below_16_khz = 0;
  for_each_file(settings, rows, [&](const LabelRow& row) {
    below_16_khz += !hear(path_of(settings.data, row.file()), row.whole_number(kLabel, kCry),
                          &detector, {&all, &kinds[row.text(kKind)]});
  });
  Json report = {{"task", settings.task}, {"data", settings.data}, {"sounds", rows.size()}};
  report["sounds_below_16_khz"] = below_16_khz;
  report.update(all.json());
  report["recall"] = all.confusion.recall(kCry);
  report["false_alarm_rate"] =
      share(all.confusion.count(kNoCry, kCry), all.confusion.count(kNoCry));
  report["kinds"] = Json::array();
  for (const auto& [kind, windows] : kinds) {
    report["kinds"].push_back({{"kind", kind}});
    report["kinds"].back().update(windows.json());
  }
  return {report};
}

}  // namespace kelnn_cli
