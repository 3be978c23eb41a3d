// kelnn cry: how likely a baby cries, for every 3 seconds of a sound.
#include <memory>

#include "command.h"
#include "cry_detector.h"
#include "formatted.h"
#include "progress_bar.h"

namespace kelnn_cli {
namespace {

constexpr uint64_t kLongSound = 60 * kSoundRate;  // less is done before a progress bar is read

struct Options {
  std::string input, root;
  uint32_t chunk = CryDetector::kDefaultChunk;
  float threshold = kLowestGate;
  bool wants_progress = false;
};

// Full, or what is left over at the sound's end.
struct Window {
  uint64_t index = 0;
  std::vector<int16_t> samples;
  float probability = 0;  // of a full one

  uint64_t start() const { return index * kWindowSeconds; }  // in seconds, like the end
  uint64_t end() const { return start() + kWindowSeconds; }
  bool is_full() const { return samples.size() == kWindowSamples; }
};

Report report_of(const Window& window, const CryDetector& detector, const Options& options) {
  const float loud = loudness(window.samples);
  const bool passed = detector.is_loud_enough(window.samples);
  Report report;
  report.text = options.input + " " + std::to_string(window.start()) + " - " +
                std::to_string(window.end()) + " s: cry " +
                formatted("%.5f", double{window.probability}) + ", loudness " +
                formatted("%.0f", double{loud}) + (passed ? "\n" : ", too quiet for the gate\n");
  report.json = {{"input", options.input},
                 {"window", window.index},
                 {"start", window.start()},
                 {"end", window.end()},
                 {"loudness", loud},
                 {"gate_passed", passed},
                 {"probability", window.probability}};
  return report;
}

Report report_of_rest(const Window& window, const Options& options) {
  const double seconds = static_cast<double>(window.samples.size()) / kSoundRate;
  Report report;
  report.text = options.input + ": " + formatted("%.3f", seconds) +
                " s left over, too short for a window of 3 s\n";
  report.json = {{"input", options.input}, {"left_over", seconds}};
  return report;
}

int64_t progress_total(const Sound& sound, const Options& options) {
  const uint64_t samples = sound.expected_samples();
  const bool is_wanted =
      options.wants_progress || (is_terminal_error_output() && samples > kLongSound);
  return is_wanted ? static_cast<int64_t>(samples / kSoundRate) : 0;
}

bool cry(const Options& options, const Listener& listener) {
  const std::unique_ptr<Sound> sound = open_sound(options.input);
  CryDetector detector(options.root, options.threshold);
  ProgressBar progress(options.input, progress_total(*sound, options), "s of sound");
  Window window;
  for (;; ++window.index) {
    window.samples = next_window(sound.get());
    if (!window.is_full()) break;
    window.probability = detector.of(window.samples, options.chunk);
    progress.hide();
    listener.report(report_of(window, detector, options));
    progress.show(static_cast<int64_t>(window.end()));
  }
  progress.hide();
  if (!window.samples.empty()) listener.report(report_of_rest(window, options));
  if (window.index == 0) throw Failure(options.input, "shorter than a window of 3 s");
  return true;
}

}  // namespace

void add_cry(CLI::App& app, StreamingCommand* chosen) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "cry",
      "Listens for a baby's cry.\n"
      "Prints the probability, from 0 to 1, for every 3 seconds of sound as soon as they are\n"
      "over, and how loud they were; with --json an object a line. What is too quiet for the\n"
      "gate is not shown to the network: 0.00001. Seconds left over at the end are told; it is\n"
      "an error when there are no others.");
  command->add_option("input", options->input, kSoundHelp)->required()->type_name("FILE");
  command
      ->add_option("--threshold", options->threshold,
                   "The gate: the least loudness, a sum over every tenth sample's size (0 to\n"
                   "32768). Less than the default counts as the default")
      ->type_name("LOUDNESS")
      ->check(CLI::NonNegativeNumber.description(""))
      ->default_str(formatted("%.0f", double{kLowestGate}));
  command
      ->add_option("--chunk", options->chunk,
                   "How many samples are given to the library at a time; the result is the same")
      ->type_name("SAMPLES")
      ->check(CLI::Range(uint32_t{1}, uint32_t{1} << 30).description(""))
      ->capture_default_str();
  command->add_flag("--progress", options->wants_progress,
                    "Show on standard error how far it is, also when that is no terminal");
  add_root(command, &options->root);
  command->callback(
      [=] { *chosen = [options](const Listener& listener) { return cry(*options, listener); }; });
}

}  // namespace kelnn_cli
