// SPDX-License-Identifier: Apache-2.0
#include "sound_file.h"

#include <samplerate.h>
#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
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

// From one sampling rate to 16 kHz.
class Resampler {
 public:
  explicit Resampler(int rate) : ratio_(static_cast<double>(kSoundRate) / rate) {
    if (rate == kSoundRate) return;
    int error = 0;
    state_ = src_new(SRC_SINC_MEDIUM_QUALITY, 1, &error);
    if (!state_) throw Failure(std::string("the resampler: ") + src_strerror(error));
  }
  ~Resampler() {
    if (state_) src_delete(state_);
  }
  Resampler(const Resampler&) = delete;
  Resampler& operator=(const Resampler&) = delete;

  // Sets `out` to what `in` makes. Called with `is_end` once, it holds nothing back.
  void process(const std::vector<float>& in, bool is_end, std::vector<float>* out) {
    if (!state_) {
      *out = in;
      return;
    }
    out->clear();
    run(in, is_end, out);
    taken_ += in.size();
    if (is_end) end_exactly(out);
    given_ += out->size();
  }

 private:
  void run(const std::vector<float>& in, bool is_end, std::vector<float>* out) {
    SRC_DATA data = {};
    data.data_in = in.data();
    data.input_frames = static_cast<long>(in.size());
    data.end_of_input = is_end;
    data.src_ratio = ratio_;
    float block[4096];
    do {
      data.data_out = block;
      data.output_frames = static_cast<long>(std::size(block));
      const int error = src_process(state_, &data);
      if (error != 0) throw Failure(std::string("the resampler: ") + src_strerror(error));
      out->insert(out->end(), block, block + data.output_frames_gen);
      data.data_in += data.input_frames_used;
      data.input_frames -= data.input_frames_used;
    } while (data.input_frames > 0 || data.output_frames_gen > 0);
  }

  // The resampler's roundings may leave a sample too few or too many; 3 seconds are to be a window.
  void end_exactly(std::vector<float>* out) const {
    const auto all = static_cast<uint64_t>(std::llround(static_cast<double>(taken_) * ratio_));
    out->resize(all > given_ ? all - given_ : 0, out->empty() ? 0.0f : out->back());
  }

  double ratio_;
  uint64_t taken_ = 0, given_ = 0;  // samples
  SRC_STATE* state_ = nullptr;
};

struct Close {
  void operator()(SNDFILE* file) const { sf_close(file); }
};

// What files of the common formats begin with. Taken for samples, they would be heard as noise.
bool begins_like_a_file(const std::vector<float>& samples) {
  if (samples.size() < 2) return false;
  const auto first = static_cast<uint16_t>(to_sample(samples[0]));
  const auto second = static_cast<uint16_t>(to_sample(samples[1]));
  const std::string bytes = {static_cast<char>(first), static_cast<char>(first >> 8),
                             static_cast<char>(second), static_cast<char>(second >> 8)};
  const char* const marks[] = {"RIFF", "RIFX", "RF64", "fLaC", "OggS", "FORM"};
  return std::find(std::begin(marks), std::end(marks), bytes) != std::end(marks);
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

  uint64_t expected_samples() const override {
    if (info_.frames <= 0 || info_.frames >= SF_COUNT_MAX / 2) return 0;
    return static_cast<uint64_t>(static_cast<double>(info_.frames) * kSoundRate / info_.samplerate);
  }

  size_t read(int16_t* samples, size_t count) override {
    size_t done = 0;
    while (done < count) {
      if (next_ == ready_.size() && !refill()) break;
      const size_t n = std::min(count - done, ready_.size() - next_);
      std::transform(ready_.begin() + static_cast<std::ptrdiff_t>(next_),
                     ready_.begin() + static_cast<std::ptrdiff_t>(next_ + n), samples + done,
                     to_sample);
      next_ += n;
      done += n;
    }
    return done;
  }

 private:
  // Always in blocks of the same size, so that the resampler's roundings are always the same. A window
  // that comes through a pipe is a whole number of them, so that it is heard as soon as it is over.
  sf_count_t block() const { return is_bare_ ? 4000 : 4096; }

  void check_opened() {
    if (!file_) throw Failure(path_, sf_strerror(nullptr));
    if (!src_is_valid_ratio(static_cast<double>(kSoundRate) / info_.samplerate)) {
      throw Failure(path_, "a sampling rate of " + std::to_string(info_.samplerate) + " Hz");
    }
    resampler_ = std::make_unique<Resampler>(info_.samplerate);
  }

  bool refill() {
    ready_.clear();
    next_ = 0;
    while (ready_.empty() && !is_end_) {
      const std::vector<float> mono = read_mono();
      if (is_bare_ && is_start_ && begins_like_a_file(mono)) {
        throw Failure(
            path_,
            "a sound file, but \"-\" takes bare samples: give the file's name, or decode it");
      }
      is_start_ = false;
      resampler_->process(mono, is_end_, &ready_);
    }
    return !ready_.empty();
  }

  std::vector<float> read_mono() {  // and whether that was the end
    const auto channels = static_cast<size_t>(info_.channels);
    std::vector<float> frames(static_cast<size_t>(block()) * channels);
    const sf_count_t n = sf_readf_float(file_.get(), frames.data(), block());
    if (sf_error(file_.get()) != SF_ERR_NO_ERROR) {
      throw Failure(path_, sf_strerror(file_.get()));
    }
    is_end_ = n < block();
    std::vector<float> mono(static_cast<size_t>(std::max<sf_count_t>(n, 0)));
    for (size_t i = 0; i < mono.size(); ++i) {
      float sum = 0.0f;
      for (size_t c = 0; c < channels; ++c) sum += frames[i * channels + c];
      mono[i] = sum / static_cast<float>(channels);
    }
    return mono;
  }

  std::string path_;
  SF_INFO info_ = {};
  bool is_bare_ = false;
  std::unique_ptr<SNDFILE, Close> file_;
  std::unique_ptr<Resampler> resampler_;
  std::vector<float> ready_;  // of which the first `next_` are gone
  size_t next_ = 0;
  bool is_start_ = true, is_end_ = false;
};

}  // namespace

std::unique_ptr<Sound> open_sound(const std::string& path) {
  if (path == "-") return std::make_unique<SoundFile>();
  return std::make_unique<SoundFile>(path);
}

}  // namespace kelnn_cli
