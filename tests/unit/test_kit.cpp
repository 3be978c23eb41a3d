// The kit: letterboxing, scaling and cutting, from every format, at every edge.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "kel_nn_grid_detector.h"
#include "kel_nn_kit.h"
#include "support/allocations.h"

bool operator==(const kel_nn_kit_rect_t& a, const kel_nn_kit_rect_t& b) {
  return a.x == b.x && a.y == b.y && a.w == b.w && a.h == b.h;
}
void PrintTo(const kel_nn_kit_rect_t& rect, std::ostream* out) {
  *out << "(" << rect.x << ", " << rect.y << ") " << rect.w << " x " << rect.h;
}

namespace {

using Bytes = std::vector<uint8_t>;
using ::testing::Each;
using ::testing::ElementsAre;

constexpr uint8_t kGuard = 0xee;

int channels_of(kel_nn_kit_format_t format) { return format == KEL_NN_KIT_GREY ? 1 : 3; }

const kel_nn_kit_format_t kFormats[] = {KEL_NN_KIT_GREY, KEL_NN_KIT_RGB, KEL_NN_KIT_BGR,
                                        KEL_NN_KIT_NV12, KEL_NN_KIT_NV12_FULL};

// An image with guard bytes around it.
class Image {
 public:
  Image(int width, int height, kel_nn_kit_format_t format)
      : size_(width * height * channels_of(format)), bytes_(size_ + 64, kGuard) {
    image_ = {&bytes_[32], width, height, format, nullptr};
  }
  void use(kel_nn_kit_scratch_t* scratch) { image_.scratch = scratch; }
  const kel_nn_kit_image_t* operator&() const { return &image_; }
  Bytes pixels() const { return Bytes(&bytes_[32], &bytes_[32] + size_); }
  Bytes row(int y) const {
    const int row_bytes = size_ / image_.height;
    return Bytes(&bytes_[32] + y * row_bytes, &bytes_[32] + (y + 1) * row_bytes);
  }
  Bytes pixel(int x, int y) const {
    const Bytes row_bytes = row(y);
    const int channels = channels_of(image_.format);
    return Bytes(&row_bytes[x * channels], &row_bytes[x * channels] + channels);
  }
  ~Image() {
    EXPECT_THAT(Bytes(bytes_.begin(), bytes_.begin() + 32), Each(kGuard));
    EXPECT_THAT(Bytes(bytes_.end() - 32, bytes_.end()), Each(kGuard));
  }

 private:
  int size_;
  Bytes bytes_;
  kel_nn_kit_image_t image_;
};

// A frame whose memory ends with its last pixel, so that the address sanitizer sees every step over
// the edge; rows are padded with guard bytes.
class Frame {
 public:
  using Sample = std::function<int(int x, int y, int channel)>;

  Frame(kel_nn_kit_format_t format, int width, int height, int padding, const Sample& sample) {
    const bool nv12 = format == KEL_NN_KIT_NV12 || format == KEL_NN_KIT_NV12_FULL;
    const int channels = nv12 ? 1 : channels_of(format);
    const int stride = width * channels + padding;
    add_plane(width, height, channels, stride,
              [&](int x, int y, int c) { return sample(x, y, c); });
    if (nv12) {  // channels 1 and 2 of a sample at the top left of its 2 x 2 pixels
      bytes_.resize(stride * height, kGuard);
      add_plane(width / 2, height / 2, 2, stride,
                [&](int x, int y, int c) { return sample(2 * x, 2 * y, 1 + c); });
    }
    bytes_.shrink_to_fit();
    frame = {bytes_.data(), width, height, padding ? stride : 0, format, nullptr};
  }
  Frame(const Frame&) = delete;

  kel_nn_kit_frame_t frame;

 private:
  void add_plane(int width, int height, int channels, int stride, const Sample& sample) {
    const size_t start = bytes_.size();
    bytes_.resize(start + stride * (height - 1) + width * channels, kGuard);
    for (int y = 0; y < height; ++y) {
      for (int i = 0; i < width * channels; ++i) {
        bytes_[start + y * stride + i] =
            static_cast<uint8_t>(sample(i / channels, y, i % channels));
      }
    }
  }

