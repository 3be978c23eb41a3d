#include "sound_file.h"

#include <samplerate.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
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

class SoundFile : public Sound {
 public:
  explicit SoundFile(const std::string& path)
      : path_(path), file_(sf_open(path.c_str(), SFM_READ, &info_)) {
    if (!file_) throw Failure(path, sf_strerror(nullptr));
    if (!src_is_valid_ratio(static_cast<double>(kSoundRate) / info_.samplerate)) {
      throw Failure(path, "a sampling rate of " + std::to_string(info_.samplerate) + " Hz");
    }
    resampler_ = std::make_unique<Resampler>(info_.samplerate);
  }

  uint64_t expected_samples() const override {
    if (info_.frames <= 0 || info_.frames == SF_COUNT_MAX) return 0;
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
  // Always in blocks of the same size, so that the resampler's roundings are always the same.
  static constexpr sf_count_t kBlock = 4096;

  bool refill() {
    ready_.clear();
    next_ = 0;
    while (ready_.empty() && !is_end_) {
      const std::vector<float> mono = read_mono();
      resampler_->process(mono, is_end_, &ready_);
    }
    return !ready_.empty();
  }

  std::vector<float> read_mono() {  // and whether that was the end
    const auto channels = static_cast<size_t>(info_.channels);
    std::vector<float> frames(static_cast<size_t>(kBlock) * channels);
    const sf_count_t n = sf_readf_float(file_.get(), frames.data(), kBlock);
    if (sf_error(file_.get()) != SF_ERR_NO_ERROR) {
      throw Failure(path_, sf_strerror(file_.get()));
    }
    is_end_ = n < kBlock;
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
  std::unique_ptr<SNDFILE, Close> file_;
  std::unique_ptr<Resampler> resampler_;
  std::vector<float> ready_;  // of which the first `next_` are gone
  size_t next_ = 0;
  bool is_end_ = false;
};

// What files of the common formats begin with. Taken for samples, they would be heard as noise.
bool begins_like_a_file(const uint8_t* bytes) {
  const char* const marks[] = {"RIFF", "RIFX", "RF64", "fLaC", "OggS", "FORM"};
  return std::any_of(std::begin(marks), std::end(marks),
                     [bytes](const char* mark) { return std::memcmp(bytes, mark, 4) == 0; });
}

class StandardInput : public Sound {
 public:
  uint64_t expected_samples() const override { return 0; }

  size_t read(int16_t* samples, size_t count) override {
    size_t n = take_head(samples, count);
    std::vector<uint8_t> bytes((count - n) * 2);
    // Half a sample at the end is lost.
    const size_t fresh = std::fread(bytes.data(), 2, count - n, stdin);
    if (std::ferror(stdin)) throw Failure("standard input cannot be read");
    for (size_t i = 0; i < fresh; ++i) samples[n + i] = sample_at(bytes.data() + 2 * i);
    return n + fresh;
  }

 private:
  static int16_t sample_at(const uint8_t* bytes) {
    return static_cast<int16_t>(static_cast<uint16_t>(bytes[0] | bytes[1] << 8));
  }

  // The first two samples are looked at together, however few are asked for.
  size_t take_head(int16_t* samples, size_t count) {
    if (!has_head_) {
      has_head_ = true;
      head_samples_ = std::fread(head_, 2, 2, stdin);
      if (head_samples_ == 2 && begins_like_a_file(head_)) {
        throw Failure(
            "standard input",
            "a sound file, but \"-\" takes bare samples: give the file's name, or decode it");
      }
    }
    size_t n = 0;
    for (; n < count && head_next_ < head_samples_; ++n, ++head_next_) {
      samples[n] = sample_at(head_ + 2 * head_next_);
    }
    return n;
  }

  bool has_head_ = false;
  uint8_t head_[4] = {};
  size_t head_samples_ = 0, head_next_ = 0;
};

}  // namespace

std::unique_ptr<Sound> open_sound(const std::string& path) {
  if (path == "-") return std::make_unique<StandardInput>();
  return std::make_unique<SoundFile>(path);
}

}  // namespace kelnn_cli
