// SPDX-License-Identifier: Apache-2.0
// From a frame to a task's input: which rectangle of the frame fills which rectangle of the image,
// then the same scaling and conversion for everything.
#include "kel_nn_kit.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "kel_nn_compiler.h"
#include "kel_nn_float_rules.h"

namespace {

// ----- Memory ------------------------------------------------------------------------------------

// One call's scratch: the caller's, grown to `size` bytes where it is smaller, or its own.
class Scratch {
 public:
  Scratch(kel_nn_kit_scratch_t* kept, size_t size) : used_(kept ? kept : &own_) {
    if (used_->size >= size) return;
    kel_nn_kit_scratch_free(used_);  // nothing in it is worth copying
    used_->data = std::malloc(size);
    if (used_->data) used_->size = size;
  }
  ~Scratch() { kel_nn_kit_scratch_free(&own_); }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  bool has(size_t size) const { return used_->size >= size; }
  uint8_t* bytes() const { return static_cast<uint8_t*>(used_->data); }

 private:
  kel_nn_kit_scratch_t own_ = {nullptr, 0};
  kel_nn_kit_scratch_t* used_;
};

// ----- Planes ------------------------------------------------------------------------------------

struct Plane {
  const uint8_t* pixels;
  int width, height, stride, channels;
};

struct Destination {
  uint8_t* pixels;
  int width, height, stride;

