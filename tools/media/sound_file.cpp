// SPDX-License-Identifier: Apache-2.0
#include "sound_file.h"

#include <samplerate.h>
#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <utility>
#include <vector>

#include "codec_modules.h"
#include "inputs.h"
#include "progress_bar.h"
#include "report.h"

namespace kelnn_cli {
namespace {

// Samples of 16 bits come out of libsndfile's floats, and back here, unchanged.
int16_t to_sample(float value) {
  const float scaled = value * 32768.0f;
  if (std::isnan(scaled)) return 0;
  return static_cast<int16_t>(std::lrint(std::clamp(scaled, -32768.0f, 32767.0f)));
}

struct Close {
  void operator()(SNDFILE* file) const { sf_close(file); }
  void operator()(SRC_STATE* resampler) const { src_delete(resampler); }
};

// What files of the common formats begin with. Taken for samples, they would be heard as noise.
bool begins_like_a_file(const int16_t* samples) {
  const char* const marks[] = {"RIFF", "RIFX", "RF64", "fLaC", "OggS", "FORM"};
  return std::any_of(std::begin(marks), std::end(marks),
                     [=](const char* mark) { return std::memcmp(samples, mark, 4) == 0; });
}

class SndfileTrack : public SoundTrack {
 public:
  // Bare samples on standard input, a file or a pipe.
  SndfileTrack()
      : info_{0, kSoundRate, 1, SF_FORMAT_RAW | SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE, 0, 0},
        file_(sf_open_fd(STDIN_FILENO, SFM_READ, &info_, SF_FALSE)) {}
  explicit SndfileTrack(const std::string& path) : file_(sf_open(path.c_str(), SFM_READ, &info_)) {}

  bool is_open() const { return file_ != nullptr; }
  int rate() const override { return info_.samplerate; }
  int channels() const override { return info_.channels; }
  int64_t frames() const override { return info_.frames < SF_COUNT_MAX / 2 ? info_.frames : 0; }
  size_t read(float* samples, size_t count) override {
    const sf_count_t n = sf_readf_float(file_.get(), samples, static_cast<sf_count_t>(count));
    return static_cast<size_t>(std::max<sf_count_t>(0, n));
  }
  std::string problem() const override {
    return sf_error(file_.get()) == SF_ERR_NO_ERROR ? "" : sf_strerror(file_.get());
  }

 private:
  SF_INFO info_ = {};
  std::unique_ptr<SNDFILE, Close> file_;
};

class SoundFile final : public Sound {
 public:
  SoundFile(const std::string& path, const InputSettings& settings,
            std::unique_ptr<SoundTrack> track, bool is_bare)
      : path_(path), settings_(settings), is_bare_(is_bare), track_(std::move(track)) {
    if (!src_is_valid_ratio(ratio())) {
      throw Failure(path_, "a sampling rate of " + std::to_string(recorded_rate()) + " Hz");
    }
    if (recorded_rate() != kSoundRate) {
      int error = 0;
      resampler_.reset(src_callback_new(next_block, SRC_SINC_MEDIUM_QUALITY, 1, &error, this));
      check_resampler(error);
    }
    std::vector<int16_t> passed(kSoundRate);
    ProgressBar progress(path, static_cast<int64_t>(settings.start), "s of sound");
    for (auto left = static_cast<size_t>(settings.start * kSoundRate); left > 0;) {
      const size_t count = read(passed.data(), std::min(left, passed.size()));
      left = count > 0 ? left - count : 0;
      progress.show(static_cast<int64_t>(given_ / kSoundRate));
    }
    if (settings.duration > 0) left_ = static_cast<size_t>(settings.duration * kSoundRate);
  }

  int recorded_rate() const override { return track_->rate(); }

  uint64_t expected_samples() const override {
    if (track_->frames() <= 0) return 0;
    return std::min<uint64_t>(
        left_, static_cast<uint64_t>(static_cast<double>(track_->frames()) * ratio()));
  }