  Bytes bytes_;
};

int noise(int x, int y, int channel) {
  return (x * 89 + y * 151 + channel * 47 + x * y * 13) % 256;
}

// ----- Where the frame lies ----------------------------------------------------------------------

TEST(KitLetterbox, PlacesTheFrame) {
  struct Case {
    const char* name;
    kel_nn_size_t frame, image;
    kel_nn_kit_rect_t source, destination;
  };
  const Case cases[] = {
      {"16:9: 234 rows", {640, 360}, {416, 256}, {0, 0, 640, 360}, {0, 11, 416, 234}},
      {"16:9, large", {1920, 1080}, {416, 256}, {0, 0, 1920, 1080}, {0, 11, 416, 234}},
      {"portrait", {360, 640}, {256, 416}, {0, 0, 360, 640}, {11, 0, 234, 416}},
      {"square", {480, 480}, {320, 320}, {0, 0, 480, 480}, {0, 0, 320, 320}},
      {"4:3: 312 rows for 256; 28 / 0.65 = 43.1 are cut off",
       {640, 480},
       {416, 256},
       {0, 43, 640, 394},
       {0, 0, 416, 256}},
      {"4:3 upright", {480, 640}, {256, 416}, {43, 0, 394, 640}, {0, 0, 256, 416}},
      {"pad 19.67, large frame: 3 rows less, 0.08 of one off",
       {3840, 2000},
       {416, 256},
       {0, 3, 3840, 1994},
       {0, 20, 416, 216}},
      {"pad 65.6, small frame: 0.4 rows of the image off",
       {100, 30},
       {416, 256},
       {0, 0, 100, 30},
       {0, 66, 416, 124}},
      {"pad 65.2, small frame: 0.2 rows of the image off",
       {1000, 302},
       {4160, 1387},
       {0, 0, 1000, 302},
       {0, 65, 4160, 1257}},
      {"pad 0.4, enlarged", {8, 4}, {21, 11}, {0, 0, 8, 4}, {0, 0, 21, 11}},
      {"1.04 rows: 2 in the middle", {4000, 10}, {416, 256}, {0, 0, 4000, 10}, {0, 127, 416, 2}},
      {"a row", {416, 1}, {416, 255}, {0, 0, 416, 1}, {0, 127, 416, 1}},
      {"landscape in portrait", {640, 360}, {256, 416}, {123, 0, 394, 360}, {0, 91, 256, 234}},
      {"one pixel", {1, 1}, {1, 1}, {0, 0, 1, 1}, {0, 0, 1, 1}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    kel_nn_kit_rect_t source, destination;
    ASSERT_EQ(kel_nn_kit_letterbox_rects(c.frame, c.image, &source, &destination), 0);
    EXPECT_EQ(source, c.source);
    EXPECT_EQ(destination, c.destination);
  }
}

TEST(KitLetterbox, PadsExactlyAroundTheFrame) {
  struct Case {
    const char* name;
    int width, height, image_width, image_height;
    kel_nn_kit_rect_t inside;
  };
  const Case cases[] = {
      {"above and below", 64, 36, 416, 256, {0, 11, 416, 234}},
      {"left and right", 36, 64, 256, 416, {11, 0, 234, 416}},
      {"none", 48, 48, 320, 320, {0, 0, 320, 320}},
      {"frame larger than the image, pad 5.5", 640, 360, 208, 128, {0, 6, 208, 116}},
      {"odd sizes", 7, 3, 21, 13, {0, 2, 21, 9}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Frame white(KEL_NN_KIT_GREY, c.width, c.height, 3, [](int, int, int) { return 255; });
    for (kel_nn_kit_format_t format : {KEL_NN_KIT_GREY, KEL_NN_KIT_RGB}) {
      Image image(c.image_width, c.image_height, format);
      ASSERT_EQ(kel_nn_kit_letterbox(&white.frame, &image), 0);
      Bytes expected;
      for (int y = 0; y < c.image_height; ++y) {
        for (int x = 0; x < c.image_width; ++x) {
          const bool inside = x >= c.inside.x && x < c.inside.x + c.inside.w && y >= c.inside.y &&
                              y < c.inside.y + c.inside.h;
          expected.insert(expected.end(), channels_of(format), inside ? 255 : KEL_NN_KIT_PADDING);
        }
      }
      EXPECT_TRUE(image.pixels() == expected);
    }
  }
}

// ----- There and back ----------------------------------------------------------------------------

const kel_nn_size_t kFrameSizes[] = {
    {640, 360},  {641, 359},   {1280, 720}, {1920, 1080}, {1000, 333},  {640, 480},  {1280, 1024},
    {1601, 901}, {97, 61},     {416, 256},  {200, 151},   {2304, 1296}, {480, 480},  {321, 321},
    {100, 100},  {1080, 1920}, {359, 641},  {75, 131},    {481, 640},   {1999, 2000}};

struct Corners {
  double left, top, right, bottom;
};

double largest_difference(const Corners& a, const Corners& b) {
  return std::max({std::fabs(a.left - b.left), std::fabs(a.top - b.top),
                   std::fabs(a.right - b.right), std::fabs(a.bottom - b.bottom)});
}

// What a detector that saw `in_image` would report.
Corners reported(const Corners& in_image, kel_nn_size_t frame_size, kel_nn_size_t image_size) {
  const kel_nn_box_t seen = {static_cast<float>((in_image.left + in_image.right) / 2),
                             static_cast<float>((in_image.top + in_image.bottom) / 2),
                             static_cast<float>(in_image.right - in_image.left),
                             static_cast<float>(in_image.bottom - in_image.top),
                             1.0f,
                             0};
  kel_nn_box_t box;
  kelnn::map_to_frame(&seen, 1, frame_size, image_size, &box);
  // The centre of the two corners was rounded down.
  const auto corner = [](double value) { return std::floor(value + 0.5); };
  return {corner(box.cx - box.w / 2), corner(box.cy - box.h / 2), corner(box.cx + box.w / 2),
          corner(box.cy + box.h / 2)};
}

class KitRoundTrip : public ::testing::Test {
 protected:
  // A rectangle of what the image shows of the frame, at least `min_side` image pixels long.
  kel_nn_kit_rect_t random_rect(const kel_nn_kit_rect_t& visible, double scale, int min_side) {
    const int side = static_cast<int>(std::ceil(min_side / scale));
    const int w = side + below(visible.w - side), h = side + below(visible.h - side);
    return {visible.x + below(visible.w - w + 1), visible.y + below(visible.h - h + 1), w, h};
  }

 private:
  int below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }

  std::mt19937 random_{20230307};
};

// Rectangles go through the letterbox as formulas, back once exactly and once through the library.
TEST_F(KitRoundTrip, IsOffByHalfAPixelAtMostPlusTheDetectorsRounding) {
  double worst_place = 0, worst_box = 0;
  for (const kel_nn_size_t& frame_size : kFrameSizes) {
    SCOPED_TRACE(std::to_string(frame_size.w) + " x " + std::to_string(frame_size.h));
    const kel_nn_size_t input = kel_nn_kit_detector_input(frame_size.w, frame_size.h);
    kel_nn_kit_rect_t from, to;
    ASSERT_EQ(kel_nn_kit_letterbox_rects(frame_size, input, &from, &to), 0);
    const double scale = 1.0 * std::max(input.w, input.h) / std::max(frame_size.w, frame_size.h);
    const double pad_x = (input.w - scale * frame_size.w) / 2;
    const double pad_y = (input.h - scale * frame_size.h) / 2;
    for (int i = 0; i < 500; ++i) {
      const kel_nn_kit_rect_t rect = random_rect(from, scale, 3);
      const Corners truth = {1.0 * rect.x, 1.0 * rect.y, 1.0 * rect.x + rect.w,
                             1.0 * rect.y + rect.h};
      const auto x = [&](double value) { return to.x + (value - from.x) * to.w / from.w; };
      const auto y = [&](double value) { return to.y + (value - from.y) * to.h / from.h; };
      const Corners in_image = {x(truth.left), y(truth.top), x(truth.right), y(truth.bottom)};
      const Corners unrounded = {(in_image.left - pad_x) / scale, (in_image.top - pad_y) / scale,
                                 (in_image.right - pad_x) / scale,
                                 (in_image.bottom - pad_y) / scale};
      const double place = largest_difference(unrounded, truth);
      const bool cut = pad_x < -1e-3 || pad_y < -1e-3;
      ASSERT_LE(place, (cut ? 0.5 : std::min(0.5, 0.5 / scale)) + 1.0 / 64 + 1e-3);
      worst_place = std::max(worst_place, place);
      worst_box =
          std::max(worst_box, largest_difference(reported(in_image, frame_size, input), truth));
    }
  }
  RecordProperty("worst_place", std::to_string(worst_place));
  RecordProperty("worst_box", std::to_string(worst_box));
  EXPECT_LE(worst_box, 3.0);
}

// ----- Formats -----------------------------------------------------------------------------------

TEST(KitFormats, GreyAndOrders) {
  const auto colours = [](int, int, int channel) { return 10 + 100 * channel; };  // 10, 110, 210
  const auto grey = [](int, int, int) { return 77; };
  const Frame rgb(KEL_NN_KIT_RGB, 4, 3, 5, colours), bgr(KEL_NN_KIT_BGR, 4, 3, 0, colours);
  const Frame plain(KEL_NN_KIT_GREY, 4, 3, 1, grey);
  struct Case {
    const char* name;
    const Frame& frame;
    kel_nn_kit_format_t format;
    Bytes pixel;
  };
  const Case cases[] = {
      {"RGB to RGB", rgb, KEL_NN_KIT_RGB, {10, 110, 210}},
      {"RGB to BGR", rgb, KEL_NN_KIT_BGR, {210, 110, 10}},
      {"BGR to RGB", bgr, KEL_NN_KIT_RGB, {210, 110, 10}},
      {"BGR to BGR", bgr, KEL_NN_KIT_BGR, {10, 110, 210}},
      {"RGB to grey: (770 + 16500 + 6090 + 128) / 256", rgb, KEL_NN_KIT_GREY, {91}},
      {"BGR to grey: (16170 + 16500 + 290 + 128) / 256", bgr, KEL_NN_KIT_GREY, {129}},
      {"grey to RGB", plain, KEL_NN_KIT_RGB, {77, 77, 77}},
      {"grey to BGR", plain, KEL_NN_KIT_BGR, {77, 77, 77}},
      {"grey to grey", plain, KEL_NN_KIT_GREY, {77}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Image image(5, 7, c.format);
    ASSERT_EQ(kel_nn_kit_scale(&c.frame.frame, &image), 0);
    for (int y = 0; y < 7; ++y) {
      for (int x = 0; x < 5; ++x) ASSERT_EQ(image.pixel(x, y), c.pixel);
    }
  }
}

TEST(KitFormats, Nv12ColoursByHand) {
  struct Case {
    const char* name;
    kel_nn_kit_format_t format;
    int y, u, v;
    Bytes rgb;
    int grey;
  };
  const Case cases[] = {
      {"black", KEL_NN_KIT_NV12, 16, 128, 128, {0, 0, 0}, 0},
      {"white", KEL_NN_KIT_NV12, 235, 128, 128, {255, 255, 255}, 255},
      {"below black", KEL_NN_KIT_NV12, 0, 128, 128, {0, 0, 0}, 0},
      {"above white", KEL_NN_KIT_NV12, 255, 128, 128, {255, 255, 255}, 255},
      {"(29800 + 10 * 409, - 20 * 100 - 10 * 208, + 20 * 516 each + 128) / 256",
       KEL_NN_KIT_NV12,
       116,
       148,
       138,
       {132, 100, 157},
       116},
      {"full: black", KEL_NN_KIT_NV12_FULL, 0, 128, 128, {0, 0, 0}, 0},
      {"full: white", KEL_NN_KIT_NV12_FULL, 255, 128, 128, {255, 255, 255}, 255},
      {"full: (29696 + 10 * 359, - 20 * 88 - 10 * 183, + 20 * 454 each + 128) / 256",
       KEL_NN_KIT_NV12_FULL,
       116,
       148,
       138,
       {130, 102, 151},
       116},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const int samples[] = {c.y, c.u, c.v};
    const Frame frame(c.format, 2, 2, 0, [&](int, int, int k) { return samples[k]; });
    Image rgb(3, 3, KEL_NN_KIT_RGB), bgr(3, 3, KEL_NN_KIT_BGR), grey(3, 3, KEL_NN_KIT_GREY);
    ASSERT_EQ(kel_nn_kit_scale(&frame.frame, &rgb), 0);
    ASSERT_EQ(kel_nn_kit_scale(&frame.frame, &bgr), 0);
    ASSERT_EQ(kel_nn_kit_scale(&frame.frame, &grey), 0);
    EXPECT_EQ(rgb.pixel(1, 2), c.rgb);
    EXPECT_EQ(bgr.pixel(1, 2), Bytes(c.rgb.rbegin(), c.rgb.rend()));
    EXPECT_THAT(grey.pixel(2, 1), ElementsAre(c.grey));
  }
}

// The defining equations in real numbers.
Bytes exact_colour(bool full, int y, int u, int v) {
  const double luma = full ? y / 255.0 : (y - 16) / 219.0;
  const double pb = (u - 128) / (full ? 255.0 : 224.0), pr = (v - 128) / (full ? 255.0 : 224.0);
  const double red = luma + 1.402 * pr, blue = luma + 1.772 * pb;
  const double green = (luma - 0.299 * red - 0.114 * blue) / 0.587;
  Bytes pixel;
  for (double value : {red, green, blue}) {
    pixel.push_back(static_cast<uint8_t>(std::lround(std::min(std::max(value, 0.0), 1.0) * 255)));
  }
  return pixel;
}

TEST(KitFormats, Nv12IsWithinOneOfTheExactColour) {
  for (kel_nn_kit_format_t format : {KEL_NN_KIT_NV12, KEL_NN_KIT_NV12_FULL}) {
    for (int y = 0; y < 256; y += 15) {
      for (int u = 0; u < 256; u += 15) {
        for (int v = 0; v < 256; v += 15) {
          const uint8_t pixels[] = {static_cast<uint8_t>(y), static_cast<uint8_t>(y),
                                    static_cast<uint8_t>(y), static_cast<uint8_t>(y),
                                    static_cast<uint8_t>(u), static_cast<uint8_t>(v)};
          const kel_nn_kit_frame_t frame = {pixels, 2, 2, 0, format, nullptr};
          uint8_t out[3];
          const kel_nn_kit_image_t image = {out, 1, 1, KEL_NN_KIT_RGB, nullptr};
          ASSERT_EQ(kel_nn_kit_scale(&frame, &image), 0);
          const Bytes exact = exact_colour(format == KEL_NN_KIT_NV12_FULL, y, u, v);
          for (int k = 0; k < 3; ++k) {
            ASSERT_LE(std::abs(out[k] - exact[k]), 1) << y << " " << u << " " << v << " " << k;
          }
        }
      }
    }
  }
}

TEST(KitFormats, PaddedRowsAndSeparateChromaGiveTheSamePicture) {
  const kel_nn_size_t sizes[] = {{2, 2}, {3, 3}, {2, 5}, {5, 2}, {33, 17}, {64, 36}, {35, 64}};
  for (kel_nn_kit_format_t format : kFormats) {
    for (const kel_nn_size_t& size : sizes) {
      SCOPED_TRACE(::testing::Message() << format << ": " << size.w << " x " << size.h);
      const Frame packed(format, size.w, size.h, 0, noise),
          padded(format, size.w, size.h, 13, noise);
      kel_nn_kit_frame_t separate = padded.frame;
      Bytes chroma;
      if (format >= KEL_NN_KIT_NV12) {
        const int stride = size.w + 13;
        const uint8_t* start = padded.frame.data + stride * size.h;
        chroma.assign(start, start + stride * (size.h / 2 - 1) + size.w / 2 * 2);
        separate.chroma = chroma.data();
      }
      for (kel_nn_kit_format_t wanted : {KEL_NN_KIT_GREY, KEL_NN_KIT_RGB, KEL_NN_KIT_BGR}) {
        Image a(40, 25, wanted), b(40, 25, wanted), c(40, 25, wanted);
        ASSERT_EQ(kel_nn_kit_letterbox(&packed.frame, &a), 0);
        ASSERT_EQ(kel_nn_kit_letterbox(&padded.frame, &b), 0);
        ASSERT_EQ(kel_nn_kit_letterbox(&separate, &c), 0);
        EXPECT_TRUE(a.pixels() == b.pixels());
        EXPECT_TRUE(a.pixels() == c.pixels());
      }
    }
  }
}

// The planes are scaled to NV12 of the image's size, then each pixel takes the colour of its pair.
TEST(KitFormats, Nv12IsScaledAsPlanesAndConvertedAfter) {
  const Frame frame(KEL_NN_KIT_NV12_FULL, 9, 7, 0, noise);
  struct Case {
    kel_nn_kit_rect_t rect, pairs;
    kel_nn_size_t image;
  };
  const Case cases[] = {{{0, 0, 9, 7}, {0, 0, 4, 3}, {9, 7}},
                        {{0, 0, 9, 7}, {0, 0, 4, 3}, {10, 12}},
                        {{3, 1, 4, 5}, {1, 0, 3, 3}, {4, 5}},
                        {{2, 2, 4, 5}, {1, 1, 2, 2}, {7, 8}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.rect));
    const int w = c.image.w, h = c.image.h, pair_columns = (w + 1) / 2;
    Bytes luma(w * h), chroma(2 * pair_columns * ((h + 1) / 2));
    const uint8_t* const first_pair = frame.frame.data + 9 * 7;
    resize_bilinear_c1(frame.frame.data + 9 * c.rect.y + c.rect.x, c.rect.w, c.rect.h, 9,
                       luma.data(), w, h, w);
    resize_bilinear_c2(first_pair + 9 * c.pairs.y + 2 * c.pairs.x, c.pairs.w, c.pairs.h, 9,
                       chroma.data(), pair_columns, (h + 1) / 2, 2 * pair_columns);
    Image image(w, h, KEL_NN_KIT_RGB);
    ASSERT_EQ(kel_nn_kit_crop(&frame.frame, c.rect, &image), 0);
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        const uint8_t* pair = &chroma[2 * (y / 2 * pair_columns + x / 2)];
        const int blue = (256 * luma[y * w + x] + 454 * (pair[0] - 128) + 128) >> 8;
        const int red = (256 * luma[y * w + x] + 359 * (pair[1] - 128) + 128) >> 8;
        ASSERT_EQ(image.pixel(x, y)[0], std::min(std::max(red, 0), 255)) << x << ", " << y;
        ASSERT_EQ(image.pixel(x, y)[2], std::min(std::max(blue, 0), 255)) << x << ", " << y;
      }
    }
  }
}