  uint8_t* row(int y) const { return pixels + static_cast<ptrdiff_t>(stride) * y; }
};

Plane part_of(const Plane& plane, const kel_nn_kit_rect_t& rect) {
  const uint8_t* first = plane.pixels + static_cast<ptrdiff_t>(plane.stride) * rect.y +
                         static_cast<ptrdiff_t>(plane.channels) * rect.x;
  return {first, rect.w, rect.h, plane.stride, plane.channels};
}

size_t size_of(int width, int height, int channels) {
  return static_cast<size_t>(width) * static_cast<size_t>(height) * static_cast<size_t>(channels);
}

// The library needs 2 x 2 pixels to interpolate between: a single row is read twice, a single column
// doubled, for which it needs this many bytes.
size_t doubled_size(const Plane& plane) {
  return plane.width == 1 ? size_of(2, std::max(plane.height, 2), plane.channels) : 0;
}

void resize(Plane plane, uint8_t* doubled, const Destination& to) {
  if (plane.height == 1) {
    plane.height = 2;
    plane.stride = 0;
  }
  if (plane.width == 1) {
    const size_t pixel_bytes = static_cast<size_t>(plane.channels);
    uint8_t* pixel = doubled;
    for (int y = 0; y < plane.height; ++y) {
      const uint8_t* from = plane.pixels + static_cast<ptrdiff_t>(plane.stride) * y;
      for (int i = 0; i < 2; ++i, pixel += pixel_bytes) std::memcpy(pixel, from, pixel_bytes);
    }
    plane = {doubled, 2, plane.height, 2 * plane.channels, plane.channels};
  }
  const auto function = plane.channels == 1   ? resize_bilinear_c1
                        : plane.channels == 2 ? resize_bilinear_c2
                                              : resize_bilinear_c3;
  function(plane.pixels, plane.width, plane.height, plane.stride, to.pixels, to.width, to.height,
           to.stride);
}

// ----- Turned planes -----------------------------------------------------------------------------

// From places in the image to places in a plane: x, y to (a x - b y + left, b x + a y + top). Places
// are those of edges: the middle of the first pixel is (0.5, 0.5).
struct Similarity {
  double a, b, left, top;
};

// The two pixels of a row or column around a place, and how far it is from the first to the second;
// beyond the edges the outermost pixel twice.
struct Neighbours {
  int first, second;
  double part;
};
Neighbours neighbours(double place, int size) {
  const double position = std::min(std::max(place - 0.5, 0.0), static_cast<double>(size - 1));
  const int first = static_cast<int>(position);
  return {first, std::min(first + 1, size - 1), position - first};
}

void turn(const Plane& plane, const Similarity& to_plane, const Destination& to) {
  const Similarity by = to_plane;
  for (int y = 0; y < to.height; ++y) {
    uint8_t* pixel = to.row(y);
    for (int x = 0; x < to.width; ++x) {
      const double u = x + 0.5, v = y + 0.5;
      const Neighbours column = neighbours(by.a * u - by.b * v + by.left, plane.width);
      const Neighbours row = neighbours(by.b * u + by.a * v + by.top, plane.height);
      const uint8_t* above = plane.pixels + static_cast<ptrdiff_t>(plane.stride) * row.first;
      const uint8_t* below = plane.pixels + static_cast<ptrdiff_t>(plane.stride) * row.second;
      const int left = column.first * plane.channels, right = column.second * plane.channels;
      for (int i = 0; i < plane.channels; ++i) {
        const double upper = above[left + i] + (above[right + i] - above[left + i]) * column.part;
        const double lower = below[left + i] + (below[right + i] - below[left + i]) * column.part;
        // NOLINTNEXTLINE(bugprone-incorrect-roundings): from 0 on, half up as promised
        *pixel++ = static_cast<uint8_t>(upper + (lower - upper) * row.part + 0.5);
      }
    }
  }
}

// ----- Pixels ------------------------------------------------------------------------------------

// BT.601 in 256ths; the formulas are in the header.
struct YuvWeights {
  int black, luma, v_to_red, u_to_green, v_to_green, u_to_blue;
};
constexpr YuvWeights kVideoRange = {16, 298, 409, 100, 208, 516};
constexpr YuvWeights kFullRange = {0, 256, 359, 88, 183, 454};

inline uint8_t limited(int value) {
  return static_cast<uint8_t>(std::min(std::max(value, 0), 255));
}

template <int kRed>  // its place in a pixel: 0 for RGB, 2 for BGR
KEL_NN_ALWAYS_INLINE void colour_row(const uint8_t* luma, const uint8_t* chroma,
                                     const YuvWeights& weights, int width,
                                     uint8_t* __restrict row) {
  const YuvWeights by = weights;
  const auto convert = [&](int x, int pair) KEL_NN_INLINED {
    const int c = by.luma * (luma[x] - by.black) + 128;
    const int d = chroma[2 * pair] - 128, e = chroma[2 * pair + 1] - 128;
    row[3 * x + kRed] = limited((c + by.v_to_red * e) >> 8);
    row[3 * x + 1] = limited((c - by.u_to_green * d - by.v_to_green * e) >> 8);
    row[3 * x + 2 - kRed] = limited((c + by.u_to_blue * d) >> 8);
  };
  const int pair_count = width / 2;
  for (int pair = 0; pair < pair_count; ++pair) {
    convert(2 * pair, pair);
    convert(2 * pair + 1, pair);
  }
  if (width % 2 != 0) convert(width - 1, pair_count);
}

KEL_NN_TARGET_CLONES void rgb_row(const uint8_t* luma, const uint8_t* chroma,
                                  const YuvWeights& weights, int width, uint8_t* row) {
  colour_row<0>(luma, chroma, weights, width, row);
}

KEL_NN_TARGET_CLONES void bgr_row(const uint8_t* luma, const uint8_t* chroma,
                                  const YuvWeights& weights, int width, uint8_t* row) {
  colour_row<2>(luma, chroma, weights, width, row);
}

KEL_NN_TARGET_CLONES void stretch_luma(const YuvWeights& weights, int width, uint8_t* row) {
  const YuvWeights by = weights;
  for (int x = 0; x < width; ++x) row[x] = limited((by.luma * (row[x] - by.black) + 128) >> 8);
}

void swap_red_and_blue(int width, uint8_t* row) {
  for (int x = 0; x < width; ++x, row += 3) std::swap(row[0], row[2]);
}

void spread_grey(const uint8_t* grey, int width, uint8_t* row) {
  for (int x = 0; x < width; ++x, row += 3) row[0] = row[1] = row[2] = grey[x];
}

void weigh_colours(const uint8_t* pixels, int red, int width, uint8_t* row) {
  for (int x = 0; x < width; ++x, pixels += 3) {
    row[x] = static_cast<uint8_t>(
        (77 * pixels[red] + 150 * pixels[1] + 29 * pixels[2 - red] + 128) >> 8);
  }
}

// ----- A frame's rectangle to an image's rectangle -----------------------------------------------

bool is_nv12(kel_nn_kit_format_t format) {
  return format == KEL_NN_KIT_NV12 || format == KEL_NN_KIT_NV12_FULL;
}

int channels_of(kel_nn_kit_format_t format) {  // of the first plane
  return format == KEL_NN_KIT_RGB || format == KEL_NN_KIT_BGR ? 3 : 1;
}

int stride_of(const kel_nn_kit_frame_t& frame) {
  return frame.stride != 0 ? frame.stride : frame.width * channels_of(frame.format);
}

Plane first_plane(const kel_nn_kit_frame_t& frame) {
  return {frame.data, frame.width, frame.height, stride_of(frame), channels_of(frame.format)};
}

Plane chroma_plane(const kel_nn_kit_frame_t& frame) {
  const int stride = stride_of(frame);
  const uint8_t* after_luma = frame.data + static_cast<ptrdiff_t>(stride) * frame.height;
  return {frame.chroma ? frame.chroma : after_luma, frame.width / 2, frame.height / 2, stride, 2};
}

// The U,V pairs of at least the given pixels; `rect` lies in the frame.
kel_nn_kit_rect_t chroma_rect(const Plane& chroma, const kel_nn_kit_rect_t& rect) {
  const int left = std::min(rect.x / 2, chroma.width - 1);
  const int top = std::min(rect.y / 2, chroma.height - 1);
  const int right = std::max(std::min((rect.x + rect.w + 1) / 2, chroma.width), left + 1);
  const int bottom = std::max(std::min((rect.y + rect.h + 1) / 2, chroma.height), top + 1);
  return {left, top, right - left, bottom - top};
}

// What of a frame is wanted: a rectangle, or all of it turned.
struct Source {
  kel_nn_kit_rect_t rect;
  const Similarity* turned;  // from the image's places to the frame's; null: the rectangle
};

void sample(const Plane& plane, const Similarity* turned, uint8_t* doubled, const Destination& to) {
  if (turned) {
    turn(plane, *turned, to);
  } else {
    resize(plane, doubled, to);
  }
}

// Both rectangles lie in their pictures and are not empty. False without memory.
bool render_nv12(const kel_nn_kit_frame_t& frame, const Source& source,
                 const kel_nn_kit_image_t& image, const Destination& to) {
  const YuvWeights& weights = frame.format == KEL_NN_KIT_NV12 ? kVideoRange : kFullRange;
  const Plane luma = part_of(first_plane(frame), source.rect);
  const Plane all_chroma = chroma_plane(frame);
  const Plane chroma = part_of(all_chroma, chroma_rect(all_chroma, source.rect));
  const bool grey = image.format == KEL_NN_KIT_GREY;
  // Half the size, as in a frame: colour has no detail that a network would miss.
  const int chroma_width = (to.width + 1) / 2, chroma_height = (to.height + 1) / 2;
  const size_t luma_size = grey ? 0 : size_of(to.width, to.height, 1);
  const size_t scaled_size = grey ? 0 : luma_size + size_of(chroma_width, chroma_height, 2);
  const size_t size = scaled_size + std::max(doubled_size(luma), doubled_size(chroma));
  const Scratch scratch(image.scratch, size);
  if (!scratch.has(size)) return false;
  uint8_t* const doubled = scratch.bytes() + scaled_size;
  if (grey) {
    sample(luma, source.turned, doubled, to);
    for (int y = 0; y < to.height; ++y) stretch_luma(weights, to.width, to.row(y));
    return true;
  }
  const Destination scaled_luma = {scratch.bytes(), to.width, to.height, to.width};
  const Destination scaled_chroma = {scratch.bytes() + luma_size, chroma_width, chroma_height,
                                     2 * chroma_width};
  sample(luma, source.turned, doubled, scaled_luma);
  if (source.turned) {  // image and frame have half the size in both directions
    const Similarity& by = *source.turned;
    turn(chroma, {by.a, by.b, by.left / 2, by.top / 2}, scaled_chroma);
  } else {
    resize(chroma, doubled, scaled_chroma);
  }
  const auto row_function = image.format == KEL_NN_KIT_RGB ? rgb_row : bgr_row;
  for (int y = 0; y < to.height; ++y) {
    row_function(scaled_luma.row(y), scaled_chroma.row(y / 2), weights, to.width, to.row(y));
  }
  return true;
}

bool render_interleaved(const kel_nn_kit_frame_t& frame, const Source& source,
                        const kel_nn_kit_image_t& image, const Destination& to) {
  const Plane part = part_of(first_plane(frame), source.rect);
  const bool in_place = part.channels == channels_of(image.format);
  const size_t scaled_size = in_place ? 0 : size_of(to.width, to.height, part.channels);
  const size_t size = scaled_size + doubled_size(part);
  const Scratch scratch(image.scratch, size);
  if (!scratch.has(size)) return false;
  Destination scaled = to;
  if (!in_place) scaled = {scratch.bytes(), to.width, to.height, to.width * part.channels};
  sample(part, source.turned, scratch.bytes() + scaled_size, scaled);
  if (frame.format == image.format) return true;
  for (int y = 0; y < to.height; ++y) {
    if (in_place) {
      swap_red_and_blue(to.width, to.row(y));
    } else if (image.format == KEL_NN_KIT_GREY) {
      const int red = frame.format == KEL_NN_KIT_RGB ? 0 : 2;
      weigh_colours(scaled.row(y), red, to.width, to.row(y));
    } else {
      spread_grey(scaled.row(y), to.width, to.row(y));
    }
  }
  return true;
}

int render(const kel_nn_kit_frame_t& frame, const Source& source, const kel_nn_kit_image_t& image,
           const kel_nn_kit_rect_t& destination) {
  const int channels = channels_of(image.format);
  const int stride = image.width * channels;
  uint8_t* first = image.data + static_cast<ptrdiff_t>(stride) * destination.y +
                   static_cast<ptrdiff_t>(channels) * destination.x;
  const Destination to = {first, destination.w, destination.h, stride};
  const auto render_frame = is_nv12(frame.format) ? render_nv12 : render_interleaved;
  return render_frame(frame, source, image, to) ? 0 : KEL_NN_KIT_NO_MEMORY;
}

// ----- Arguments ---------------------------------------------------------------------------------

// With this, both planes of NV12 are smaller than the largest 32-bit offset.
constexpr int kMaxStride = 4 * KEL_NN_KIT_MAX_SIDE;

bool is_side(int pixels) { return pixels >= 1 && pixels <= KEL_NN_KIT_MAX_SIDE; }

bool is_valid(const kel_nn_kit_frame_t* frame) {
  if (!frame || !frame->data || !is_side(frame->width) || !is_side(frame->height)) return false;
  const int format = frame->format;
  if (format < KEL_NN_KIT_GREY || format > KEL_NN_KIT_NV12_FULL) return false;
  if (is_nv12(frame->format) && (frame->width < 2 || frame->height < 2)) return false;
  if (frame->stride > kMaxStride) return false;
  return frame->stride == 0 || frame->stride >= frame->width * channels_of(frame->format);
}

bool is_valid(const kel_nn_kit_image_t* image) {
  if (!image || !image->data || !is_side(image->width) || !is_side(image->height)) return false;
  const int format = image->format;
  return format >= KEL_NN_KIT_GREY && format <= KEL_NN_KIT_BGR;
}

kel_nn_kit_rect_t whole(const kel_nn_kit_frame_t& frame) {
  return {0, 0, frame.width, frame.height};
}

kel_nn_kit_rect_t whole(const kel_nn_kit_image_t& image) {
  return {0, 0, image.width, image.height};
}

// ----- Letterbox ---------------------------------------------------------------------------------

// One direction: `source_size` pixels from `source` on fill `destination_size` from `destination`
// on, both in the middle.
struct Placement {
  int source, source_size, destination, destination_size;
};

Placement centred(int source, int frame_size, int destination, int image_size) {
  return {source, frame_size - 2 * source, destination, image_size - 2 * destination};
}

int rounded(double value) { return static_cast<int>(std::floor(value + 0.5)); }

// Losing the outermost pixels of the frame must gain more than this many pixels of its precision.
constexpr double kWorthwhileGain = 1.0 / 64;

// The detectors take the frame to start `pad` pixels into the image. Whole pixels of both that come
// near: with a negative pad the image starts inside the frame; else the frame starts at the pixel
// before, or at the pixel after without the frame's pixels that would come before that one.
Placement place(float scale, int frame_size, int image_size) {
  const float pad =
      (static_cast<float>(image_size) - scale * static_cast<float>(frame_size)) * 0.5f;
  if (pad < 0) {
    const int cut = std::min(rounded(-pad / double{scale}), (frame_size - 1) / 2);
    return centred(cut, frame_size, 0, image_size);
  }
  const int before = std::min(static_cast<int>(pad), (image_size - 1) / 2);
  const int after = before + 1;
  const int cut = rounded((after - double{pad}) / scale);
  const double error_before = (double{pad} - before) / scale;  // in pixels of the frame
  const double error_after = std::fabs((after - double{pad}) / scale - cut);
  const bool fits = 2 * after < image_size && 2 * cut < frame_size;
  if (fits && error_after + kWorthwhileGain < error_before) {
    return centred(cut, frame_size, after, image_size);
  }
  return centred(0, frame_size, before, image_size);
}

void letterbox_rects(const kel_nn_size_t& frame_size, const kel_nn_size_t& image_size,
                     kel_nn_kit_rect_t* source, kel_nn_kit_rect_t* destination) {
  const double longest_image_side = std::max(image_size.w, image_size.h);
  const double longest_frame_side = std::max(frame_size.w, frame_size.h);
  const float scale = static_cast<float>(longest_image_side / longest_frame_side);
  const Placement x = place(scale, frame_size.w, image_size.w);
  const Placement y = place(scale, frame_size.h, image_size.h);
  *source = {x.source, y.source, x.source_size, y.source_size};
  *destination = {x.destination, y.destination, x.destination_size, y.destination_size};
}

void pad_around(const kel_nn_kit_rect_t& inside, const kel_nn_kit_image_t& image) {
  const size_t channels = static_cast<size_t>(channels_of(image.format));
  const size_t row_bytes = static_cast<size_t>(image.width) * channels;
  const size_t left_bytes = static_cast<size_t>(inside.x) * channels;
  const size_t right_start = left_bytes + static_cast<size_t>(inside.w) * channels;
  uint8_t* row = image.data;
  for (int y = 0; y < image.height; ++y, row += row_bytes) {
    if (y < inside.y || y >= inside.y + inside.h) {
      std::memset(row, KEL_NN_KIT_PADDING, row_bytes);
    } else {
      std::memset(row, KEL_NN_KIT_PADDING, left_bytes);
      std::memset(row + right_start, KEL_NN_KIT_PADDING, row_bytes - right_start);
    }
  }
}

// ----- Rectangles --------------------------------------------------------------------------------

int saturated(double value) {
  const double limit = std::numeric_limits<int>::max();
  return static_cast<int>(std::min(std::max(value, -limit), limit));
}

// The part of `start` .. `start` + `size` in 0 .. `limit`.
struct Interval {
  int start, size;
};
Interval clipped(int start, int size, int limit) {
  const int64_t end = std::min<int64_t>(int64_t{start} + size, limit);
  const int first = std::max(start, 0);
  return {first, static_cast<int>(std::max<int64_t>(end - first, 0))};
}

// From edge to edge, as a whole number of pixels that start at `start`.
Interval rounded_interval(float centre, float size) {
  const double start = std::floor(centre - size * 0.5 + 0.5);
  const double end = std::floor(centre + size * 0.5 + 0.5);
  if (!(end > start)) return {0, 0};  // NaN too
  const int first = saturated(start);
  return {first, saturated(static_cast<double>(saturated(end)) - first)};
}

// ----- Faces -------------------------------------------------------------------------------------

constexpr int kPointCount = KEL_NN_KIT_FACE_POINT_COUNT;

struct Points {
  double x[kPointCount], y[kPointCount];
};

// Where the points of an aligned face are; the header says why there.
constexpr double kAlignedSide = 112;
constexpr Points kAligned = {{38.4, 73.6, 56.0, 41.4, 70.6}, {51.6, 51.6, 71.7, 92.3, 92.3}};

// Of the points' extent, what a turned and scaled face must account for.
constexpr double kLeastExplained = 0.5;

double mean(const double* values) {
  double sum = 0;
  for (int i = 0; i < kPointCount; ++i) sum += values[i];
  return sum / kPointCount;
}

// The similarity transform without mirroring that takes `from` nearest to `to` in the sum of squares
// (S. Umeyama, 1991; in the plane its singular value decomposition is these two sums), turned round:
// from places in `to` to places in `from`. False where there is none worth the name.
bool fit_back(const Points& from, const Points& to, Similarity* back) {
  const double from_x = mean(from.x), from_y = mean(from.y), to_x = mean(to.x), to_y = mean(to.y);
  double along = 0, across = 0, from_extent = 0, to_extent = 0;
  for (int i = 0; i < kPointCount; ++i) {
    const double x = from.x[i] - from_x, y = from.y[i] - from_y;
    const double wanted_x = to.x[i] - to_x, wanted_y = to.y[i] - to_y;
    along += x * wanted_x + y * wanted_y;
    across += x * wanted_y - y * wanted_x;
    from_extent += x * x + y * y;
    to_extent += wanted_x * wanted_x + wanted_y * wanted_y;
  }
  const double fitted = along * along + across * across;
  if (!(from_extent > 0) || !(fitted >= kLeastExplained * from_extent * to_extent)) return false;
  // Forwards: a = along / from_extent, b = across / from_extent.
  back->a = along * from_extent / fitted;
  back->b = -across * from_extent / fitted;
  back->left = from_x - (back->a * to_x - back->b * to_y);
  back->top = from_y - (back->b * to_x + back->a * to_y);
  return true;
}

}  // namespace