  size_t read(int16_t* samples, size_t count) override {
    std::vector<float> sound(std::min(count, left_));
    if (sound.empty()) return 0;
    sound.resize(resampler_ ? resample(&sound) : read_mono(&sound));
    left_ -= sound.size();
    if (const std::string problem = track_->problem(); !problem.empty() && !is_told_) {
      is_told_ = true;
      settings_.object(path_, problem);
    }
    std::transform(sound.begin(), sound.end(), samples, to_sample);
    if (is_bare_ && given_ == 0 && sound.size() >= 2 && begins_like_a_file(samples)) {
      throw Failure(
          path_, "a sound file, but \"-\" takes bare samples: give the file's name, or decode it");
    }
    given_ += sound.size();
    return sound.size();
  }

 private:
  double ratio() const { return static_cast<double>(kSoundRate) / recorded_rate(); }

  static void check_resampler(int error) {
    if (error) throw Failure(std::string("the resampler: ") + src_strerror(error));
  }

  // Gives how many there were.
  size_t read_mono(std::vector<float>* mono) {
    const auto channels = static_cast<size_t>(track_->channels());
    frames_.resize(mono->size() * channels);
    const size_t n = track_->read(frames_.data(), mono->size());
    is_end_ = n < mono->size();
    for (size_t i = 0; i < n; ++i) {
      float sum = 0.0f;
      for (size_t c = 0; c < channels; ++c) sum += frames_[i * channels + c];
      (*mono)[i] = sum / static_cast<float>(channels);
    }
    return n;
  }

  // For the resampler, from which nothing is thrown.
  static long next_block(void* self, float** block) {
    auto* file = static_cast<SoundFile*>(self);
    const size_t n = file->read_mono(&file->block_);
    file->taken_ += n;
    *block = file->block_.data();
    return static_cast<long>(n);
  }

  size_t resample(std::vector<float>* sound) {
    const auto made = static_cast<size_t>(src_callback_read(
        resampler_.get(), ratio(), static_cast<long>(sound->size()), sound->data()));
    check_resampler(src_error(resampler_.get()));
    if (made > 0) last_ = (*sound)[made - 1];
    if (!is_end_) return made;
    // Roundings may leave a sample too few or too many; 3 seconds are to be a window.
    const auto all = static_cast<uint64_t>(std::llround(static_cast<double>(taken_) * ratio()));
    const size_t left = std::min<size_t>(sound->size(), all > given_ ? all - given_ : 0);
    for (size_t i = made; i < left; ++i) (*sound)[i] = last_;
    return left;
  }

  std::string path_;
  InputSettings settings_;
  bool is_bare_, is_end_ = false, is_told_ = false;
  std::unique_ptr<SoundTrack> track_;
  std::unique_ptr<SRC_STATE, Close> resampler_;  // none: the file has our rate
  std::vector<float> frames_, block_ = std::vector<float>(4096);
  float last_ = 0;                  // of what the resampler made
  size_t left_ = SIZE_MAX;          // samples to give
  uint64_t taken_ = 0, given_ = 0;  // samples that the resampler took, and that were read
};

}  // namespace

std::unique_ptr<Sound> open_sound(const std::string& path, const InputSettings& settings) {
  const bool is_bare = path == "-", is_file = !is_bare && !is_url(path);
  if (is_file) check_readable(path);
  std::string why_not;
  auto file = is_bare ? std::make_unique<SndfileTrack>() : std::make_unique<SndfileTrack>(path);
  std::unique_ptr<SoundTrack> track;
  if (file->is_open()) {
    track = std::move(file);
  } else {
    why_not = sf_strerror(nullptr);
    if (!is_bare) track = video_module().open_track(path, settings, &why_not);
  }
  if (!track) throw Failure(path, "no sound that can be read (" + why_not + ")");
  return std::make_unique<SoundFile>(is_bare ? "standard input" : path, settings, std::move(track),
                                     is_bare);
}

}  // namespace kelnn_cli
