// SPDX-License-Identifier: Apache-2.0
// Sound files of any content: refused, or samples that do not depend on how they are asked for.
#include "report.h"
#include "sound_file.h"
#include "support/input.h"
#include "support/model_directory.h"

using namespace kelnn_fuzz;
using namespace kelnn_cli;

namespace {

constexpr size_t kMostSamples = 100000;  // a few bytes can say that silence lasts for days

// Empty: refused.
std::vector<int16_t> heard(const std::string& path, const InputSettings& settings, size_t chunk) {
  std::vector<int16_t> samples;
  try {
    const std::unique_ptr<Sound> sound = open_sound(path, settings);
    EXPECT(sound->recorded_rate() > 0);
    for (size_t count = 1; count > 0 && samples.size() < kMostSamples;) {
      const size_t before = samples.size();
      samples.resize(before + chunk);
      count = sound->read(&samples[before], chunk);
      EXPECT(count <= chunk);
      samples.resize(before + count);
    }
  } catch (const Failure& failure) {
    EXPECT(failure.what()[0] != '\0');
  }
  return samples;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const kelnn_test::TemporaryDirectory directory;
  Input input(data, size);
  InputSettings settings;
  settings.is_lenient = input.yes();
  if (input.yes()) settings.start = input.ConsumeFloatingPointInRange(0.0, 2.0);
  if (input.yes()) settings.duration = input.ConsumeFloatingPointInRange(0.0, 4.0);
  const size_t chunk = input.number<size_t>(1, 20000);
  const std::string path = directory.write("sound", input.ConsumeRemainingBytesAsString());
  std::vector<int16_t> samples = heard(path, settings, chunk), others = heard(path, settings, 4800);
  const size_t count = std::min({samples.size(), others.size(), kMostSamples});
  EXPECT(!settings.is_lenient || samples.size() == others.size() || count == kMostSamples);
  samples.resize(count);
  others.resize(count);
  EXPECT(samples == others);
  return 0;
}
