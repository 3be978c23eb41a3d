// SPDX-License-Identifier: Apache-2.0
// The kit: letterboxing, scaling and cutting, from every format, at every edge.
#include <gmock/gmock.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <complex>
#include <random>

#include "kel_nn_grid_detector.h"
#include "kel_nn_kit.h"
#include "support/allocations.h"
#include "support/plain_resize.h"

bool operator==(const kel_nn_kit_rect_t& a, const kel_nn_kit_rect_t& b) {
  return a.x == b.x && a.y == b.y && a.w == b.w && a.h == b.h;
}
std::ostream& operator<<(std::ostream& out, const kel_nn_kit_rect_t& rect) {
  return out << "(" << rect.x << ", " << rect.y << ") " << rect.w << " x " << rect.h;
}

namespace {

using Bytes = std::vector<uint8_t>;
using Sample = std::function<int(int x, int y, int channel)>;
using namespace ::testing;

constexpr uint8_t kGuard = 0xee;
const kel_nn_kit_format_t kFormats[] = {KEL_NN_KIT_GREY, KEL_NN_KIT_RGB, KEL_NN_KIT_BGR,
                                        KEL_NN_KIT_NV12, KEL_NN_KIT_NV12_FULL};
const kel_nn_kit_format_t kImageFormats[] = {KEL_NN_KIT_GREY, KEL_NN_KIT_RGB, KEL_NN_KIT_BGR};

int channels_of(kel_nn_kit_format_t format) { return format == KEL_NN_KIT_GREY ? 1 : 3; }

int noise(int x, int y, int channel) {
  return (x * 89 + y * 151 + channel * 47 + x * y * 13) % 256;
}

// What `sample` gives in a rectangle, row by row.
Bytes picture(const kel_nn_kit_rect_t& r, int channels, const Sample& sample) {
  Bytes bytes;
  for (int y = r.y; y < r.y + r.h; ++y) {
    for (int i = 0; i < r.w * channels; ++i) {
      bytes.push_back(static_cast<uint8_t>(sample(r.x + i / channels, y, i % channels)));
    }
  }
  return bytes;
}

// An image with guard bytes around it.
class Image {
 public:
  Image(int width, int height, kel_nn_kit_format_t format, kel_nn_kit_scratch_t* scratch = nullptr)
      : bytes_(width * height * channels_of(format) + 64, kGuard) {
    image_ = {&bytes_[32], width, height, format, scratch};
  }
  const kel_nn_kit_image_t* operator&() const { return &image_; }
  Bytes pixels() const { return Bytes(bytes_.begin() + 32, bytes_.end() - 32); }
  ~Image() {
    EXPECT_THAT(Bytes(bytes_.begin(), bytes_.begin() + 32), Each(kGuard));
    EXPECT_THAT(Bytes(bytes_.end() - 32, bytes_.end()), Each(kGuard));
  }

 private:
  Bytes bytes_;
  kel_nn_kit_image_t image_;
};

// A frame whose memory ends with its last pixel, so that the address sanitizer sees every step over
// the edge; rows are padded with guard bytes. The colour of NV12 may lie elsewhere.
class Frame {
 public:
  Frame(kel_nn_kit_format_t format, int width, int height, int padding, const Sample& sample,
        bool is_separate = false) {
    const bool nv12 = format >= KEL_NN_KIT_NV12;
    const int channels = nv12 ? 1 : channels_of(format);
    const int stride = width * channels + padding;
    add_plane(&bytes_, {0, 0, width, height}, channels, stride, sample);
    if (nv12) {  // channels 1 and 2 of a sample at the top left of its 2 x 2 pixels
      if (!is_separate) bytes_.resize(stride * height, kGuard);
      add_plane(is_separate ? &chroma_ : &bytes_, {0, 0, width / 2, height / 2}, 2, stride,
                [&](int x, int y, int c) { return sample(2 * x, 2 * y, 1 + c); });
    }
    frame = {bytes_.data(),        width,  height,
             padding ? stride : 0, format, chroma_.empty() ? nullptr : chroma_.data()};
  }
  Frame(const Frame&) = delete;

  kel_nn_kit_frame_t frame;

