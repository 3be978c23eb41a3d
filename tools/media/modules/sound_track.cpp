// SPDX-License-Identifier: Apache-2.0
// The sound of a video, of a stream, and of formats that libsndfile does not know.
#include <algorithm>

#include "reconnection.h"

namespace kelnn_cli {
namespace {

class Track : public SoundTrack {
 public:
  explicit Track(std::unique_ptr<StreamReader> reader) : reader_(std::move(reader)) {}

  int rate() const override { return reader_->stream()->codecpar->sample_rate; }
  int channels() const override { return reader_->stream()->codecpar->ch_layout.nb_channels; }
  int64_t frames() const override {
    const int64_t duration = reader_->input()->duration;
    return duration <= 0 ? 0 : av_rescale(duration, rate(), AV_TIME_BASE);
  }
  size_t read(float* samples, size_t count) override {
    const size_t wanted = count * static_cast<size_t>(channels());
    size_t done = 0;
    while (done < wanted && (left_ > 0 || decode())) {
      const size_t part = std::min(wanted - done, left_);
      std::copy_n(next_, part, samples + done);
      next_ += part;
      left_ -= part;
      done += part;
    }
    return done / static_cast<size_t>(channels());
  }
  std::string problem() const override {
    return problem_.empty() && is_end_ ? reader_->problem() : problem_;
  }

 private:
  // The next frame into block_, as floats side by side.
  bool decode() {
    AVFrame* frame = problem_.empty() ? reader_->next() : nullptr;
    is_end_ = !frame;
    if (!frame) return false;
    // Where speakers stand is often not said.
    AVChannelLayout* layout = &frame->ch_layout;
    if (layout->order == AV_CHANNEL_ORDER_UNSPEC) {
      av_channel_layout_default(layout, layout->nb_channels);
    }
    av_frame_unref(block_.get());
    block_->format = AV_SAMPLE_FMT_FLT;
    block_->sample_rate = rate();
    if (layout->nb_channels != channels() ||
        av_channel_layout_copy(&block_->ch_layout, layout) < 0 ||
        swr_convert_frame(converter_.get(), block_.get(), frame) < 0) {
      problem_ = "sound of a kind that is not supported, or that changes";
      return false;
    }
    left_ = static_cast<size_t>(block_->nb_samples) * static_cast<size_t>(channels());
    next_ = reinterpret_cast<const float*>(block_->data[0]);
    return true;
  }

  std::unique_ptr<StreamReader> reader_;
  std::unique_ptr<SwrContext, FreeWith<swr_free>> converter_{swr_alloc()};
  Picture block_{av_frame_alloc()};
  const float* next_ = nullptr;
  size_t left_ = 0;  // floats of the block
  bool is_end_ = false;
  std::string problem_;  // none: the stream's
};

// A server's sound without an end: what is missing while it is not there is left out.
class LiveTrack : public SoundTrack {
 public:
  LiveTrack(const std::string& url, const InputSettings& settings, std::unique_ptr<Track> track)
      : again_(url, settings),
        rate_(track->rate()),
        channels_(track->channels()),
        track_(std::move(track)) {}

  int rate() const override { return rate_; }
  int channels() const override { return channels_; }
  int64_t frames() const override { return 0; }
  size_t read(float* samples, size_t count) override {
    for (size_t done = 0;;) {
      std::string dropped = "it ended";
      if (track_) {
        const size_t read =
            track_->read(samples + done * static_cast<size_t>(channels_), count - done);
        if (read > 0) again_.note_success();
        done += read;
        if (!track_->problem().empty()) dropped = track_->problem();
      }
      if (done == count || !problem_.empty() || again_.is_over()) return done;
      track_.reset();
      if (auto reader = again_.wait_and_open(AVMEDIA_TYPE_AUDIO, dropped)) {
        track_ = std::make_unique<Track>(std::move(reader));
        const bool is_same = track_->rate() == rate_ && track_->channels() == channels_;
        if (!is_same) problem_ = "it came back with another rate or other channels";
        if (!is_same) return done;
      }
    }
  }
  std::string problem() const override { return problem_; }

 private:
  Reconnection again_;
  int rate_, channels_;
  std::unique_ptr<Track> track_;  // none: the server has not come back
  std::string problem_;
};

}  // namespace

std::unique_ptr<SoundTrack> open_track(const std::string& path, const InputSettings& settings,
                                       std::string* why_not) {
  auto reader = StreamReader::open(path, AVMEDIA_TYPE_AUDIO, settings, why_not);
  if (!reader || reader->stream()->codecpar->ch_layout.nb_channels < 1) return nullptr;
  const bool is_live = Reconnection::is_needed_for(*reader);
  auto track = std::make_unique<Track>(std::move(reader));
  if (!is_live) return track;
  return std::make_unique<LiveTrack>(path, settings, std::move(track));
}

}  // namespace kelnn_cli
