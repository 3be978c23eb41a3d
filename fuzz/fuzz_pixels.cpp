// SPDX-License-Identifier: Apache-2.0
// Raw frames in files of any length, and pictures of any content as far as this program decodes them itself.
#include "codecs.h"
#include "frame_source.h"
#include "report.h"
#include "support/input.h"
#include "support/model_directory.h"

using namespace kelnn_fuzz;
using namespace kelnn_cli;

namespace {

// As many frames as are whole, each with its own pixels; what is behind them is objected to.
void raw_frames(Input& input) {
  static const kelnn_test::TemporaryDirectory directory;
  static const struct {
    const char* name;
    int bits;  // of a pixel
  } kFormats[] = {{"bgr24", 24}, {"rgb24", 24}, {"gray", 8}, {"nv12", 12}, {"yuv420p", 12}};
  const auto& format = kFormats[input.number(0, 4)];
  // Sides with all of their colours.
  const int width = 2 * input.number(1, 20), height = 2 * input.number(1, 20);
  InputSettings settings;
  settings.raw = "pixel_format=" + std::string(format.name) +
                 ",video_size=" + std::to_string(width) + "x" + std::to_string(height) +
                 ",framerate=25";
  settings.is_lenient = input.yes();
  const size_t frame_size = static_cast<size_t>(width) * height * format.bits / 8;
  const size_t length = input.yes() ? frame_size * input.number(0, 5) : input.number(0, 9000);
  const std::vector<uint8_t> bytes = input.bytes(length);
  const std::string path = directory.write("frames", std::string(bytes.begin(), bytes.end()));
  size_t count = 0;
  bool is_refused = false;
  try {
    const std::unique_ptr<FrameSource> source = open_frames(path, settings);
    for (Frame frame; source->read(&frame); ++count) {
      EXPECT(frame.pixels.cols == width && frame.pixels.rows == height &&
             frame.index == static_cast<int64_t>(count));
      for (size_t i = 0; format.bits == 24 && i < frame_size; ++i) {
        const size_t from = format.name[0] == 'b' ? i : i / 3 * 3 + 2 - i % 3;
        EXPECT(frame.pixels.data[i] == bytes[count * frame_size + from]);
      }
    }
  } catch (const Failure& failure) {
    is_refused = true;
    EXPECT(failure.what()[0] != '\0');
  }
  EXPECT(count == length / frame_size);
  EXPECT(is_refused == (count == 0 || (!settings.is_lenient && length % frame_size != 0)));
}

void pictures(Input& input) {
  const Bytes bytes = input.ConsumeRemainingBytes<uint8_t>();
  exif_orientation(bytes.data(), bytes.size());
  bool is_damaged = false;
  const cv::Mat picture = is_png(bytes)    ? decode_png(bytes, &is_damaged)
                          : is_jpeg(bytes) ? decode_jpeg(bytes, &is_damaged)
                          : is_pnm(bytes)  ? decode_pnm(bytes)
                                           : cv::Mat();
  if (picture.empty()) return;
  EXPECT(picture.type() == CV_8UC3 && picture.isContinuous());
  const cv::Mat upright = made_upright(picture, 1 + bytes.size() % 8);
  EXPECT(upright.total() == picture.total());
  const cv::Mat again = decode_png(encode_png(upright));
  EXPECT(again.size() == upright.size() &&
         std::memcmp(again.data, upright.data, again.total() * 3) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  input.number(0, 3) == 0 ? raw_frames(input) : pictures(input);
  return 0;
}
