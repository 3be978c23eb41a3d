// kelnn cry and kelnn features, from sound files to probabilities and pictures, over a network of
// make_test_networks.py that hears whether the changing sounds are high or low ones.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <random>
#include <sstream>

#include "support/run_command.h"
#include "support/test_models.h"

namespace {

namespace fs = std::filesystem;
using kelnn_test::CommandResult;
using kelnn_test::text_of;
using ::testing::HasSubstr;
using Json = nlohmann::json;
using Samples = std::vector<int16_t>;

constexpr int kRate = 16000;
constexpr double kPi = 3.14159265358979323846, kLowHz = 500, kHighHz = 5900;
constexpr float kTooQuiet = 1e-5f;

// Half a second on, half a second off, above a little noise: features tell what changes, and a tone
// that never stops is not seen.
Samples beeps(double hz, double seconds, int rate = kRate) {
  std::mt19937 random(5);
  Samples samples(static_cast<size_t>(std::lround(seconds * rate)));
  for (size_t i = 0; i < samples.size(); ++i) {
    const double t = static_cast<double>(i) / rate;
    const double tone = std::fmod(t, 1.0) < 0.5 ? 8000 * std::sin(2 * kPi * hz * t) : 0;
    samples[i] = static_cast<int16_t>(tone + static_cast<double>(random() % 200));
  }
  return samples;
}

Samples joined(Samples first, const Samples& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

std::string bytes_of(const Samples& samples) {
  std::string bytes;
  for (const int16_t sample : samples) {
    bytes += static_cast<char>(sample & 0xff);
    bytes += static_cast<char>(sample >> 8);
  }
  return bytes;
}

class AudioCommands : public ::testing::Test {
 protected:
  AudioCommands() {
    std::string path = fs::temp_directory_path().string() + "/kelnn_audio_XXXXXX";
    if (!mkdtemp(&path[0])) std::abort();
    directory = path + "/";
    root = directory + "models/";
    kelnn_test::pack_model("cry-detection", "high_or_low", root);
  }
  ~AudioCommands() override { fs::remove_all(directory); }

  std::string save(const std::string& name, const Samples& samples, int rate = kRate,
                   int channels = 1, int format = SF_FORMAT_WAV | SF_FORMAT_PCM_16) {
    SF_INFO info = {};
    info.samplerate = rate;
    info.channels = channels;
    info.format = format;
    SNDFILE* file = sf_open((directory + name).c_str(), SFM_WRITE, &info);
    EXPECT_NE(file, nullptr);
    sf_command(file, SFC_SET_SCALE_INT_FLOAT_WRITE, nullptr, SF_TRUE);
    const auto count = static_cast<sf_count_t>(samples.size());
    EXPECT_EQ(sf_write_short(file, samples.data(), count), count);
    sf_close(file);
    return directory + name;
  }
  CommandResult cry(const std::string& sound, std::vector<std::string> more = {},
                    const std::string& input = "") {
    more.insert(more.begin(), {"cry", sound, "--root", root});
    return kelnn_test::run_kelnn(more, input);
  }
  std::vector<Json> cry_json(const std::string& sound, std::vector<std::string> more = {}) {
    more.push_back("--json");
    const CommandResult result = cry(sound, more);
    EXPECT_EQ(result.exit_code, 0) << result.err;
    std::vector<Json> lines;
    std::istringstream stream(result.out);
    for (std::string line; std::getline(stream, line);) lines.push_back(Json::parse(line));
    return lines;
  }
  double probability(const std::string& sound) {
    const std::vector<Json> lines = cry_json(sound);
    return lines.empty() ? -1 : lines[0].at("probability").get<double>();
  }

  std::string directory, root;
};

// ----- cry

TEST_F(AudioCommands, HighAndLowBeepsAreToldApartWindowByWindow) {
  Samples sound = joined(joined(beeps(kHighHz, 3), beeps(kLowHz, 3)), beeps(kHighHz, 3.5));
  const std::vector<Json> lines = cry_json(save("beeps.wav", sound));
  ASSERT_EQ(lines.size(), 4u);
  for (size_t i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    double loudness = 0;  // whole numbers below 2^24: exact
    for (size_t k = 0; k < 48000; k += 10) loudness += std::abs(sound[i * 48000 + k]);
    EXPECT_EQ(lines[i].at("window"), i);
    EXPECT_EQ(lines[i].at("start"), 3 * i);
    EXPECT_EQ(lines[i].at("end"), 3 * i + 3);
    EXPECT_EQ(lines[i].at("loudness"), loudness);
    EXPECT_EQ(lines[i].at("gate_passed"), true);
    if (i == 1) {
      EXPECT_LT(lines[i].at("probability"), 0.1);
    } else {
      EXPECT_GT(lines[i].at("probability"), 0.9);
    }
  }
  EXPECT_EQ(lines[3].at("left_over"), 0.5);
  EXPECT_THAT(cry(directory + "beeps.wav").out,
              HasSubstr(": 0.500 s left over, too short for a window of 3 s\n"));
}

TEST_F(AudioCommands, BareSamplesFromStandardInputAreTheFile) {
  const Samples samples = joined(beeps(kLowHz, 2), beeps(kHighHz, 2));
  const std::string from_file = cry(save("beeps.wav", samples)).out;
  const CommandResult piped = cry("-", {}, bytes_of(samples));
  EXPECT_EQ(piped.exit_code, 0) << piped.err;
  // But for the name.
  EXPECT_EQ(piped.out.substr(piped.out.find(" 0 - 3 s")).substr(0, 40),
            from_file.substr(from_file.find(" 0 - 3 s")).substr(0, 40));
  const CommandResult odd = cry("-", {}, bytes_of(samples) + "x");
  EXPECT_EQ(odd.out, piped.out);
}

TEST_F(AudioCommands, FilesFromStandardInputAreRefusedInsteadOfHeardAsSamples) {
  const Samples samples = beeps(kHighHz, 3.5);
  struct Case {
    const char* name;
    int format;
  };
  const Case cases[] = {{"RIFF", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
                        {"fLaC", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
                        {"OggS", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
                        {"FORM", SF_FORMAT_AIFF | SF_FORMAT_PCM_16}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string file = text_of(save("sound", samples, kRate, 1, c.format));
    ASSERT_EQ(file.substr(0, 4), c.name);
    const CommandResult result = cry("-", {}, file);
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_THAT(result.err, HasSubstr("standard input: a sound file"));
    EXPECT_EQ(result.out.find("cry 0."), std::string::npos);
  }
  // The same letters later on are samples, and so are three of them at the beginning.
  EXPECT_EQ(cry("-", {}, "RIF" + bytes_of(samples)).exit_code, 0);
  EXPECT_EQ(cry("-", {}, bytes_of(samples) + "RIFF").exit_code, 0);
}

TEST_F(AudioCommands, OtherRatesChannelsAndFormatsAreHeardAlike) {
  struct Case {
    const char* name;
    int rate, channels, format;
  };
  const Case cases[] = {
      {"stereo.wav", 44100, 2, SF_FORMAT_WAV | SF_FORMAT_PCM_16},
      {"fast.flac", 48000, 1, SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
      {"float.wav", 22050, 1, SF_FORMAT_WAV | SF_FORMAT_FLOAT},
      {"six.wav", 16000, 6, SF_FORMAT_WAV | SF_FORMAT_PCM_24},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    for (const double hz : {kLowHz, kHighHz}) {
      // All in the last channel: the others are silent.
      const Samples mono = beeps(hz, 3.24, c.rate);
      Samples frames(mono.size() * static_cast<size_t>(c.channels));
      for (size_t i = 0; i < mono.size(); ++i) {
        frames[(i + 1) * static_cast<size_t>(c.channels) - 1] = mono[i];
      }
      const std::vector<Json> lines = cry_json(save(c.name, frames, c.rate, c.channels, c.format));
      ASSERT_EQ(lines.size(), 2u);
      EXPECT_EQ(lines[0].at("probability") > 0.5, hz == kHighHz) << lines[0];
      EXPECT_EQ(lines[1].at("left_over"), 0.24);  // to the sample
      // Half of the time, the mean of a sine's size; noise above zero in the rest.
      const double expected = 4800 * (0.5 * 8000 * 2 / kPi + 0.5 * 100) / c.channels;
      EXPECT_NEAR(lines[0].at("loudness"), expected, 0.05 * expected);
    }
  }
}

TEST_F(AudioCommands, WhatTheGateStopsHasTheProbabilityOfSilence) {
  // 4800 samples count: 17 each are below 86046, 18 are above.
  const Samples quiet(48000, 17);
  Samples loud = quiet;
  for (size_t i = 0; i < loud.size(); i += 10) loud[i] = -18;
  const std::string sound = save("quiet.wav", joined(quiet, loud));
  std::vector<Json> lines = cry_json(sound);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].at("gate_passed"), false);
  EXPECT_EQ(lines[0].at("loudness"), 17 * 4800);
  EXPECT_EQ(lines[0].at("probability").get<float>(), kTooQuiet);
  EXPECT_EQ(lines[1].at("gate_passed"), true);
  EXPECT_GT(lines[1].at("probability").get<float>(), 0.01f);
  EXPECT_THAT(cry(sound).out, HasSubstr("too quiet for the gate\n"));

  // A sum that equals the threshold passes.
  EXPECT_EQ(cry_json(sound, {"--threshold", "86400"})[1].at("gate_passed"), true);
  lines = cry_json(sound, {"--threshold", "86401"});
  EXPECT_EQ(lines[1].at("gate_passed"), false);
  EXPECT_EQ(lines[1].at("probability").get<float>(), kTooQuiet);
  EXPECT_EQ(cry_json(sound, {"--threshold", "1"})[0].at("gate_passed"), false);
}

TEST_F(AudioCommands, WhatCannotBeHeardIsAFailure) {
  const CommandResult brief = cry(save("brief.wav", beeps(kLowHz, 1.25)));
  EXPECT_EQ(brief.exit_code, 1);
  EXPECT_THAT(brief.out, HasSubstr("1.250 s left over"));
  EXPECT_THAT(brief.err, HasSubstr("brief.wav: shorter than a window of 3 s"));
  EXPECT_EQ(cry("-").exit_code, 1);

  std::ofstream(directory + "text.wav") << "RIFF, but not for long";
  const CommandResult broken = cry(directory + "text.wav");
  EXPECT_EQ(broken.exit_code, 1);
  EXPECT_EQ(broken.out, "");
  EXPECT_THAT(broken.err, HasSubstr("kelnn: " + directory + "text.wav: "));
  EXPECT_EQ(cry(directory + "nowhere.wav").exit_code, 1);
  EXPECT_EQ(cry(directory).exit_code, 1);

  const std::string sound = save("fine.wav", beeps(kLowHz, 3));
  const CommandResult no_model = kelnn_test::run_kelnn({"cry", sound, "--root", directory});
  EXPECT_EQ(no_model.exit_code, 1);
  EXPECT_THAT(no_model.err, HasSubstr("kelnn pack cry-detection"));
  EXPECT_EQ(cry(sound, {"--threshold", "-1"}).exit_code, 2);
}

// ----- eval

TEST_F(AudioCommands, EvaluationCountsTheWindowsOfEverySound) {
  const Samples quiet(48000, 17);
  save("low.wav", joined(beeps(kLowHz, 3), beeps(kLowHz, 4)));
  save("high.flac", beeps(kHighHz, 6.1, 44100), 44100, 1, SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
  save("both.wav", joined(beeps(kHighHz, 3), beeps(kLowHz, 3)));
  save("quiet.wav", joined(quiet, beeps(kHighHz, 3)));
  const auto label = [&](const std::string& rows) {
    std::ofstream(directory + "labels.csv") << "file,cry,kind\n" << rows;
  };
  const auto eval = [&](std::vector<std::string> more) {
    more.insert(more.begin(), {"eval", "cry-detection", "--root", root, "--data", directory});
    return kelnn_test::run_kelnn(more);
  };
  label("low.wav,0,speech\nhigh.flac,1,cry\nboth.wav,0,speech\nquiet.wav,1,faint\n");
  const CommandResult result = eval({"--json"});
  ASSERT_EQ(result.exit_code, 0) << result.err;
  const Json json = Json::parse(result.out);
  EXPECT_EQ(json.at("sounds"), 4);
  EXPECT_EQ(json.at("windows"), 8);
  EXPECT_EQ(json.at("cries"), 4);
  EXPECT_EQ(json.at("too_quiet"), 1);
  EXPECT_EQ(json.at("accuracy"), 6 / 8.);
  EXPECT_EQ(json.at("recall"), 3 / 4.);
  EXPECT_EQ(json.at("false_alarm_rate"), 1 / 4.);
  EXPECT_EQ(json.at("kinds"), Json::parse(R"([
      {"kind": "cry", "windows": 2, "cries": 2, "too_quiet": 0, "heard_as_cry": 2, "accuracy": 1.0},
      {"kind": "faint", "windows": 2, "cries": 2, "too_quiet": 1, "heard_as_cry": 1,
       "accuracy": 0.5},
      {"kind": "speech", "windows": 4, "cries": 0, "too_quiet": 0, "heard_as_cry": 1,
       "accuracy": 0.75}])"));
  EXPECT_THAT(eval({}).out,
              HasSubstr("speech        4      0          0               1    0.7500\n"));

  save("brief.wav", beeps(kLowHz, 2));
  label("low.wav,0,speech\nbrief.wav,0,speech\n");
  const CommandResult brief = eval({});
  EXPECT_EQ(brief.exit_code, 1);
  EXPECT_EQ(brief.out, "");
  EXPECT_THAT(brief.err, HasSubstr("brief.wav: shorter than a window of 3 s"));
}

// ----- features

constexpr size_t kRows = 297, kChannels = 64;
// Centres of channels that are equally far apart on the mel scale, 65 steps up to 8 kHz.
double centre_hz(size_t channel) {
  const double top = 1127 * std::log(1 + 8000 / 700.0);
  return 700 * (std::exp(static_cast<double>(channel + 1) / 65 * top / 1127) - 1);
}

std::vector<std::vector<double>> csv_of(const std::string& path) {
  std::vector<std::vector<double>> rows;
  std::istringstream text(text_of(path));
  for (std::string line; std::getline(text, line);) {
    rows.emplace_back();
    std::istringstream cells(line);
    for (std::string cell; std::getline(cells, cell, ',');) rows.back().push_back(std::stod(cell));
  }
  return rows;
}

// From 300 Hz at the start to 6300 Hz after 3 seconds; quiet for 3 seconds before.
double chirp_hz(double t) { return 300 + 2000 * t; }
Samples quiet_then_chirp() {
  Samples samples(96000);
  std::mt19937 random(5);
  for (size_t i = 48000; i < samples.size(); ++i) {
    const double t = static_cast<double>(i - 48000) / kRate;
    samples[i] = static_cast<int16_t>(8000 * std::sin(2 * kPi * (300 * t + 1000 * t * t)) +
                                      static_cast<double>(random() % 200));
  }
  return samples;
}

TEST_F(AudioCommands, FeaturesOfARisingToneRise) {
  const std::string sound = save("chirp.wav", quiet_then_chirp());
  const std::string csv = directory + "new/chirp.csv";
  const CommandResult result =
      kelnn_test::run_kelnn({"features", sound, "--window", "1", "--csv", csv});
  ASSERT_EQ(result.exit_code, 0) << result.err;
  EXPECT_EQ(result.out, csv + "\n");
  const std::vector<std::vector<double>> rows = csv_of(csv);
  ASSERT_EQ(rows.size(), 1 + kRows);
  for (const std::vector<double>& row : rows) ASSERT_EQ(row.size(), kChannels);
  for (size_t c = 0; c < kChannels; ++c) EXPECT_NEAR(rows[0][c], centre_hz(c), 0.06);
  std::ptrdiff_t highest = 0;
  for (size_t r = 0; r < kRows; ++r) {
    SCOPED_TRACE(r);
    const std::vector<double>& row = rows[1 + r];
    const std::ptrdiff_t loudest = std::max_element(row.begin(), row.end()) - row.begin();
    EXPECT_GE(loudest, highest);
    highest = loudest;
    // At the frame's middle, to the width of a channel.
    const double hz = chirp_hz((static_cast<double>(r) * 160 + 256) / kRate);
    const auto c = static_cast<size_t>(loudest);
    EXPECT_GE(hz, c == 0 ? 0 : centre_hz(c - 1));
    EXPECT_LE(hz, centre_hz(c + 1));
  }
}

TEST_F(AudioCommands, ThePictureHasTimeToTheRightAndFrequencyUpwards) {
  const std::string sound = save("chirp.wav", quiet_then_chirp());
  const std::string png = directory + "chirp.png";
  const CommandResult result =
      kelnn_test::run_kelnn({"features", sound, "--window", "1", "--png", png, "--json"});
  ASSERT_EQ(result.exit_code, 0) << result.err;
  const Json json = Json::parse(result.out);
  EXPECT_EQ(json.at("png"), png);
  EXPECT_EQ(json.at("start"), 3);
  const cv::Mat picture = cv::imread(png);
  // 4 x 8 pixels for each byte, and margins.
  const cv::Rect matrix(90, 50, 4 * kRows, 8 * kChannels);
  ASSERT_EQ(picture.size(), cv::Size(90 + 4 * kRows + 180, 50 + 8 * kChannels + 64));
  // The colours' green rises with the byte. Its top in a column is where the tone is.
  int last_y = matrix.br().y;
  for (size_t r = 10; r < kRows; r += 40) {
    SCOPED_TRACE(r);
    const int x = matrix.x + 4 * static_cast<int>(r) + 1;
    int brightest_y = matrix.y;
    for (int y = matrix.y; y < matrix.br().y; ++y) {
      if (picture.at<cv::Vec3b>(y, x)[1] > picture.at<cv::Vec3b>(brightest_y, x)[1])
        brightest_y = y;
    }
    EXPECT_LT(brightest_y, last_y);
    last_y = brightest_y;
  }
  EXPECT_EQ(picture.at<cv::Vec3b>(5, 5), cv::Vec3b(255, 255, 255));
  size_t files = 0;  // nothing temporary stays: the sound, the picture, the models
  for (const auto& entry : fs::directory_iterator(directory)) files += entry.exists();
  EXPECT_EQ(files, 3u);
}

TEST_F(AudioCommands, WindowsWithoutFeaturesAreFailures) {
  const std::string sound = save("chirp.wav", quiet_then_chirp());
  const std::string csv = directory + "none.csv";
  struct Case {
    const char *window, *words;
  };
  for (const Case& c : {Case{"0", "window 0 is too quiet to have features: its loudness is 0"},
                        Case{"2", "window 2 ends at 9.00 s, the sound at 6.00 s"}}) {
    const CommandResult result =
        kelnn_test::run_kelnn({"features", sound, "--window", c.window, "--csv", csv});
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_THAT(result.err, HasSubstr(c.words));
    EXPECT_FALSE(fs::exists(csv));
  }
  EXPECT_EQ(kelnn_test::run_kelnn({"features", sound}).exit_code, 2);
  EXPECT_EQ(kelnn_test::run_kelnn({"features", sound, "--csv", csv, "--window", "-1"}).exit_code,
            2);
}

}  // namespace
