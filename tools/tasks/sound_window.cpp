#include "sound_window.h"

#include <cmath>
#include <cstdlib>
#include <memory>

#include "formatted.h"
#include "kel_nn.h"
#include "report.h"

namespace kelnn_cli {
namespace {

struct Destroy {
  void operator()(kel_nn_mfcc_t* context) const { kel_nn_mfcc_destory(&context); }
};
using Context = std::unique_ptr<kel_nn_mfcc_t, Destroy>;

Context create_context() {
  kel_nn_mfcc_t* context = nullptr;
  if (kel_nn_mfcc_create(&context, kSoundRate, 0.0f) != 0) throw Failure("out of memory");
  return Context(context);
}

std::string seconds_text(uint64_t samples) {
  return formatted("%.2f s", static_cast<double>(samples) / kSoundRate);
}

std::vector<int16_t> read_window(Sound* sound, const std::string& name, uint64_t index) {
  std::vector<int16_t> window(kWindowSamples);
  uint64_t total = 0;
  for (uint64_t i = 0; i <= index; ++i) {
    const size_t n = sound->read(window.data(), window.size());
    total += n;
    if (n < window.size()) {
      throw Failure(name, "window " + std::to_string(index) + " ends at " +
                              seconds_text((index + 1) * kWindowSamples) + ", the sound at " +
                              seconds_text(total));
    }
  }
  return window;
}

}  // namespace

double FeatureMatrix::centre_hz(int channel) const {
  return 700.0 * std::expm1((channel + 1) * mel_step / 1127.0);
}

double FeatureMatrix::channel_at(double hz) const {
  return 1127.0 * std::log1p(hz / 700.0) / mel_step - 1.0;
}

FeatureMatrix window_features(Sound* sound, const std::string& name, uint64_t index) {
  const std::vector<int16_t> window = read_window(sound, name, index);
  const Context context = create_context();
  if (kel_nn_mfcc_process(context.get(), window.data()) != 0) {
    throw Failure("the features failed, see above");
  }
  if (!context->has_voice) {
    throw Failure(name, "window " + std::to_string(index) +
                            " is too quiet to have features: its loudness is " +
                            formatted("%.0f", double{loudness(window)}) + ", the gate is at " +
                            formatted("%.0f", double{context->gate_threshold}));
  }
  FeatureMatrix matrix;
  matrix.rows = context->wave.n_frames;
  matrix.channels = context->cfg.fbank.num_chans;
  matrix.bytes.assign(context->feature_u8, context->feature_u8 + matrix.rows * matrix.channels);
  matrix.mel_step = double{context->cfg.fbank.cf[1]};
  return matrix;
}

}  // namespace kelnn_cli
