// SPDX-License-Identifier: Apache-2.0
// kelnn cry and features: how likely a baby cries in a sound, and what the network sees of it.
#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "drawing.h"
#include "files.h"
#include "frame_sink.h"
#include "picture.h"
#include "progress_bar.h"
#include "report.h"
#include "sound_window.h"

namespace kelnn_cli {
namespace {

namespace fs = std::filesystem;

std::vector<int16_t> read_window(const FeaturesOptions& options, const std::string& input,
                                 Reporter* reporter) {
  const std::unique_ptr<Sound> sound = open_sound(input, told(options.input, reporter));
  std::vector<int16_t> window;
  const auto seconds = [](uint64_t samples) { return static_cast<double>(samples) / kSoundRate; };
  ProgressBar progress(input, static_cast<int64_t>(options.window + 1), "windows");
  for (uint64_t i = 0; i <= options.window; ++i) {
    progress.show(static_cast<int64_t>(i));
    window = next_window(sound.get());
    if (window.size() < kWindowSamples) {
      throw Failure(input,
                    fmt::format("window {} ends at {:.2f} s, the sound at {:.2f} s", options.window,
                                seconds((options.window + 1) * kWindowSamples),
                                seconds(i * kWindowSamples + window.size())));
    }
  }
  return window;
}

std::string to_csv(const kel_nn::SoundFeatures& matrix) {
  std::string text;
  for (int channel = 0; channel < matrix.channels(); ++channel) {
    text += fmt::format("{}{:.1f}", channel == 0 ? "" : ",", matrix.centre_hz(channel));
  }
  for (int i = 0; i < matrix.rows() * matrix.channels(); ++i) {
    text += fmt::format("{}{}", i % matrix.channels() == 0 ? '\n' : ',', matrix.bytes()[i]);
  }
  return text + "\n";
}

std::string files_text(const Json& written) {
  std::string text;
  for (const char* kind : {"png", "csv"}) {
    if (written.contains(kind)) text += written[kind].get<std::string>() + "\n";
  }
  return text;
}

void hear(const CryOptions& options, const std::string& input, kel_nn::CryDetector* detector,
          Reporter* reporter) {
  const std::unique_ptr<Sound> sound = open_sound(input, told(options.input, reporter));
  if (sound->recorded_rate() < kSoundRate) {
    reporter->complain(filled(
        "{input}: recorded at {rate} Hz, so nothing above {top} Hz is heard",
        {{"input", input}, {"rate", sound->recorded_rate()}, {"top", sound->recorded_rate() / 2}}));
  }
  catch_interruption();
  ProgressBar progress(input, static_cast<int64_t>(sound->expected_samples() / kSoundRate),
                       "s of sound");
  std::vector<int16_t> samples = next_window(sound.get());
  uint64_t index = 0;
  for (; samples.size() == kWindowSamples && !interruption();
       samples = next_window(sound.get()), ++index) {
    const float probability = cry_probability(samples, detector);
    const bool is_loud = is_loud_enough(samples, options.threshold);
    const double start = options.input.start + static_cast<double>(index * kWindowSeconds);
    reporter->report_one(
        {{"input", input},
         {"window", index},
         {"start", start},
         {"end", start + kWindowSeconds},
         {"loudness", loudness(samples)},
         {"gate_passed", is_loud},
         {"probability", probability}},
        line(std::string("{input} {start} - {end} s: cry {probability:.5f}, loudness "
                         "{loudness:.0f}") +
             (is_loud ? "\n" : ", too quiet for the gate\n")));
    progress.show(static_cast<int64_t>((index + 1) * kWindowSeconds));
  }
  if (interruption()) {
    return reporter->complain(fmt::format("{}: interrupted after {} s", input,
                                          options.input.start + 1.0 * index * kWindowSeconds));
  }
  if (!samples.empty()) {
    const double seconds = static_cast<double>(samples.size()) / kSoundRate;
    reporter->report_one(
        {{"input", input}, {"left_over", seconds}},
        line("{input}: {left_over:.3f} s left over, too short for a window of 3 s\n"));
  }
  if (index == 0) throw Failure(input, "shorter than a window of 3 s");
}

void show_features(const FeaturesOptions& options, const std::string& input, Reporter* reporter) {
  const std::vector<int16_t> window = read_window(options, input, reporter);
  kel_nn::SoundFeatures matrix;
  if (!matrix.of(window.data())) {
    throw Failure(input, fmt::format("window {} is too quiet to have features: its loudness "
                                     "is {:.0f}, the gate is at {:.0f}",
                                     options.window, loudness(window), kLowestGate));
  }
  const uint64_t start = options.window * kWindowSeconds, end = start + kWindowSeconds;
  Json written = {{"input", input}, {"window", options.window}, {"start", start},
                  {"end", end},     {"rows", matrix.rows()},    {"channels", matrix.channels()}};
  if (!options.png.empty()) {
    const std::string title =
        fmt::format("Filter-bank features of {}, window {} ({} - {} s)",
                    input == "-" ? "standard input" : fs::path(input).filename().string(),
                    options.window, start, end);
    const cv::Mat picture = draw_features(matrix, title, static_cast<double>(start));
    write_file(options.png, encode_picture(".png", picture));
    written["png"] = options.png;
  }
  if (!options.csv.empty()) {
    const std::string csv = to_csv(matrix);
    write_file(options.csv, Bytes(csv.begin(), csv.end()));
    written["csv"] = options.csv;
  }
  // There it would stand behind the numbers.
  if (!is_standard_output(options.csv)) reporter->report_one(written, files_text);
}

}  // namespace

bool cry(const CryOptions& options, Reporter* reporter) {
  const Inputs inputs = listed(options.sounds, InputKind::kSounds, true);
  reporter->begin(
      {"input,window,start,end,loudness,gate_passed,probability,left_over", inputs, {}});
  kel_nn::CryDetector detector(kel_nn::Library(options.root), options.threshold);
  return for_each_input(inputs, reporter, [&](const std::string& input) {
    hear(options, input, &detector, reporter);
  });
}

bool features(const FeaturesOptions& options, Reporter* reporter) {
  const Inputs inputs = listed(options.sounds, InputKind::kSounds, true);
  const auto png_name = [](const std::string& place) { return place + ".png"; };
  const auto csv_name = [](const std::string& place) { return place + ".csv"; };
  OutputNames pngs("--png", options.png, inputs, {png_name});
  OutputNames csvs("--csv", options.csv, inputs, {csv_name});
  return for_each_input(inputs, reporter, [&](const std::string& input) {
    FeaturesOptions own = options;
    if (pngs.are_wanted()) own.png = pngs.claim(input, png_name);
    if (csvs.are_wanted()) own.csv = csvs.claim(input, csv_name);
    show_features(own, input, reporter);
  });
}

}  // namespace kelnn_cli