void kel_nn_kit_scratch_free(kel_nn_kit_scratch_t* scratch) {
  if (!scratch) return;
  std::free(scratch->data);
  *scratch = {nullptr, 0};
}

kel_nn_size_t kel_nn_kit_detector_input(int frame_width, int frame_height) {
  if (frame_height < frame_width) return {416, 256};
  if (frame_height == frame_width) return {320, 320};
  return {256, 416};
}

int kel_nn_kit_letterbox_rects(kel_nn_size_t frame_size, kel_nn_size_t image_size,
                               kel_nn_kit_rect_t* source, kel_nn_kit_rect_t* destination) {
  if (!source || !destination || !is_side(frame_size.w) || !is_side(frame_size.h) ||
      !is_side(image_size.w) || !is_side(image_size.h)) {
    return KEL_NN_KIT_INVALID;
  }
  letterbox_rects(frame_size, image_size, source, destination);
  return 0;
}

int kel_nn_kit_letterbox(const kel_nn_kit_frame_t* frame, const kel_nn_kit_image_t* image) {
  if (!is_valid(frame) || !is_valid(image)) return KEL_NN_KIT_INVALID;
  kel_nn_kit_rect_t source, destination;
  letterbox_rects({frame->width, frame->height}, {image->width, image->height}, &source,
                  &destination);
  pad_around(destination, *image);
  return render(*frame, {source, nullptr}, *image, destination);
}

