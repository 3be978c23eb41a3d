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

struct Heard {  // in a window
  bool is_cry, is_too_quiet;
  bool is_below_16_khz;  // as the whole sound was recorded
};

struct Windows {
  ConfusionMatrix confusion{kClassCount};
  size_t too_quiet = 0;  // for the gate, which are no cry

  void add(int label, const Heard& heard) {
    confusion.add(label, heard.is_cry ? kCry : kNoCry);
    too_quiet += heard.is_too_quiet;
  }
  Json json() const {
    return {{"windows", confusion.count()},
            {"cries", confusion.count(kCry)},
            {"too_quiet", too_quiet},
            {"heard_as_cry", confusion.count(kNoCry, kCry) + confusion.count(kCry, kCry)},
            {"accuracy", confusion.accuracy()}};
  }
};

std::vector<Heard> hear(const std::string& path, kel_nn::CryDetector* detector) {
  const std::unique_ptr<Sound> sound = open_sound(path);
  std::vector<int16_t> window = next_window(sound.get());
  if (window.size() < kWindowSamples) throw Failure(path, "shorter than a window of 3 s");
  std::vector<Heard> windows;
  for (; window.size() == kWindowSamples; window = next_window(sound.get())) {
    const float probability = cry_probability(window, detector);
    check_are_numbers(std::array{probability}, path);
    windows.push_back({probability >= kCryProbability, !is_loud_enough(window, kLowestGate),
                       sound->recorded_rate() < kSoundRate});
  }
  return windows;
}

}  // namespace

Evaluation evaluate_cry(const EvaluationSettings& settings) {
  const std::vector<LabelRow> rows =
      read_class_labels(settings.data, {{"file", "cry", "kind"}, {}}, kClassCount);
  const auto found = found_in_files<Heard>(settings, rows.size(), [&] {
    const auto detector = std::make_shared<kel_nn::CryDetector>(kel_nn::Library(settings.root));
    return [&, detector](size_t i, bool) {
      return hear(path_of(settings.data, rows[i].file()), detector.get());
    };
  });
  Windows all;
  std::map<std::string, Windows> kinds;
  size_t below_16_khz = 0;
  for (size_t i = 0; i < rows.size(); ++i) {
    below_16_khz += found[i].front().is_below_16_khz;
    for (Windows* windows : {&all, &kinds[rows[i].text(kKind)]}) {
      for (const Heard& heard : found[i]) windows->add(rows[i].whole_number(kLabel, kCry), heard);
    }
  }
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