 private:
  static void add_plane(Bytes* to, const kel_nn_kit_rect_t& size, int channels, int stride,
                        const Sample& sample) {
    for (int y = 0; y < size.h; ++y) {
      if (y > 0) to->resize(to->size() + stride - size.w * channels, kGuard);
      const Bytes row = picture({0, y, size.w, 1}, channels, sample);
      to->insert(to->end(), row.begin(), row.end());
    }
    to->shrink_to_fit();
  }

  Bytes bytes_, chroma_;
};

int limited(int value) { return std::min(std::max(value, 0), 255); }

// What an image holds where the frame, brought to the image's size, holds `at` in its own format.
Bytes plain_image(kel_nn_kit_format_t format, const kel_nn_size_t& size, kel_nn_kit_format_t wanted,
                  const Sample& at) {
  const auto value = [&](int x, int y, int channel) {
    const int colour = wanted == KEL_NN_KIT_BGR ? 2 - channel : channel;  // 0 is red
    if (format == KEL_NN_KIT_GREY) return at(x, y, 0);
    if (format >= KEL_NN_KIT_NV12) {
      const bool full = format == KEL_NN_KIT_NV12_FULL;
      const int c = (full ? 256 * at(x, y, 0) : 298 * (at(x, y, 0) - 16)) + 128;
      if (wanted == KEL_NN_KIT_GREY) return limited(c >> 8);
      const int d = at(x, y, 1) - 128, e = at(x, y, 2) - 128;
      if (colour == 1) return limited((c - (full ? 88 : 100) * d - (full ? 183 : 208) * e) >> 8);
      return limited((c + (colour == 0 ? (full ? 359 : 409) * e : (full ? 454 : 516) * d)) >> 8);
    }
    const int red = format == KEL_NN_KIT_RGB ? 0 : 2;
    if (wanted != KEL_NN_KIT_GREY) return at(x, y, red == 0 ? colour : 2 - colour);
    return (77 * at(x, y, red) + 150 * at(x, y, 1) + 29 * at(x, y, 2 - red) + 128) >> 8;
  };
  return picture({0, 0, size.w, size.h}, channels_of(wanted), value);
}

// A plane's rectangle at another size; what is a single pixel wide or high is there twice.
Sample scaled(const kel_nn_kit_rect_t& r, int channels, const kel_nn_size_t& to,
              const Sample& sample) {
  const kel_nn_kit_rect_t from = {r.x, r.y, std::max(r.w, 2), std::max(r.h, 2)};
  const Bytes source = picture(from, channels, [&](int x, int y, int c) {
    return sample(std::min(x, r.x + r.w - 1), std::min(y, r.y + r.h - 1), c);
  });
  Bytes result(to.w * to.h * channels);
  const int stride = to.w * channels;
  kelnn_test::plain_resize(channels, source.data(), from.w, from.h, from.w * channels,
                           result.data(), to.w, to.h, stride);
  return [=](int x, int y, int c) { return result[y * stride + x * channels + c]; };
}

// ----- Where the frame lies ----------------------------------------------------------------------

TEST(KitLetterbox, PlacesTheFrameAndPadsAroundIt) {
  const struct {
    const char* name;
    kel_nn_size_t frame, image;
    kel_nn_kit_rect_t source, destination;
  } cases[] = {
      {"16:9: 234 rows", {640, 360}, {416, 256}, {0, 0, 640, 360}, {0, 11, 416, 234}},
      {"portrait", {360, 640}, {256, 416}, {0, 0, 360, 640}, {11, 0, 234, 416}},
      {"square", {480, 480}, {320, 320}, {0, 0, 480, 480}, {0, 0, 320, 320}},
      // 312 rows for 256; 28 / 0.65 = 43.1 are cut off.
      {"4:3", {640, 480}, {416, 256}, {0, 43, 640, 394}, {0, 0, 416, 256}},
      // 3 rows less, 0.08 of one off.
      {"pad 19.67, large", {3840, 2000}, {416, 256}, {0, 3, 3840, 1994}, {0, 20, 416, 216}},
      // 0.4 and 0.2 rows of the image off.
      {"pad 65.6, small", {100, 30}, {416, 256}, {0, 0, 100, 30}, {0, 66, 416, 124}},
      {"pad 65.2, small", {1000, 302}, {4160, 1387}, {0, 0, 1000, 302}, {0, 65, 4160, 1257}},
      // Half a row of the image is 1.5 of the frame.
      {"pad 5.5, smaller", {640, 360}, {208, 128}, {0, 2, 640, 356}, {0, 6, 208, 116}},
      {"pad 0.4, enlarged", {8, 4}, {21, 11}, {0, 0, 8, 4}, {0, 0, 21, 11}},
      {"odd sizes", {7, 3}, {21, 13}, {0, 0, 7, 3}, {0, 2, 21, 9}},
      {"1.04 rows: 2 in the middle", {4000, 10}, {416, 256}, {0, 0, 4000, 10}, {0, 127, 416, 2}},
      {"a row", {416, 1}, {416, 255}, {0, 0, 416, 1}, {0, 127, 416, 1}},
      {"one pixel", {1, 1}, {1, 1}, {0, 0, 1, 1}, {0, 0, 1, 1}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    kel_nn_kit_rect_t source, destination;
    ASSERT_EQ(kel_nn_kit_letterbox_rects(c.frame, c.image, &source, &destination), 0);
    EXPECT_EQ(source, c.source);
    EXPECT_EQ(destination, c.destination);
    if (c.frame.w >= 1000 || c.frame.h < 2) continue;
    const Frame white(KEL_NN_KIT_GREY, c.frame.w, c.frame.h, 3, [](int, int, int) { return 255; });
    for (kel_nn_kit_format_t format : {KEL_NN_KIT_GREY, KEL_NN_KIT_RGB}) {
      Image image(c.image.w, c.image.h, format);
      ASSERT_EQ(kel_nn_kit_letterbox(&white.frame, &image), 0);
      const auto expected = [&c](int x, int y, int) {
        const int column = x - c.destination.x, row = y - c.destination.y;
        const bool columns = 0 <= column && column < c.destination.w;
        return columns && 0 <= row && row < c.destination.h ? 255 : KEL_NN_KIT_PADDING;
      };
      EXPECT_TRUE(image.pixels() ==
                  picture({0, 0, c.image.w, c.image.h}, channels_of(format), expected));
    }
  }
}

// Rectangles go through the letterbox as formulas, and back through the library with the detector's rounding.
TEST(KitRoundTrip, IsOffBy3PixelsAtMost) {
  std::mt19937 random(20230307);
  const auto below = [&](int limit) { return static_cast<int>(random() % unsigned(limit)); };
  const kel_nn_size_t frames[] = {{640, 360}, {641, 359}, {1920, 1080}, {640, 480},  {1280, 1024},
                                  {97, 61},   {416, 256}, {2304, 1296}, {480, 480},  {100, 100},
                                  {359, 641}, {75, 131},  {481, 640},   {1999, 2000}};
  for (const kel_nn_size_t& frame : frames) {
    SCOPED_TRACE(Message() << frame.w << " x " << frame.h);
    const kel_nn_size_t input = kel_nn_kit_detector_input(frame.w, frame.h);
    kel_nn_kit_rect_t from, to;
    ASSERT_EQ(kel_nn_kit_letterbox_rects(frame, input, &from, &to), 0);
    const double scale = 1.0 * std::max(input.w, input.h) / std::max(frame.w, frame.h);
    const int shortest = std::max(2, static_cast<int>(std::ceil(3 / scale)));
    for (int i = 0; i < 500; ++i) {
      const int w = shortest + below(from.w - shortest), h = shortest + below(from.h - shortest);
      const int x = from.x + below(from.w - w + 1), y = from.y + below(from.h - h + 1);
      const float across = 1.0f * to.w / from.w, down = 1.0f * to.h / from.h;
      kel_nn_box_t box = {to.x + (x - from.x + w * 0.5f) * across,
                          to.y + (y - from.y + h * 0.5f) * down,
                          w * across,
                          h * down,
                          1,
                          0};  // what a detector would report
      kelnn::map_to_frame(&box, 1, frame, input, &box);
      const kel_nn_kit_rect_t found = kel_nn_kit_rect_of_box(&box);
      for (const int off :
           {found.x - x, found.y - y, found.x + found.w - x - w, found.y + found.h - y - h})
        ASSERT_LE(std::abs(off), 3);
    }
  }
}

// ----- Formats -----------------------------------------------------------------------------------

TEST(KitFormats, ColoursByHand) {
  const struct {
    const char* name;
    kel_nn_kit_format_t format;
    int samples[3];
    Bytes rgb;
    uint8_t grey;
  } cases[] = {
      {"(770 + 16500 + 6090 + 128) / 256", KEL_NN_KIT_RGB, {10, 110, 210}, {10, 110, 210}, 91},
      {"(16170 + 16500 + 290 + 128) / 256", KEL_NN_KIT_BGR, {10, 110, 210}, {210, 110, 10}, 129},
      {"grey", KEL_NN_KIT_GREY, {77, 0, 0}, {77, 77, 77}, 77},
      {"black", KEL_NN_KIT_NV12, {16, 128, 128}, {0, 0, 0}, 0},
      {"white", KEL_NN_KIT_NV12, {235, 128, 128}, {255, 255, 255}, 255},
      {"below black", KEL_NN_KIT_NV12, {0, 128, 128}, {0, 0, 0}, 0},
      {"above white", KEL_NN_KIT_NV12, {255, 128, 128}, {255, 255, 255}, 255},
      // (29800 + 10 * 409, - 20 * 100 - 10 * 208, + 20 * 516 each + 128) / 256
      {"a colour", KEL_NN_KIT_NV12, {116, 148, 138}, {132, 100, 157}, 116},
      {"full: black", KEL_NN_KIT_NV12_FULL, {0, 128, 128}, {0, 0, 0}, 0},
      {"full: white", KEL_NN_KIT_NV12_FULL, {255, 128, 128}, {255, 255, 255}, 255},
      // (29696 + 10 * 359, - 20 * 88 - 10 * 183, + 20 * 454 each + 128) / 256
      {"full: a colour", KEL_NN_KIT_NV12_FULL, {116, 148, 138}, {130, 102, 151}, 116},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const Frame frame(c.format, 4, 2, 5, [&c](int, int, int k) { return c.samples[k]; });
    const Bytes pixels[] = {{c.grey}, c.rgb, Bytes(c.rgb.rbegin(), c.rgb.rend())};
    for (int i : {0, 1, 2}) {
      Image image(5, 7, kImageFormats[i]);
      ASSERT_EQ(kel_nn_kit_scale(&frame.frame, &image), 0);
      EXPECT_EQ(image.pixels(), picture({0, 0, 5, 7}, channels_of(kImageFormats[i]),
                                        [&](int, int, int k) { return pixels[i][k]; }));
    }
  }
}

// Every rectangle of small frames, in its own size and enlarged, and all of larger ones; by turns rows
// packed and padded, colour behind the rest and elsewhere, scratch of the call's own and kept.
TEST(KitFormats, PlanesAreScaledAndConvertedAfter) {
  struct Case {
    kel_nn_size_t frame;
    kel_nn_kit_rect_t rect;
    kel_nn_size_t image;
  };
  std::vector<Case> cases;
  for (const auto& [w, h] : {std::pair{2, 2}, {3, 3}, {2, 5}, {5, 2}, {33, 17}, {35, 64}}) {
    cases.push_back({{w, h}, {0, 0, w, h}, {40, 25}});
  }
  for (const kel_nn_size_t& frame : {kel_nn_size_t{5, 4}, {4, 5}}) {
    for (int i = 0; i < 20 * 20; ++i) {  // from one pixel to another
      const int x = i % frame.w, y = i / frame.w % frame.h;
      const int w = i / 20 % frame.w - x + 1, h = i / 20 / frame.w - y + 1;
      if (w < 1 || h < 1) continue;
      cases.push_back({frame, {x, y, w, h}, {w, h}});
      cases.push_back({frame, {x, y, w, h}, {7, 3}});
    }
  }
  // A pixel's U,V pair: the last column and row of an odd size have none of their own.
  const auto pair = [](int pixel, int pixels) { return std::min(pixel / 2, pixels / 2 - 1); };
  kel_nn_kit_scratch_t scratch = {nullptr, 0};
  int turn = 0;
  for (kel_nn_kit_format_t format : kFormats) {
    const bool nv12 = format >= KEL_NN_KIT_NV12;
    for (const auto& [size, r, to] : cases) {
      const kel_nn_kit_format_t wanted = kImageFormats[++turn % 3];
      SCOPED_TRACE(Message() << format << " to " << wanted << ": " << r << " of " << size.w << " x "
                             << size.h << " to " << to.w << " x " << to.h);
      const int left = pair(r.x, size.w), top = pair(r.y, size.h);
      const kel_nn_kit_rect_t pairs = {left, top, pair(r.x + r.w - 1, size.w) - left + 1,
                                       pair(r.y + r.h - 1, size.h) - top + 1};
      const Sample first = scaled(r, nv12 ? 1 : channels_of(format), to, noise);
      const Sample chroma = scaled(pairs, 2, {(to.w + 1) / 2, (to.h + 1) / 2},
                                   [](int x, int y, int c) { return noise(2 * x, 2 * y, 1 + c); });
      const Frame frame(format, size.w, size.h, turn % 4 / 2 * 13, noise, turn % 5 == 0);
      Image image(to.w, to.h, wanted, turn % 2 ? &scratch : nullptr);
      ASSERT_EQ(kel_nn_kit_crop(&frame.frame, r, &image), 0);
      ASSERT_TRUE(image.pixels() == plain_image(format, to, wanted, [&](int x, int y, int c) {
                    return nv12 && c > 0 ? chroma(x / 2, y / 2, c - 1) : first(x, y, c);
                  }));
    }
  }
  kel_nn_kit_scratch_free(&scratch);
  EXPECT_THAT(scratch, FieldsAre(nullptr, 0u));
  kel_nn_kit_scratch_free(nullptr);
}

// ----- Rectangles --------------------------------------------------------------------------------

TEST(KitCrop, CutsAtTheEdges) {
  const Frame frame(KEL_NN_KIT_RGB, 9, 7, 2, noise);
  const struct {
    const char* name;
    kel_nn_kit_rect_t rect, visible;
  } cases[] = {
      {"beyond the top left", {-3, -2, 5, 5}, {0, 0, 2, 3}},
      {"beyond the bottom right", {6, 5, 10, 10}, {6, 5, 3, 2}},
      {"beyond everything", {-100, -100, 1000, 1000}, {0, 0, 9, 7}},
      {"the largest numbers", {-INT_MAX, 1, INT_MAX, INT_MAX}, {}},
      {"the largest size", {1, 2, INT_MAX, INT_MAX}, {1, 2, 8, 5}},
      {"left of it", {-5, 0, 5, 7}, {}},
      {"right of it", {9, 0, 5, 7}, {}},
      {"above", {0, -5, 5, 5}, {}},
      {"below", {0, 7, 5, 5}, {}},
      {"no width", {3, 3, 0, 3}, {}},
      {"negative height", {3, 3, 3, -1}, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const bool outside = c.visible.w == 0;
    Image image(outside ? 4 : c.visible.w, outside ? 4 : c.visible.h, KEL_NN_KIT_RGB);
    EXPECT_EQ(kel_nn_kit_crop(&frame.frame, c.rect, &image), outside ? KEL_NN_KIT_OUTSIDE : 0);
    // In its own size, pixel for pixel; or untouched.
    EXPECT_EQ(image.pixels(), outside ? Bytes(48, kGuard) : picture(c.visible, 3, noise));
  }
}

TEST(KitRect, OfABox) {
  const struct {
    const char* name;
    kel_nn_box_t box;
    kel_nn_kit_rect_t rect;
  } cases[] = {
      {"even size", {320, 180, 100, 180, 1, 0}, {270, 90, 100, 180}},
      {"odd size, the centre rounded down: 10 to 15", {12, 12, 5, 5, 1, 0}, {10, 10, 5, 5}},
      {"fractions, as of faces", {10.25f, 20.75f, 5.0f, 6.0f, 1, 0}, {8, 18, 5, 6}},
      {"beyond an int", {0, 0, 1e20f, 1e20f, 1, 0}, {-INT_MAX, -INT_MAX, INT_MAX, INT_MAX}},
      {"width -1, as at the left edge", {0, 180, -1, 180, 1, 0}, {}},
      {"NaN", {NAN, 180, 10, 180, 1, 0}, {}},
      {"NaN size", {100, 180, 10, NAN, 1, 0}, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(kel_nn_kit_rect_of_box(&c.box), c.rect);
  }
  EXPECT_EQ(kel_nn_kit_rect_of_box(nullptr), kel_nn_kit_rect_t{});
  EXPECT_EQ(kel_nn_kit_centre_square({0, 0, 640, 480}), (kel_nn_kit_rect_t{80, 0, 480, 480}));
  EXPECT_EQ(kel_nn_kit_centre_square({10, 20, 5, 8}), (kel_nn_kit_rect_t{10, 21, 5, 5}));
  EXPECT_EQ(kel_nn_kit_centre_square({3, 3, 0, 5}), (kel_nn_kit_rect_t{3, 5, 0, 0}));
}

// ----- Faces -------------------------------------------------------------------------------------

constexpr double kAligned[] = {38.4, 51.6, 73.6, 51.6, 56.0, 71.7, 41.4, 92.3, 70.6, 92.3};

struct Turn {
  double a, b, left, top;  // from the image's places to the frame's

  double x(double u, double v) const { return a * u - b * v + left; }
  double y(double u, double v) const { return b * u + a * v + top; }
};

std::vector<float> points_at(const Turn& turn) {
  std::vector<float> points;
  for (int i = 0; i < 10; i += 2) {
    points.push_back(static_cast<float>(turn.x(kAligned[i], kAligned[i + 1])));
    points.push_back(static_cast<float>(turn.y(kAligned[i], kAligned[i + 1])));
  }
  return points;
}

// From the centred points' products, as complex numbers: frame = turn * image.
Turn plain_fit(const std::vector<float>& points, double scale) {
  using Place = std::complex<double>;
  const auto here = [&](int i) { return Place(points[2 * i], points[2 * i + 1]); };
  const auto there = [&](int i) { return Place(kAligned[2 * i], kAligned[2 * i + 1]) * scale; };
  Place middle_here, middle_there, product;
  double extent = 0;
  for (int i = 0; i < 5; ++i) middle_here += here(i) / 5.0, middle_there += there(i) / 5.0;
  for (int i = 0; i < 5; ++i) {
    product += std::conj(here(i) - middle_here) * (there(i) - middle_there);
    extent += std::norm(here(i) - middle_here);
  }
  const Place turn = extent / product, left_top = middle_here - turn * middle_there;
  return {turn.real(), turn.imag(), left_top.real(), left_top.imag()};
}

// A channel of a plane between its four pixels.
int plain_sample(const kel_nn_size_t& size, double x, double y, const Sample& sample, int channel) {
  x = std::min(std::max(x - 0.5, 0.0), size.w - 1.0);
  y = std::min(std::max(y - 0.5, 0.0), size.h - 1.0);
  const int left = static_cast<int>(x), top = static_cast<int>(y);
  const auto along = [&](int row) {
    const int first = sample(left, row, channel),
              second = sample(std::min(left + 1, size.w - 1), row, channel);
    return first + (second - first) * (x - left);
  };
  const double upper = along(top), lower = along(std::min(top + 1, size.h - 1));
  return static_cast<int>(upper + (lower - upper) * (y - top) + 0.5);
}

const Turn kTurns[] = {
    {1, 0, 0, 0},                // the face in its place
    {0.5, 0.2, 3, 1},            // turned and enlarged
    {-0.3, 0.31, 40, -7},        // nearly on its head, beyond the edges
    {3.1, -1.4, -200, -90},      // larger than the frame
    {1e-3, 2e-3, 20.25, 11.75},  // all at one pixel
    {0, -2.5, 1e6, -1e6},        // far outside
};

TEST(KitAlignment, IsTheLeastSquaresTransformAndBilinear) {
  std::mt19937 random(20261123);
  for (const Turn& turn : kTurns) {
    for (kel_nn_kit_format_t format : kFormats) {
      const kel_nn_size_t size = {57, 43}, half = {28, 21};
      const Frame frame(format, size.w, size.h, 5, noise);
      std::vector<float> points = points_at(turn);
      // No similarity fits these.
      const float off = static_cast<float>(std::hypot(turn.a, turn.b)) / 100;
      for (float& place : points) place += off * static_cast<float>(random() % 801 - 400.0);
      for (kel_nn_kit_format_t wanted : kImageFormats) {
        const int side = wanted == KEL_NN_KIT_BGR ? 31 : 24;
        SCOPED_TRACE(::testing::Message() << format << " to " << wanted << ", " << turn.a);
        const Turn fit = plain_fit(points, side / 112.0);
        const Turn half_fit = {fit.a, fit.b, fit.left / 2, fit.top / 2};
        const auto at = [&](int x, int y, int channel) {  // of the frame, in its own format
          const bool is_pair = format >= KEL_NN_KIT_NV12 && channel > 0;
          const Turn& by = is_pair ? half_fit : fit;
          const int step = is_pair ? 2 : 1;
          const double u = x / step + 0.5, v = y / step + 0.5;
          return plain_sample(
              is_pair ? half : size, by.x(u, v), by.y(u, v),
              [step](int i, int j, int c) { return noise(step * i, step * j, c); }, channel);
        };
        Image image(side, side, wanted);
        ASSERT_EQ(kel_nn_kit_align_face(&frame.frame, points.data(), &image), 0);
        ASSERT_TRUE(image.pixels() == plain_image(format, {side, side}, wanted, at));
      }
    }
  }
}

TEST(KitAlignment, RefusesPointsOfNoFace) {
  const Frame frame(KEL_NN_KIT_GREY, 20, 20, 0, noise);
  const std::vector<float> face = points_at({1, 0, 0, 0});
  const auto with = [&](size_t i, float value) {
    std::vector<float> points = face;
    points[i] = value;
    return points;
  };
  std::vector<float> mirrored = face, upright = face, huge = face;
  for (size_t i = 0; i < 10; i += 2) mirrored[i] = 112 - mirrored[i], upright[i] = 7;
  for (float& place : huge) place *= 1e36f;
  const struct {
    const char* name;
    std::vector<float> points;
    int result;
  } cases[] = {
      {"NaN", with(3, NAN), KEL_NN_KIT_NO_FACE},
      {"infinite", with(8, -INFINITY), KEL_NN_KIT_NO_FACE},
      {"all at one place", std::vector<float>(10, 33.3f), KEL_NN_KIT_NO_FACE},
      {"left and right exchanged", mirrored, KEL_NN_KIT_NO_FACE},
      {"a profile", upright, 0},
      {"as large as numbers go", huge, 0},
      {"too far to fit", with(0, 3e38f), KEL_NN_KIT_NO_FACE},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Image image(9, 9, KEL_NN_KIT_GREY);
    EXPECT_EQ(kel_nn_kit_align_face(&frame.frame, c.points.data(), &image), c.result);
    EXPECT_EQ(image.pixels() == Bytes(81, kGuard), c.result != 0);
  }
}

// ----- Memory and arguments ----------------------------------------------------------------------

// Every way from a format to a format, of a whole frame and of a single column of it, which is doubled.
TEST(KitMemory, NothingIsAllocatedOnceScratchHasGrownAndWithoutMemoryACallFails) {
  kel_nn_kit_scratch_t scratch = {nullptr, 0};
  for (const bool has_grown : {false, true}) {
    for (int way = 0; way < 5 * 3 * 2; ++way) {
      SCOPED_TRACE(way);
      const Frame frame(kFormats[way / 6], 64, 36, 3, noise);
      Image image(41, 25, kImageFormats[way / 2 % 3], &scratch);
      const kel_nn_kit_rect_t rect = {way % 2 * 63, 2, way % 2 ? 1 : 64, 33};
      const long before = kelnn_test::allocation_count();
      ASSERT_EQ(kel_nn_kit_crop(&frame.frame, rect, &image), 0);
      EXPECT_TRUE(!has_grown || kelnn_test::allocation_count() == before);
    }
  }
  EXPECT_GE(scratch.size, 3u * 41 * 25);
  const Frame frame(KEL_NN_KIT_NV12, 64, 36, 0, noise);
  for (kel_nn_kit_scratch_t* kept : {static_cast<kel_nn_kit_scratch_t*>(nullptr), &scratch}) {
    Image large(80, 50, KEL_NN_KIT_RGB, kept);
    {
      const kelnn_test::NoMemory no_memory;
      EXPECT_EQ(kel_nn_kit_letterbox(&frame.frame, &large), KEL_NN_KIT_NO_MEMORY);
    }
    EXPECT_EQ(kel_nn_kit_letterbox(&frame.frame, &large), 0);
  }
  kel_nn_kit_scratch_free(&scratch);
}

TEST(KitArguments, AreChecked) {
  Bytes bytes(64), pixels(64);
  const auto in = [&](int w, int h, int stride, kel_nn_kit_format_t format) {
    return kel_nn_kit_frame_t{bytes.data(), w, h, stride, format, nullptr};
  };
  const auto out = [&](int w, int h, kel_nn_kit_format_t format) {
    return kel_nn_kit_image_t{pixels.data(), w, h, format, nullptr};
  };
  const kel_nn_kit_frame_t frame = in(4, 4, 0, KEL_NN_KIT_RGB);
  const kel_nn_kit_image_t image = out(4, 4, KEL_NN_KIT_RGB);
  const int too_long = KEL_NN_KIT_MAX_SIDE + 1;
  const struct {
    const char* name;
    kel_nn_kit_frame_t frame;
    kel_nn_kit_image_t image;
  } cases[] = {
      {"no pixels", {nullptr, 4, 4, 0, KEL_NN_KIT_RGB, nullptr}, image},
      {"no width", in(0, 4, 0, KEL_NN_KIT_RGB), image},
      {"negative height", in(4, -4, 0, KEL_NN_KIT_RGB), image},
      {"too wide", in(too_long, 4, 0, KEL_NN_KIT_RGB), image},
      {"stride below a row", in(4, 4, 11, KEL_NN_KIT_RGB), image},
      {"huge stride", in(4, 4, 65537, KEL_NN_KIT_RGB), image},
      {"no frame format", in(4, 4, 0, static_cast<kel_nn_kit_format_t>(7)), image},
      {"NV12 without colour", in(4, 1, 0, KEL_NN_KIT_NV12), image},
      {"no image memory", frame, {nullptr, 4, 4, KEL_NN_KIT_RGB, nullptr}},
      {"no image width", frame, out(0, 4, KEL_NN_KIT_RGB)},
      {"too high an image", frame, out(4, too_long, KEL_NN_KIT_RGB)},
      {"an NV12 image", frame, out(4, 4, KEL_NN_KIT_NV12)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(kel_nn_kit_letterbox(&c.frame, &c.image), KEL_NN_KIT_INVALID);
    EXPECT_EQ(kel_nn_kit_scale(&c.frame, &c.image), KEL_NN_KIT_INVALID);
    EXPECT_EQ(kel_nn_kit_crop(&c.frame, {0, 0, 2, 2}, &c.image), KEL_NN_KIT_INVALID);
    const std::vector<float> points = points_at({1, 0, 0, 0});
    EXPECT_EQ(kel_nn_kit_align_face(&c.frame, points.data(), &c.image), KEL_NN_KIT_INVALID);
  }
  kel_nn_kit_rect_t rect;
  for (const int result :
       {kel_nn_kit_letterbox(nullptr, &image), kel_nn_kit_letterbox(&frame, nullptr),
        kel_nn_kit_align_face(&frame, nullptr, &image),
        kel_nn_kit_letterbox_rects({0, 4}, {4, 4}, &rect, &rect),
        kel_nn_kit_letterbox_rects({4, 4}, {4, 4}, nullptr, &rect)}) {
    EXPECT_EQ(result, KEL_NN_KIT_INVALID);
  }
}

}  // namespace