int kel_nn_kit_scale(const kel_nn_kit_frame_t* frame, const kel_nn_kit_image_t* image) {
  if (!is_valid(frame) || !is_valid(image)) return KEL_NN_KIT_INVALID;
  return render(*frame, {whole(*frame), nullptr}, *image, whole(*image));
}

int kel_nn_kit_crop(const kel_nn_kit_frame_t* frame, kel_nn_kit_rect_t rect,
                    const kel_nn_kit_image_t* image) {
  if (!is_valid(frame) || !is_valid(image)) return KEL_NN_KIT_INVALID;
  const Interval x = clipped(rect.x, rect.w, frame->width);
  const Interval y = clipped(rect.y, rect.h, frame->height);
  if (x.size == 0 || y.size == 0) return KEL_NN_KIT_OUTSIDE;
  return render(*frame, {{x.start, y.start, x.size, y.size}, nullptr}, *image, whole(*image));
}

int kel_nn_kit_align_face(const kel_nn_kit_frame_t* frame, const float* points,
                          const kel_nn_kit_image_t* image) {
  if (!is_valid(frame) || !is_valid(image) || !points) return KEL_NN_KIT_INVALID;
  Points face, aligned;
  for (int i = 0; i < kPointCount; ++i) {
    const float x = points[2 * i], y = points[2 * i + 1];
    const float largest = std::numeric_limits<float>::max();
    if (!(std::fabs(x) <= largest && std::fabs(y) <= largest)) return KEL_NN_KIT_NO_FACE;
    face.x[i] = x;
    face.y[i] = y;
    aligned.x[i] = kAligned.x[i] * (image->width / kAlignedSide);
    aligned.y[i] = kAligned.y[i] * (image->height / kAlignedSide);
  }
  Similarity to_frame;
  if (!fit_back(face, aligned, &to_frame)) return KEL_NN_KIT_NO_FACE;
  return render(*frame, {whole(*frame), &to_frame}, *image, whole(*image));
}

kel_nn_kit_rect_t kel_nn_kit_rect_of_box(const kel_nn_box_t* box) {
  if (!box) return {0, 0, 0, 0};
  const Interval x = rounded_interval(box->cx, box->w);
  const Interval y = rounded_interval(box->cy, box->h);
  if (x.size == 0 || y.size == 0) return {0, 0, 0, 0};
  return {x.start, y.start, x.size, y.size};
}

kel_nn_kit_rect_t kel_nn_kit_centre_square(kel_nn_kit_rect_t rect) {
  const int side = std::max(std::min(rect.w, rect.h), 0);
  return {saturated(rect.x + std::floor((static_cast<double>(rect.w) - side) / 2)),
          saturated(rect.y + std::floor((static_cast<double>(rect.h) - side) / 2)), side, side};
}