// ----- Rectangles --------------------------------------------------------------------------------

TEST(KitCrop, CutsAtTheEdges) {
  const Frame frame(KEL_NN_KIT_RGB, 9, 7, 2, noise);
  struct Case {
    const char* name;
    kel_nn_kit_rect_t rect, visible;
  };
  const int most = std::numeric_limits<int>::max();
  const Case cases[] = {
      {"inside", {2, 3, 4, 2}, {2, 3, 4, 2}},
      {"all of it", {0, 0, 9, 7}, {0, 0, 9, 7}},
      {"beyond the top left", {-3, -2, 5, 5}, {0, 0, 2, 3}},
      {"beyond the bottom right", {6, 5, 10, 10}, {6, 5, 3, 2}},
      {"beyond everything", {-100, -100, 1000, 1000}, {0, 0, 9, 7}},
      {"the largest numbers", {-most, 1, most, most}, {0, 0, 0, 0}},
      {"the largest size", {1, 2, most, most}, {1, 2, 8, 5}},
      {"one column", {8, 1, 1, 5}, {8, 1, 1, 5}},
      {"one row", {1, 6, 5, 1}, {1, 6, 5, 1}},
      {"one pixel", {4, 4, 1, 1}, {4, 4, 1, 1}},
      {"left of it", {-5, 0, 5, 7}, {0, 0, 0, 0}},
      {"right of it", {9, 0, 5, 7}, {0, 0, 0, 0}},
      {"above", {0, -5, 5, 5}, {0, 0, 0, 0}},
      {"below", {0, 7, 5, 5}, {0, 0, 0, 0}},
      {"no width", {3, 3, 0, 3}, {0, 0, 0, 0}},
      {"negative height", {3, 3, 3, -1}, {0, 0, 0, 0}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.visible.w == 0) {
      Image image(4, 4, KEL_NN_KIT_RGB);
      EXPECT_EQ(kel_nn_kit_crop(&frame.frame, c.rect, &image), KEL_NN_KIT_OUTSIDE);
      EXPECT_THAT(image.pixels(), Each(kGuard));
      continue;
    }
    Image image(c.visible.w, c.visible.h, KEL_NN_KIT_RGB);  // its own size: pixel for pixel
    ASSERT_EQ(kel_nn_kit_crop(&frame.frame, c.rect, &image), 0);
    for (int y = 0; y < c.visible.h; ++y) {
      for (int x = 0; x < c.visible.w; ++x) {
        for (int k = 0; k < 3; ++k) {
          ASSERT_EQ(image.pixel(x, y)[k], noise(c.visible.x + x, c.visible.y + y, k));
        }
      }
    }
  }
}

