// SPDX-License-Identifier: Apache-2.0
// kelnn cry and kelnn features, from sound files to probabilities and pictures, over a network of
// make_test_networks.py that hears whether the changing sounds are high or low ones.
#include <sndfile.h>

#include "support/command_test.h"

namespace {

using namespace kelnn_test;

constexpr int kRate = 16000;
constexpr double kPi = 3.14159265358979323846;
constexpr float kTooQuiet = 1e-5f;

Samples joined(Samples first, const Samples& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

class AudioCommands : public CommandTest {
 protected:
  void save(const std::string& name, const Samples& samples, int rate = kRate, int channels = 1,
            int format = SF_FORMAT_WAV | SF_FORMAT_PCM_16) {
    SF_INFO info = {};
    info.samplerate = rate;
    info.channels = channels;
    info.format = format;
    fs::create_directories(fs::path(path(name)).parent_path());
    SNDFILE* file = sf_open(path(name).c_str(), SFM_WRITE, &info);
    EXPECT_NE(file, nullptr);
    sf_command(file, SFC_SET_SCALE_INT_FLOAT_WRITE, nullptr, SF_TRUE);
    const auto count = static_cast<sf_count_t>(samples.size());
    EXPECT_EQ(sf_write_short(file, samples.data(), count), count);
    sf_close(file);
  }
};

// ----- cry

TEST_F(AudioCommands, HighAndLowBeepsAreToldApartWindowByWindow) {
  const Samples sound = joined(joined(beeps(kHighHz, 3), beeps(kLowHz, 3)), beeps(kHighHz, 3.5));
  save("beeps.wav", sound);
  const std::vector<Json> found = lines("cry beeps.wav");
  ASSERT_EQ(found.size(), 4u);
  for (size_t i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    double loudness = 0;  // whole numbers below 2^24: exact
    for (size_t k = 0; k < 48000; k += 10) loudness += std::abs(sound[i * 48000 + k]);
    Json window = found[i];
    EXPECT_NEAR(window.at("probability"), i == 1 ? 0 : 1, 0.1);
    window.erase("probability");
    EXPECT_EQ(window, Json({{"input", "beeps.wav"},
                            {"window", i},
                            {"start", 3 * i},
                            {"end", 3 * i + 3},
                            {"loudness", loudness},
                            {"gate_passed", true}}));
  }
  EXPECT_EQ(found[3], Json({{"input", "beeps.wav"}, {"left_over", 0.5}}));

  // Bare samples from standard input are the same, half a one behind them is nothing.
  std::string text = out("cry beeps.wav");
  EXPECT_THAT(text, HasSubstr("beeps.wav: 0.500 s left over, too short for a window of 3 s\n"));
  for (size_t at; (at = text.find("beeps.wav")) != std::string::npos;) text.replace(at, 9, "-");
  EXPECT_EQ(kelnn("cry -", pcm_of(sound)).out, text);
  EXPECT_EQ(kelnn("cry -", pcm_of(sound) + "x").out, text);

  expect_refused({{"cry beeps.wav --root none", 1, "kelnn pack cry-detection"}});
  save("brief.wav", beeps(kLowHz, 1.25));
  // Ctrl-C: what was heard so far stays.
  const CommandResult ended = run(
      {"/bin/sh", "-c",
       "mkfifo pipe; env --default-signal=INT \"$0\" cry - --csv t.csv <pipe >heard & exec 3>pipe; "
       "head -c 96000 /dev/zero >&3; until [ -s heard ]; do sleep 0.1; done; kill -INT $!; "
       "head -c 96000 /dev/zero >&3; exec 3>&-; wait $!",
       KEL_NN_TEST_PROGRAM});
  EXPECT_EQ(ended.exit_code, 130);
  EXPECT_EQ(ended.err, "kelnn: -: interrupted after 3 s\n");
  EXPECT_THAT(this->text("t.csv"), HasSubstr("\n-,0,0.0,3.0,0.0,false,"));
  const CommandResult brief = kelnn("cry brief.wav");
  EXPECT_EQ(brief.exit_code, 1);
  EXPECT_THAT(brief.out, HasSubstr("1.250 s left over"));
  EXPECT_THAT(brief.err, HasSubstr("brief.wav: shorter than a window of 3 s"));
}

TEST_F(AudioCommands, FilesFromStandardInputAreRefusedInsteadOfHeardAsSamples) {
  const Samples samples = beeps(kHighHz, 3.5);
  const std::pair<const char*, int> cases[] = {{"RIFF", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
                                               {"fLaC", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
                                               {"OggS", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
                                               {"FORM", SF_FORMAT_AIFF | SF_FORMAT_PCM_16}};
  for (const auto& [mark, format] : cases) {
    SCOPED_TRACE(mark);
    save("sound", samples, kRate, 1, format);
    ASSERT_EQ(text("sound").substr(0, 4), mark);
    const CommandResult result = kelnn("cry -", text("sound"));
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_THAT(result.err, HasSubstr("standard input: a sound file"));
    EXPECT_EQ(result.out.find("cry 0."), std::string::npos);
  }
  // The same letters later on are samples, and so are three of them at the beginning.
  EXPECT_EQ(kelnn("cry -", "RIF" + pcm_of(samples)).exit_code, 0);
  EXPECT_EQ(kelnn("cry -", pcm_of(samples) + "RIFF").exit_code, 0);
}

TEST_F(AudioCommands, OtherRatesChannelsAndFormatsAreHeardAlike) {
  const struct {
    const char* name;
    int rate, channels, format;
  } cases[] = {
      {"stereo.wav", 44100, 2, SF_FORMAT_WAV | SF_FORMAT_PCM_16},
      {"fast.flac", 48000, 1, SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
      {"float.wav", 22050, 1, SF_FORMAT_WAV | SF_FORMAT_FLOAT},
      {"six.wav", 16000, 6, SF_FORMAT_WAV | SF_FORMAT_PCM_24},
      {"telephone.wav", 8000, 1, SF_FORMAT_WAV | SF_FORMAT_PCM_16},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    for (const double hz : {kLowHz, kHighHz}) {
      // All in the last channel: the others are silent.
      const Samples mono = beeps(hz, 3.24, c.rate);
      Samples frames(mono.size() * static_cast<size_t>(c.channels));
      for (size_t i = 0; i < mono.size(); ++i) {
        frames[(i + 1) * static_cast<size_t>(c.channels) - 1] = mono[i];
      }
      save(c.name, frames, c.rate, c.channels, c.format);
      const std::vector<Json> found = lines(std::string("cry ") + c.name);
      ASSERT_EQ(found.size(), 2u);
      EXPECT_EQ(found[0].at("probability") > 0.5, hz == kHighHz) << found[0];
      EXPECT_EQ(found[1].at("left_over"), 0.24);  // to the sample
      // Half of the time, the mean of a sine's size; noise above zero in the rest.
      const double expected = 4800 * (0.5 * 8000 * 2 / kPi + 0.5 * 100) / c.channels;
      EXPECT_NEAR(found[0].at("loudness"), expected, 0.05 * expected);
    }
    const std::string said = kelnn(std::string("cry ") + c.name).err;
    EXPECT_EQ(said.find("kelnn: telephone.wav: recorded at 8000 Hz, so nothing above 4000 Hz is "
                        "heard\n") != std::string::npos,
              c.rate == 8000)
        << said;
  }
}

TEST_F(AudioCommands, WhatTheGateStopsHasTheProbabilityOfSilence) {
  // 4800 samples count: 17 each are below 86046, 18 are above.
  const Samples quiet(48000, 17);
  Samples loud = quiet;
  for (size_t i = 0; i < loud.size(); i += 10) loud[i] = -18;
  save("quiet.wav", joined(quiet, loud));
  const struct {
    const char* threshold;
    bool passes[2];
  } cases[] = {{"", {false, true}},
               {" --threshold 86400", {false, true}},  // a sum that equals it passes
               {" --threshold 86401", {false, false}},
               {" --threshold 1", {false, true}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.threshold);
    const std::vector<Json> found = lines(std::string("cry quiet.wav") + c.threshold);
    ASSERT_EQ(found.size(), 2u);
    for (size_t i = 0; i < 2; ++i) {
      SCOPED_TRACE(found[i].dump());
      EXPECT_EQ(found[i].at("loudness"), (17 + i) * 4800);
      EXPECT_EQ(found[i].at("gate_passed"), c.passes[i]);
      EXPECT_EQ(found[i].at("probability").get<float>() == kTooQuiet, !c.passes[i]);
    }
  }
  EXPECT_THAT(out("cry quiet.wav"), HasSubstr("loudness 81600, too quiet for the gate\n"));
  EXPECT_THAT(out("cry quiet.wav --json --threshold 86401"), HasSubstr("\"probability\":1e-05"));
}

// ----- eval

TEST_F(AudioCommands, EvaluationCountsTheWindowsOfEverySound) {
  save("data/low.wav", joined(beeps(kLowHz, 3), beeps(kLowHz, 4)));
  save("data/high.flac", beeps(kHighHz, 6.1, 44100), 44100, 1, SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
  save("data/both.wav", joined(beeps(kHighHz, 3), beeps(kLowHz, 3)));
  save("data/quiet.wav", joined(Samples(24000, 17), beeps(kHighHz, 3, 8000)), 8000);
  save("data/brief.wav", beeps(kLowHz, 2));
  const std::string labels =
      "file,cry,kind\nlow.wav,0,speech\nhigh.flac,1,cry\nboth.wav,0,speech\nquiet.wav,1,faint\n";
  write("data/labels.csv", labels);
  const Json expected = Json::parse(R"({"task": "cry-detection", "sounds": 4, "windows": 8,
      "sounds_below_16_khz": 1, "cries": 4, "too_quiet": 1, "accuracy": 0.75, "recall": 0.75, "false_alarm_rate": 0.25,
      "kinds": [
      {"kind": "cry", "windows": 2, "cries": 2, "too_quiet": 0, "heard_as_cry": 2, "accuracy": 1.0},
      {"kind": "faint", "windows": 2, "cries": 2, "too_quiet": 1, "heard_as_cry": 1,
       "accuracy": 0.5},
      {"kind": "speech", "windows": 4, "cries": 0, "too_quiet": 0, "heard_as_cry": 1,
       "accuracy": 0.75}]})");
  const Json found = json("eval cry-detection --data data");
  for (const auto& [name, value] : expected.items()) EXPECT_EQ(found.at(name), value) << name;
  std::string call = "eval cry-detection --data data";
  for (const auto& [name, value] : expected.items()) {
    if (value.is_number()) call += " --require " + name + ">=0";
  }
  EXPECT_THAT(out(call), HasSubstr("speech        4      0          0             1    0.7500\n"));
  write("data/labels.csv", labels + "brief.wav,0,speech\n");
  expect_refused(
      {{"eval cry-detection --data data", 1, "brief.wav: shorter than a window of 3 s"}});
}

// ----- features

constexpr size_t kRows = 297, kChannels = 64;
// Centres of channels that are equally far apart on the mel scale, 65 steps up to 8 kHz.
double centre_hz(size_t channel) {
  const double top = 1127 * std::log(1 + 8000 / 700.0);
  return 700 * (std::exp(static_cast<double>(channel + 1) / 65 * top / 1127) - 1);
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
  save("chirp.wav", quiet_then_chirp());
  EXPECT_EQ(out("features chirp.wav --window 1 --csv new/chirp.csv"), "new/chirp.csv\n");
  EXPECT_EQ(out("features chirp.wav --window 1 --csv /dev/stdout"), text("new/chirp.csv"));
  std::istringstream csv(text("new/chirp.csv"));
  std::vector<std::vector<double>> rows;
  for (std::string line; std::getline(csv, line);) {
    rows.emplace_back();
    std::istringstream cells(line);
    for (std::string cell; std::getline(cells, cell, ',');) rows.back().push_back(std::stod(cell));
  }
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
  expect_refused({{"features chirp.wav --csv none.csv", 1,
                   "window 0 is too quiet to have features: its loudness is 0"},
                  {"features chirp.wav --csv none.csv --window 2", 1,
                   "window 2 ends at 9.00 s, the sound at 6.00 s"}});
  EXPECT_FALSE(fs::exists(path("none.csv")));
}

TEST_F(AudioCommands, ThePictureHasTimeToTheRightAndFrequencyUpwards) {
  save("chirp.wav", quiet_then_chirp());
  const Json said = json("features chirp.wav --window 1 --png chirp.png");
  EXPECT_EQ(said, Json({{"input", "chirp.wav"},
                        {"window", 1},
                        {"start", 3},
                        {"end", 6},
                        {"rows", kRows},
                        {"channels", kChannels},
                        {"png", "chirp.png"}}));
  const cv::Mat drawn = picture("chirp.png");
  // 4 x 8 pixels for each byte, and margins.
  const cv::Rect matrix(90, 50, 4 * kRows, 8 * kChannels);
  ASSERT_EQ(drawn.size(), cv::Size(90 + 4 * kRows + 180, 50 + 8 * kChannels + 64));
  // The colours' green rises with the byte. Its top in a column is where the tone is.
  int last_y = matrix.br().y;
  for (int x = matrix.x + 41; x < matrix.br().x; x += 160) {
    SCOPED_TRACE(x);
    int brightest_y = matrix.y;
    for (int y = matrix.y; y < matrix.br().y; ++y) {
      if (drawn.at<cv::Vec3b>(y, x)[1] > drawn.at<cv::Vec3b>(brightest_y, x)[1]) brightest_y = y;
    }
    EXPECT_LT(brightest_y, last_y);
    last_y = brightest_y;
  }
  EXPECT_EQ(drawn.at<cv::Vec3b>(5, 5), cv::Vec3b(255, 255, 255));
  EXPECT_EQ(file_count(""), 3u);  // nothing temporary stays: the sound, the picture, the models
}

}  // namespace
