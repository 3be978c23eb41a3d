// kelnn eval for cry detection: every full window of every sound.
#include <map>
#include <memory>

#include "cry_detector.h"
#include "evaluation.h"
#include "evaluation_classes.h"

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
  size_t heard_as_cry() const {
    return confusion.count(kNoCry, kCry) + confusion.count(kCry, kCry);
  }
  double false_alarm_rate() const {
    return share(confusion.count(kNoCry, kCry), confusion.count(kNoCry));
  }
};

Windows hear(const LabelledSound& labelled, CryDetector* detector) {
  const std::unique_ptr<Sound> sound = open_sound(labelled.path);
  Windows windows;
  for (;;) {
    const std::vector<int16_t> window = next_window(sound.get());
    if (window.size() < kWindowSamples) break;
    const float probability = detector->of(window);
    check_is_number(probability, labelled.path);
    windows.confusion.add(labelled.cry, probability >= kCryProbability ? kCry : kNoCry);
    windows.too_quiet += !detector->is_loud_enough(window);
  }
  if (windows.confusion.count() == 0) throw Failure(labelled.path, "shorter than a window of 3 s");
  return windows;
}

Report report_of(const EvaluationSettings& settings, size_t sound_count, const Windows& all,
                 const std::map<std::string, Windows>& kinds) {
  Report report = begin_report(settings, sound_count, "sounds");
  report.text += std::to_string(all.confusion.count()) + " windows of 3 s, " +
                 std::to_string(all.confusion.count(kCry)) + " of them cries; " +
                 std::to_string(all.too_quiet) + " too quiet for the gate, which are no cry\n";
  report.json["windows"] = all.confusion.count();
  report.json["cries"] = all.confusion.count(kCry);
  report.json["too_quiet"] = all.too_quiet;
  add_figures(
      {{"accuracy", "accuracy", all.confusion.accuracy()},
       {"recall", "recall of cries", all.confusion.recall(kCry)},
       {"false_alarm_rate", "false alarms, of windows without a cry", all.false_alarm_rate()}},
      &report);
  TextTable table = {{"kind", "windows", "cries", "too quiet", "heard as a cry", "accuracy"}};
  report.json["kinds"] = Json::array();
  for (const auto& [kind, windows] : kinds) {
    const ConfusionMatrix& confusion = windows.confusion;
    table.push_back({kind, std::to_string(confusion.count()), std::to_string(confusion.count(kCry)),
                     std::to_string(windows.too_quiet), std::to_string(windows.heard_as_cry()),
                     figure_text(confusion.accuracy())});
    report.json["kinds"].push_back({{"kind", kind},
                                    {"windows", confusion.count()},
                                    {"cries", confusion.count(kCry)},
                                    {"too_quiet", windows.too_quiet},
                                    {"heard_as_cry", windows.heard_as_cry()},
                                    {"accuracy", confusion.accuracy()}});
  }
  report.text += text_of(table);
  return report;
}

}  // namespace

Report evaluate_cry(const EvaluationSettings& settings) {
  const std::vector<LabelledSound> sounds = read_sounds(settings.data);
  CryDetector detector(settings.root, kLowestGate);
  EvaluationProgress progress(settings, sounds.size());
  Windows all;
  std::map<std::string, Windows> kinds;
  for (const LabelledSound& sound : sounds) {
    const Windows windows = hear(sound, &detector);
    all.add(windows);
    kinds[sound.kind].add(windows);
    progress.add_file();
  }
  return report_of(settings, sounds.size(), all, kinds);
}

}  // namespace kelnn_cli