TEST(KitCrop, ScalesToTheImage) {
  // Columns 2 and 3 hold 40 and 80; the middle columns of the image lie at 2.25 and 2.75, the outer
  // ones beyond the centres of what is cut out: they take no part of columns 1 and 4.
  const Frame frame(KEL_NN_KIT_GREY, 6, 4, 0, [](int x, int, int) {
    return x == 2 ? 40 : x == 3 ? 80 : 255;
  });
  Image image(4, 1, KEL_NN_KIT_GREY);
  ASSERT_EQ(kel_nn_kit_crop(&frame.frame, {2, 1, 2, 2}, &image), 0);
  EXPECT_THAT(image.pixels(), ElementsAre(40, 50, 70, 80));
}

// Grey at its own size is known exactly; enlarging reads as far as it may.
TEST(KitCrop, EveryRectangleOfASmallFrameOfEveryFormat) {
  const auto sample = [](int x, int y, int channel) {
    return channel == 0 ? 40 + 20 * x + 10 * y : 128;
  };
  struct Case {
    kel_nn_kit_format_t format;
    std::function<int(int)> grey;  // from channel 0
  };
  const Case cases[] = {
      {KEL_NN_KIT_GREY, [](int value) { return value; }},
      {KEL_NN_KIT_BGR, [](int blue) { return (227 * 128 + 29 * blue + 128) / 256; }},
      {KEL_NN_KIT_NV12, [](int luma) { return (298 * (luma - 16) + 128) / 256; }},
      {KEL_NN_KIT_NV12_FULL, [](int luma) { return luma; }},
  };
  for (const Case& c : cases) {
    for (const kel_nn_size_t& size : {kel_nn_size_t{5, 4}, kel_nn_size_t{4, 5}}) {
      const Frame frame(c.format, size.w, size.h, 0, sample);
      for (int y = 0; y < size.h; ++y) {
        for (int x = 0; x < size.w; ++x) {
          for (int h = 1; y + h <= size.h; ++h) {
            for (int w = 1; x + w <= size.w; ++w) {
              SCOPED_TRACE(::testing::PrintToString(kel_nn_kit_rect_t{x, y, w, h}));
              Image enlarged(7, 3, KEL_NN_KIT_RGB), grey(w, h, KEL_NN_KIT_GREY);
              ASSERT_EQ(kel_nn_kit_crop(&frame.frame, {x, y, w, h}, &enlarged), 0);
              ASSERT_EQ(kel_nn_kit_crop(&frame.frame, {x, y, w, h}, &grey), 0);
              ASSERT_THAT(grey.pixel(0, 0), ElementsAre(c.grey(sample(x, y, 0))));
              const int right = sample(x + w - 1, y + h - 1, 0);
              ASSERT_THAT(grey.pixel(w - 1, h - 1), ElementsAre(c.grey(right)));
            }
          }
        }
      }
    }
  }
}

