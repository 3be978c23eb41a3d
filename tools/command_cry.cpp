// kelnn cry: how likely a baby cries, for every 3 seconds of a sound.
#include <algorithm>
#include <memory>

#include "command.h"
#include "formatted.h"
#include "kel_nn.h"
#include "loaded_task.h"
#include "progress_bar.h"
#include "sound_window.h"

namespace kelnn_cli {
namespace {

constexpr uint32_t kDefaultChunk = kSoundRate / 10;
constexpr uint64_t kLongSound = 60 * kSoundRate;  // less is done before a progress bar is read

struct Options {
  std::string input, root;
  uint32_t chunk = kDefaultChunk;
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

Report report_of(const Window& window, const Options& options) {
  const float loud = loudness(window.samples);
  const bool passed = !(loud < std::max(options.threshold, kLowestGate));
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

// The library drops what a window has no room for. So no chunk goes beyond the end of one, and the
// next window begins with the sample after it.
class Listening {
 public:
  explicit Listening(const Options& options)
      : options_(options),
        sound_(open_sound(options.input)),
        task_(
            options.root, "cry-detection", "cry detection",
            [&options](kel_nn_handle_t handle) {
              return kel_nn_crydet_init(handle, kSoundRate, options.threshold);
            },
            kel_nn_crydet_deinit),
        progress_(options.input, progress_total(), "s of sound") {}

  // False: the sound has ended; the window holds what is left over.
  bool next(Window* window) {
    window->samples.clear();
    while (!window->is_full()) {
      const size_t fill = window->samples.size();
      const size_t wanted = std::min<size_t>(options_.chunk, kWindowSamples - fill);
      window->samples.resize(fill + wanted);
      const size_t n = sound_->read(window->samples.data() + fill, wanted);
      window->samples.resize(fill + n);
      if (n < wanted) break;
      task_.check(kel_nn_crydet_process(task_.handle(), window->samples.data() + fill,
                                        static_cast<uint32_t>(n), &window->probability));
    }
    progress_.hide();
    return window->is_full();
  }
  void show_progress(uint64_t seconds) { progress_.show(static_cast<int64_t>(seconds)); }

 private:
  int64_t progress_total() const {
    const uint64_t samples = sound_->expected_samples();
    const bool is_wanted =
        options_.wants_progress || (is_terminal_error_output() && samples > kLongSound);
    return is_wanted ? static_cast<int64_t>(samples / kSoundRate) : 0;
  }

  const Options& options_;
  std::unique_ptr<Sound> sound_;
  LoadedTask task_;
  ProgressBar progress_;
};

bool cry(const Options& options, const Listener& listener) {
  Listening listening(options);
  Window window;
  for (; listening.next(&window); ++window.index) {
    listener.report(report_of(window, options));
    listening.show_progress(window.end());
  }
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
