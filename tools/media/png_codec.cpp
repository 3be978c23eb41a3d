// SPDX-License-Identifier: Apache-2.0
#include <png.h>

#include <algorithm>
#include <csetjmp>
#include <cstring>
#include <optional>

#include "codecs.h"

namespace kelnn_cli {
namespace {

struct Input {
  const uint8_t* next;
  size_t left;
};

void take(png_structp png, png_bytep out, size_t count) {
  Input* input = static_cast<Input*>(png_get_io_ptr(png));
  if (count > input->left) png_error(png, "cut off");
  std::memcpy(out, input->next, count);
  input->next += count;
  input->left -= count;
}

[[noreturn]] void give_up(png_structp png, png_const_charp) { png_longjmp(png, 1); }
void ignore(png_structp, png_const_charp) {}

// libpng's two records of a picture that is read.
struct Reader {
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, give_up, ignore);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  Reader() = default;
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;
  ~Reader() { png_destroy_read_struct(&png, &info, nullptr); }
};

// Whatever the file holds.
void ask_for_bgr(png_structp png, png_infop info) {
  const bool has_colours = png_get_color_type(png, info) & PNG_COLOR_MASK_COLOR;
  png_set_strip_16(png);
  png_set_strip_alpha(png);
  png_set_palette_to_rgb(png);
  png_set_expand_gray_1_2_4_to_8(png);
  if (has_colours) {
    png_set_bgr(png);
  } else {
    png_set_gray_to_rgb(png);
  }
  png_set_interlace_handling(png);
  png_read_update_info(png, info);
}

// False when libpng gives up, which it does by jumping back to here: nothing with a destructor may
// be made in this function.
bool read(Reader* reader, Input* input, cv::Mat* picture, std::vector<png_bytep>* rows) {
  if (setjmp(png_jmpbuf(reader->png))) return false;
  png_structp png = reader->png;
  png_infop info = reader->info;
  png_set_read_fn(png, input, take);
  png_read_info(png, info);
  const int64_t width = png_get_image_width(png, info), height = png_get_image_height(png, info);
  if (width * height > kMaxPixels) return false;
  ask_for_bgr(png, info);
  picture->create(static_cast<int>(height), static_cast<int>(width), CV_8UC3);
  if (png_get_rowbytes(png, info) != picture->cols * picture->elemSize()) return false;
  rows->resize(static_cast<size_t>(height));
  for (int y = 0; y < picture->rows; ++y) (*rows)[static_cast<size_t>(y)] = picture->ptr(y);
  png_read_image(png, rows->data());
  png_read_end(png, info);
  return true;
}

std::optional<int> orientation(const Reader& reader) {
  png_bytep exif = nullptr;
  png_uint_32 size = 0;
  if (!png_get_eXIf_1(reader.png, reader.info, &size, &exif)) return kUpright;
  return exif_orientation(exif, size);
}

}  // namespace

bool is_png(const Bytes& bytes) {
  return bytes.size() >= 8 && png_sig_cmp(bytes.data(), 0, 8) == 0;
}

cv::Mat decode_png(const Bytes& bytes, bool* is_damaged) {
  Reader reader;
  Input input = {bytes.data(), bytes.size()};
  cv::Mat picture;
  std::vector<png_bytep> rows;
  if (!reader.info || !read(&reader, &input, &picture, &rows)) {
    if (is_damaged) *is_damaged = true;
    return {};
  }
  const std::optional<int> turn = orientation(reader);
  return turn ? made_upright(picture, *turn) : cv::Mat();
}

Bytes encode_png(const cv::Mat& bgr) {
  png_image image = {};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(bgr.cols);
  image.height = static_cast<png_uint_32>(bgr.rows);
  image.format = PNG_FORMAT_BGR;
  image.flags = PNG_IMAGE_FLAG_FAST;
  png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
  Bytes bytes(size);
  const bool done = png_image_write_to_memory(&image, bytes.data(), &size, /*convert_to_8bit=*/0,
                                              bgr.data, static_cast<png_int_32>(bgr.step),
                                              /*colormap=*/nullptr);
  bytes.resize(done ? size : 0);
  return bytes;
}

}  // namespace kelnn_cli
