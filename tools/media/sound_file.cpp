// SPDX-License-Identifier: Apache-2.0
#include "sound_file.h"

#include <samplerate.h>
#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <vector>

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

class SoundFile : public Sound {
 public:
  // Bare samples on standard input, a file or a pipe.
  SoundFile()
      : path_("standard input"),
        info_{0, kSoundRate, 1, SF_FORMAT_RAW | SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE, 0, 0},
        is_bare_(true),
        file_(sf_open_fd(STDIN_FILENO, SFM_READ, &info_, SF_FALSE)) {
    check_opened();
  }
  explicit SoundFile(const std::string& path)
      : path_(path), file_(sf_open(path.c_str(), SFM_READ, &info_)) {
    check_opened();
  }

  int recorded_rate() const override { return info_.samplerate; }

  uint64_t expected_samples() const override {
    if (info_.frames <= 0 || info_.frames >= SF_COUNT_MAX / 2) return 0;
    return static_cast<uint64_t>(static_cast<double>(info_.frames) * ratio());
  }

  size_t read(int16_t* samples, size_t count) override {
    std::vector<float> sound(count);
    sound.resize(resampler_ ? resample(&sound) : read_mono(&sound));
    if (sf_error(file_.get()) != SF_ERR_NO_ERROR) throw Failure(path_, sf_strerror(file_.get()));
    std::transform(sound.begin(), sound.end(), samples, to_sample);
    if (is_bare_ && given_ == 0 && sound.size() >= 2 && begins_like_a_file(samples)) {
      throw Failure(
          path_, "a sound file, but \"-\" takes bare samples: give the file's name, or decode it");
    }
    given_ += sound.size();
    return sound.size();
  }

 private:
  double ratio() const { return static_cast<double>(kSoundRate) / info_.samplerate; }

  void check_opened() {
    if (!file_) throw Failure(path_, sf_strerror(nullptr));
    if (!src_is_valid_ratio(ratio())) {
      throw Failure(path_, "a sampling rate of " + std::to_string(info_.samplerate) + " Hz");
    }
    if (info_.samplerate == kSoundRate) return;
    int error = 0;
    resampler_.reset(src_callback_new(next_block, SRC_SINC_MEDIUM_QUALITY, 1, &error, this));
    check_resampler(error);
  }
  static void check_resampler(int error) {
    if (error) throw Failure(std::string("the resampler: ") + src_strerror(error));
  }

  // Gives how many there were.
  size_t read_mono(std::vector<float>* mono) {
    const auto channels = static_cast<size_t>(info_.channels);
    frames_.resize(mono->size() * channels);
    const auto wanted = static_cast<sf_count_t>(mono->size());
    const sf_count_t n =
        std::max<sf_count_t>(0, sf_readf_float(file_.get(), frames_.data(), wanted));
    is_end_ = n < wanted;
    for (size_t i = 0; i < static_cast<size_t>(n); ++i) {
      float sum = 0.0f;
      for (size_t c = 0; c < channels; ++c) sum += frames_[i * channels + c];
      (*mono)[i] = sum / static_cast<float>(channels);
    }
    return static_cast<size_t>(n);
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
    if (!is_end_) return made;
    // Roundings may leave a sample too few or too many; 3 seconds are to be a window.
    const auto all = static_cast<uint64_t>(std::llround(static_cast<double>(taken_) * ratio()));
    const size_t left = std::min<size_t>(sound->size(), all > given_ ? all - given_ : 0);
    for (size_t i = made; i < left; ++i) (*sound)[i] = i > 0 ? (*sound)[i - 1] : 0.0f;
    return left;
  }

  std::string path_;
  SF_INFO info_ = {};
  bool is_bare_ = false, is_end_ = false;
  std::unique_ptr<SNDFILE, Close> file_;
  std::unique_ptr<SRC_STATE, Close> resampler_;  // none: the file has our rate
  std::vector<float> frames_, block_ = std::vector<float>(4096);
  uint64_t taken_ = 0, given_ = 0;  // samples that the resampler took, and that were read
};

}  // namespace

std::unique_ptr<Sound> open_sound(const std::string& path) {
  if (path == "-") return std::make_unique<SoundFile>();
  return std::make_unique<SoundFile>(path);
}

}  // namespace kelnn_cli
