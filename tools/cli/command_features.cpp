// kelnn features: what the cry detector's network sees of a sound.
#include <cstdio>
#include <filesystem>
#include <memory>

#include "command.h"
#include "feature_picture.h"
#include "files.h"
#include "picture.h"
#include "sound_window.h"

namespace kelnn_cli {
namespace {

struct Options {
  std::string input, png, csv;
  uint64_t window = 0;
};

std::string to_csv(const FeatureMatrix& matrix) {
  std::string text;
  char cell[32];
  for (int channel = 0; channel < matrix.channels; ++channel) {
    std::snprintf(cell, sizeof(cell), "%s%.1f", channel == 0 ? "" : ",", matrix.centre_hz(channel));
    text += cell;
  }
  for (size_t i = 0; i < matrix.bytes.size(); ++i) {
    text += i % static_cast<size_t>(matrix.channels) == 0 ? '\n' : ',';
    text += std::to_string(matrix.bytes[i]);
  }
  return text + "\n";
}

std::string title(const Options& options, double start) {
  char range[64];
  std::snprintf(range, sizeof(range), ", window %llu (%.0f - %.0f s)",
                static_cast<unsigned long long>(options.window), start, start + kWindowSeconds);
  const std::string name =
      options.input == "-" ? "standard input" : std::filesystem::path(options.input).filename();
  return "Filter-bank features of " + name + range;
}

Report features(const Options& options) {
  const FeatureMatrix matrix =
      window_features(open_sound(options.input).get(), options.input, options.window);
  const double start = static_cast<double>(options.window) * kWindowSeconds;
  Report report;
  report.json = {{"input", options.input}, {"window", options.window},
                 {"start", start},         {"end", start + kWindowSeconds},
                 {"rows", matrix.rows},    {"channels", matrix.channels}};
  const auto save = [&report](const char* kind, const std::string& path, const Bytes& bytes) {
    write_file(path, bytes);
    report.text += path + "\n";
    report.json[kind] = path;
  };
  if (!options.png.empty()) {
    save("png", options.png, png_of(draw_features(matrix, title(options, start), start)));
  }
  if (!options.csv.empty()) {
    const std::string csv = to_csv(matrix);
    save("csv", options.csv, Bytes(csv.begin(), csv.end()));
  }
  return report;
}

}  // namespace

void add_features(CLI::App& app, Command* chosen) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "features",
      "Shows what the cry detector's network sees of sound.\n"
      "Of 3 seconds: 297 rows, one for every 10 ms, of 64 bytes, the energy in 64 mel channels.\n"
      "128 is a channel's mean over the window. Needs no model.");
  command->add_option("input", options->input, kSoundHelp)->required()->type_name("FILE");
  command->add_option("--window", options->window, "Which 3 seconds: 0 is the first")
      ->type_name("N")
      ->check(CLI::Range(uint64_t{0}, uint64_t{1} << 32).description(""))
      ->capture_default_str();
  CLI::Option_group* results = command->add_option_group("Results", "At least one");
  results->add_option("--png", options->png, "Where to write the picture")->type_name("FILE");
  results->add_option("--csv", options->csv, "Where to write the numbers; the first line has Hz")
      ->type_name("FILE");
  results->require_option(1, 2);
  command->callback([=] { *chosen = [options] { return features(*options); }; });
}

}  // namespace kelnn_cli