TEST(KitRect, OfABox) {
  struct Case {
    const char* name;
    kel_nn_box_t box;
    kel_nn_kit_rect_t rect;
  };
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const int most = std::numeric_limits<int>::max();
  const Case cases[] = {
      {"even size", {320, 180, 100, 180, 1, 0}, {270, 90, 100, 180}},
      {"odd size, the centre rounded down: 10 to 15", {12, 12, 5, 5, 1, 0}, {10, 10, 5, 5}},
      {"fractions, as of faces", {10.25f, 20.75f, 5.0f, 6.0f, 1, 0}, {8, 18, 5, 6}},
      {"beyond an int", {0, 0, 1e20f, 1e20f, 1, 0}, {-most, -most, most, most}},
      {"width -1, as at the left edge", {0, 180, -1, 180, 1, 0}, {0, 0, 0, 0}},
      {"NaN", {nan, 180, 10, 180, 1, 0}, {0, 0, 0, 0}},
      {"NaN size", {100, 180, 10, nan, 1, 0}, {0, 0, 0, 0}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(kel_nn_kit_rect_of_box(&c.box), c.rect);
  }
  EXPECT_EQ(kel_nn_kit_rect_of_box(nullptr), (kel_nn_kit_rect_t{0, 0, 0, 0}));
}

TEST(KitRect, CentreSquare) {
  EXPECT_EQ(kel_nn_kit_centre_square({0, 0, 640, 480}), (kel_nn_kit_rect_t{80, 0, 480, 480}));
  EXPECT_EQ(kel_nn_kit_centre_square({10, 20, 5, 8}), (kel_nn_kit_rect_t{10, 21, 5, 5}));
  EXPECT_EQ(kel_nn_kit_centre_square({3, 3, 0, 5}), (kel_nn_kit_rect_t{3, 5, 0, 0}));
}

// ----- Memory ------------------------------------------------------------------------------------

// Every way from a format to a format, of a whole frame and of a single column of it, which is
// doubled: the same pixels with scratch as without, and nothing allocated once it has grown.
TEST(KitMemory, ScratchIsKeptFromCallToCall) {
  kel_nn_kit_scratch_t scratch = {nullptr, 0};
  for (const char* round : {"grows", "kept"}) {
    SCOPED_TRACE(round);
    for (kel_nn_kit_format_t format : kFormats) {
      const Frame frame(format, 64, 36, 3, noise);
      for (kel_nn_kit_format_t wanted : {KEL_NN_KIT_GREY, KEL_NN_KIT_RGB, KEL_NN_KIT_BGR}) {
        for (const kel_nn_kit_rect_t& rect : {kel_nn_kit_rect_t{0, 0, 64, 36}, {63, 2, 1, 33}}) {
          SCOPED_TRACE(::testing::Message() << format << " to " << wanted << ", " << rect.w);
          Image image(41, 25, wanted), expected(41, 25, wanted);
          image.use(&scratch);
          const long before = kelnn_test::allocation_count();
          ASSERT_EQ(kel_nn_kit_crop(&frame.frame, rect, &image), 0);
          if (round == std::string("kept")) {
            EXPECT_EQ(kelnn_test::allocation_count(), before);
          }
          ASSERT_EQ(kel_nn_kit_crop(&frame.frame, rect, &expected), 0);
          EXPECT_TRUE(image.pixels() == expected.pixels());
        }
      }
    }
  }
  EXPECT_GE(scratch.size, 3u * 41 * 25);
  kel_nn_kit_scratch_free(&scratch);
  EXPECT_EQ(scratch.data, nullptr);
  EXPECT_EQ(scratch.size, 0u);
  kel_nn_kit_scratch_free(nullptr);
}

TEST(KitMemory, WithoutMemoryACallFailsAndTheNextOneWorks) {
  const Frame frame(KEL_NN_KIT_NV12, 64, 36, 0, noise);
  kel_nn_kit_scratch_t scratch = {nullptr, 0};
  for (kel_nn_kit_scratch_t* kept : {static_cast<kel_nn_kit_scratch_t*>(nullptr), &scratch}) {
    Image small(20, 10, KEL_NN_KIT_RGB), large(40, 20, KEL_NN_KIT_RGB);
    small.use(kept);
    large.use(kept);
    ASSERT_EQ(kel_nn_kit_scale(&frame.frame, &small), 0);
    {
      const kelnn_test::NoMemory no_memory;
      EXPECT_EQ(kel_nn_kit_letterbox(&frame.frame, &large), KEL_NN_KIT_NO_MEMORY);
    }
    EXPECT_EQ(kel_nn_kit_letterbox(&frame.frame, &large), 0);
  }
  kel_nn_kit_scratch_free(&scratch);
}

// ----- Arguments ---------------------------------------------------------------------------------

TEST(KitArguments, AreChecked) {
  Bytes bytes(64), pixels(64);
  struct Case {
    const char* name;
    kel_nn_kit_frame_t frame;
    kel_nn_kit_image_t image;
  };
  const kel_nn_kit_frame_t frame = {bytes.data(), 4, 4, 0, KEL_NN_KIT_RGB, nullptr};
  const kel_nn_kit_image_t image = {pixels.data(), 4, 4, KEL_NN_KIT_RGB, nullptr};
  const kel_nn_kit_format_t no_format = static_cast<kel_nn_kit_format_t>(7);
  const Case cases[] = {
      {"no pixels", {nullptr, 4, 4, 0, KEL_NN_KIT_RGB, nullptr}, image},
      {"no width", {bytes.data(), 0, 4, 0, KEL_NN_KIT_RGB, nullptr}, image},
      {"negative height", {bytes.data(), 4, -4, 0, KEL_NN_KIT_RGB, nullptr}, image},
      {"too wide", {bytes.data(), KEL_NN_KIT_MAX_SIDE + 1, 4, 0, KEL_NN_KIT_RGB, nullptr}, image},
      {"stride below a row", {bytes.data(), 4, 4, 11, KEL_NN_KIT_RGB, nullptr}, image},
      {"huge stride", {bytes.data(), 4, 4, 65537, KEL_NN_KIT_RGB, nullptr}, image},
      {"no frame format", {bytes.data(), 4, 4, 0, no_format, nullptr}, image},
      {"NV12 without colour", {bytes.data(), 4, 1, 0, KEL_NN_KIT_NV12, nullptr}, image},
      {"no image memory", frame, {nullptr, 4, 4, KEL_NN_KIT_RGB, nullptr}},
      {"no image width", frame, {pixels.data(), 0, 4, KEL_NN_KIT_RGB, nullptr}},
      {"too high an image",
       frame,
       {pixels.data(), 4, KEL_NN_KIT_MAX_SIDE + 1, KEL_NN_KIT_RGB, nullptr}},
      {"an NV12 image", frame, {pixels.data(), 4, 4, KEL_NN_KIT_NV12, nullptr}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(kel_nn_kit_letterbox(&c.frame, &c.image), KEL_NN_KIT_INVALID);
    EXPECT_EQ(kel_nn_kit_scale(&c.frame, &c.image), KEL_NN_KIT_INVALID);
    EXPECT_EQ(kel_nn_kit_crop(&c.frame, {0, 0, 2, 2}, &c.image), KEL_NN_KIT_INVALID);
  }
  EXPECT_EQ(kel_nn_kit_letterbox(nullptr, &image), KEL_NN_KIT_INVALID);
  EXPECT_EQ(kel_nn_kit_letterbox(&frame, nullptr), KEL_NN_KIT_INVALID);
  kel_nn_kit_rect_t rect;
  EXPECT_EQ(kel_nn_kit_letterbox_rects({0, 4}, {4, 4}, &rect, &rect), KEL_NN_KIT_INVALID);
  EXPECT_EQ(kel_nn_kit_letterbox_rects({4, 4}, {4, 4}, nullptr, &rect), KEL_NN_KIT_INVALID);
}

}  // namespace
