// kelnn cry: how likely a baby cries, for every 3 seconds of a sound.
#include <algorithm>
#include <cstdio>
#include <memory>

#include "command.h"
#include "files.h"
#include "kel_nn.h"
#include "model_inspection.h"
#include "progress_bar.h"
#include "sound_window.h"

namespace kelnn_cli {
namespace {

constexpr uint32_t kDefaultChunk = 1600;  // a tenth of a second

struct Options {
  std::string sound, root;
  uint32_t chunk = kDefaultChunk;
  float threshold = kLowestGate;
};

// The library's cry detection task, ready to use.
class CryDetector {
 public:
  CryDetector(const std::string& directory, float threshold) {
    const std::string root = with_slash(directory);
    kel_nn_set_model_root_dir(root.c_str());
    handle_ = kel_nn_handle_create();
    if (!handle_) throw Failure("out of memory");
    if (kel_nn_crydet_init(handle_, kSoundRate, threshold) == 0) return;
    close();
    const Inspection why = inspect_model(*find_task("cry-detection"), root);
    throw Failure("no cry detection without a model: " + why.path + "\n" + why.problem + "\n" +
                  why.advice);
  }
  ~CryDetector() { close(); }
  CryDetector(const CryDetector&) = delete;
  CryDetector& operator=(const CryDetector&) = delete;

  // The library's score: negative until the window is full.
  float add(const int16_t* samples, uint32_t count) {
    float score = 0.0f;
    if (kel_nn_crydet_process(handle_, samples, count, &score) != 0) {
      throw Failure("the cry detection failed, see above");
    }
    return score;
  }

 private:
  void close() {
    kel_nn_crydet_deinit(handle_);
    kel_nn_handle_destroy(handle_);
  }

  kel_nn_handle_t handle_;
};

void report_window(const StreamedLines& lines, uint64_t index, float loudness, float threshold,
                   float probability) {
  const uint64_t start = index * kWindowSeconds, end = start + kWindowSeconds;
  const bool is_loud = !(loudness < threshold);
  char text[128];
  std::snprintf(text, sizeof(text), "%6llu - %llu s   loudness %9.0f   %s   probability %.5f\n",
                static_cast<unsigned long long>(start), static_cast<unsigned long long>(end),
                double{loudness}, is_loud ? "loud enough" : "too quiet  ", double{probability});
  lines(text, {{"window", index},
               {"start", start},
               {"end", end},
               {"loudness", loudness},
               {"gate_passed", is_loud},
               {"probability", probability}});
}

void report_left_over(const StreamedLines& lines, size_t samples) {
  const double seconds = static_cast<double>(samples) / kSoundRate;
  char text[96];
  std::snprintf(text, sizeof(text), "%.3f s left over: not a whole window, no probability\n",
                seconds);
  lines(text, {{"left_over_seconds", seconds}});
}

// The library drops what a window has no room for. So no chunk goes beyond the end of one, and the
// next window begins with the sample after it.
void detect(const Options& options, const StreamedLines& lines) {
  const auto sound = open_sound(options.sound);
  CryDetector detector(options.root, options.threshold);
  ProgressBar bar(sound->expected_samples());
  const float threshold = std::max(options.threshold, kLowestGate);
  std::vector<int16_t> window(kWindowSamples);
  for (uint64_t index = 0;; ++index) {
    uint32_t fill = 0;
    float score = -1.0f;
    while (fill < kWindowSamples) {
      const uint32_t wanted = std::min(options.chunk, kWindowSamples - fill);
      const auto n = static_cast<uint32_t>(sound->read(window.data() + fill, wanted));
      if (n > 0) score = detector.add(window.data() + fill, n);
      fill += n;
      bar.update(index * kWindowSamples + fill);
      if (n == wanted) continue;
      bar.hide();
      if (fill > 0) report_left_over(lines, fill);
      if (index == 0) throw Failure(options.sound + ": less than one window of 3 s");
      return;
    }
    bar.hide();
    report_window(lines, index, loudness(window), threshold, score);
  }
}

Report cry(const Options& options) {
  Report report;
  report.stream = [options](const StreamedLines& lines) { detect(options, lines); };
  return report;
}

}  // namespace

void add_cry(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "cry",
      "Listens for a baby's cry: one line for every 3 seconds of sound, as soon as it is there,\n"
      "with the loudness and the probability. What is too quiet for the gate is not shown to the\n"
      "network and has 0.00001. With --json, one object a line.");
  command
      ->add_option("sound", options->sound,
                   "A sound file, or - for 16-bit mono samples at 16 kHz from standard input")
      ->required()
      ->type_name("FILE");
  command
      ->add_option("--threshold", options->threshold,
                   "The gate: how loud 3 seconds must be; 86046 is the least")
      ->type_name("LOUDNESS")
      ->check(CLI::NonNegativeNumber)
      ->capture_default_str();
  command
      ->add_option("--chunk", options->chunk,
                   "How many samples the library gets at a time; the result is the same")
      ->type_name("SAMPLES")
      ->check(CLI::Range(uint32_t{1}, uint32_t{1} << 30).description(""))
      ->capture_default_str();
  add_root(command, &options->root);
  command->callback([=] { *chosen = [options] { return cry(*options); }; });
}

}  // namespace kelnn_cli
