// SPDX-License-Identifier: Apache-2.0
// Pictures and videos as the tool reads and writes them, beside OpenCV: the same pixels.
#include <gmock/gmock.h>
#include <png.h>
#include <sys/resource.h>
#include <turbojpeg.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>
#include <thread>

#include "codecs.h"
#include "frame_sink.h"
#include "frame_source.h"
#include "picture.h"
#include "read_ahead.h"
#include "report.h"

namespace kelnn_cli {
namespace {

constexpr int kWidth = 45, kHeight = 37;  // fill no block of eight

enum class By { kUs, kOpenCv };  // who decodes it

void expect_as_opencv(const Bytes& bytes, By by) {
  Bytes whole = bytes;  // what OpenCV makes of a JPEG without an end is undefined
  if (!is_png(bytes) && !is_pnm(bytes)) whole.insert(whole.end(), {0xFF, 0xD9});
  const cv::Mat expected = cv::imdecode(whole, cv::IMREAD_COLOR);
  const cv::Mat own = is_png(bytes)   ? decode_png(bytes)
                      : is_pnm(bytes) ? decode_pnm(bytes)
                                      : decode_jpeg(bytes);
  EXPECT_EQ(own.empty(), by == By::kOpenCv);
  const cv::Mat picture = decode_picture(bytes);
  ASSERT_EQ(picture.size(), expected.size());
  ASSERT_EQ(picture.type(), expected.type());
  if (picture.empty()) return;
  EXPECT_EQ(cv::norm(picture, expected, cv::NORM_INF), 0);
}

// ----- Exif --------------------------------------------------------------------------------------

// A structure with one value before the orientation, whose numbers have this byte order.
Bytes exif(int orientation, bool is_big_endian, int type = 3) {
  Bytes bytes(2, is_big_endian ? 'M' : 'I');
  const auto put = [&](int value, size_t size) {
    for (size_t i = 0; i < size; ++i) {
      bytes.push_back(static_cast<uint8_t>(value >> 8 * (is_big_endian ? size - 1 - i : i)));
    }
  };
  put(42, 2), put(8, 4), put(2, 2);
  put(0x010e, 2), put(2, 2), put(2, 4), put('x', 4);
  put(0x0112, 2), put(type, 2), put(1, 4), put(orientation, 2), put(0, 2);
  put(0, 4);
  return bytes;
}

// A JPEG with the segment behind its first two bytes.
Bytes with_app1(const Bytes& jpeg, const std::string& name, const Bytes& data) {
  const size_t size = 2 + name.size() + data.size();
  const std::string segment = std::string("\xff\xe1") + static_cast<char>(size >> 8) +
                              static_cast<char>(size) + name +
                              std::string(data.begin(), data.end());
  Bytes bytes = jpeg;
  bytes.insert(bytes.begin() + 2, segment.begin(), segment.end());
  return bytes;
}
const std::string kExifName("Exif\0\0", 6);

// ----- Files of every kind -----------------------------------------------------------------------

Bytes noise(size_t count) {
  Bytes bytes(count);
  uint32_t state = 1;
  for (uint8_t& byte : bytes)
    byte = static_cast<uint8_t>((state = state * 1664525 + 1013904223) >> 24);
  return bytes;
}

// Smooth with some noise, so that JPEG's blocks have something of everything.
cv::Mat scene() {
  Bytes pixels = noise(kHeight * kWidth * 3);
  cv::Mat picture;
  cv::blur(cv::Mat(kHeight, kWidth, CV_8UC3, pixels.data()), picture, {5, 5});
  return picture * 2 - cv::Scalar(128, 100, 160);
}

struct PngKind {
  int colour_type, depth;
  bool is_interlaced, has_transparency;
};

Bytes make_png(const PngKind& kind, const Bytes& exif_data) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  Bytes bytes;
  const auto append = [](png_structp to, png_bytep data, size_t count) {
    Bytes* all = static_cast<Bytes*>(png_get_io_ptr(to));
    all->insert(all->end(), data, data + count);
  };
  png_set_write_fn(png, &bytes, append, nullptr);
  png_set_IHDR(png, info, kWidth, kHeight, kind.depth, kind.colour_type,
               kind.is_interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  const Bytes colours = noise(3 * 256);
  if (kind.colour_type == PNG_COLOR_TYPE_PALETTE) {
    png_set_PLTE(png, info, reinterpret_cast<png_const_colorp>(colours.data()), 1 << kind.depth);
  }
  Bytes alpha = {0, 100};
  png_color_16 transparent = {1, 1, 1, 1, 1};
  if (kind.has_transparency) png_set_tRNS(png, info, alpha.data(), 2, &transparent);
  png_set_gAMA(png, info, 0.8);  // which OpenCV does not look at
  Bytes exif_copy = exif_data;
  if (!exif_copy.empty()) {
    png_set_eXIf_1(png, info, static_cast<png_uint_32>(exif_copy.size()), exif_copy.data());
  }
  png_write_info(png, info);
  const size_t row = png_get_rowbytes(png, info);
  Bytes pixels = noise(row * kHeight);
  std::vector<png_bytep> rows(kHeight);
  for (size_t y = 0; y < kHeight; ++y) rows[y] = pixels.data() + y * row;
  png_write_image(png, rows.data());
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  return bytes;
}

Bytes make_jpeg(const cv::Mat& pixels, int format, int subsampling, int flags) {
  tjhandle jpeg = tjInitCompress();
  unsigned char* data = nullptr;
  unsigned long size = 0;
  EXPECT_EQ(tjCompress2(jpeg, pixels.data, kWidth, static_cast<int>(pixels.step), kHeight, format,
                        &data, &size, subsampling, 90, flags),
            0);
  const Bytes bytes(data, data + size);
  tjFree(data);
  tjDestroy(jpeg);
  return bytes;
}

// ----- The tests ---------------------------------------------------------------------------------

TEST(PictureCodecs, ReadEveryKindOfPngAsOpenCvDoes) {
  const std::pair<int, int> types[] = {{PNG_COLOR_TYPE_GRAY, 16},
                                       {PNG_COLOR_TYPE_PALETTE, 8},
                                       {PNG_COLOR_TYPE_RGB, 16},
                                       {PNG_COLOR_TYPE_RGBA, 16},
                                       {PNG_COLOR_TYPE_GRAY_ALPHA, 16}};
  for (const auto& [type, most_bits] : types) {
    const bool is_packed = type == PNG_COLOR_TYPE_GRAY || type == PNG_COLOR_TYPE_PALETTE;
    for (int bits = is_packed ? 1 : 8; bits <= most_bits; bits *= 2) {
      for (const bool is_interlaced : {false, true}) {
        for (const bool has_transparency : {false, true}) {
          if (has_transparency && (type & PNG_COLOR_MASK_ALPHA)) continue;
          SCOPED_TRACE(testing::Message() << "type " << type << ", " << bits << " bits, "
                                          << is_interlaced << has_transparency);
          expect_as_opencv(make_png({type, bits, is_interlaced, has_transparency}, {}), By::kUs);
        }
      }
    }
  }
}

TEST(PictureCodecs, ReadEveryKindOfJpegAsOpenCvDoes) {
  const cv::Mat picture = scene();
  cv::Mat grey, four;
  cv::cvtColor(picture, grey, cv::COLOR_BGR2GRAY);
  cv::cvtColor(picture, four, cv::COLOR_BGR2BGRA);
  for (const int subsampling : {TJSAMP_444, TJSAMP_422, TJSAMP_420, TJSAMP_440, TJSAMP_411}) {
    for (const int flags : {0, TJFLAG_PROGRESSIVE}) {
      SCOPED_TRACE(testing::Message() << "subsampling " << subsampling << ", flags " << flags);
      expect_as_opencv(make_jpeg(picture, TJPF_BGR, subsampling, flags), By::kUs);
    }
  }
  expect_as_opencv(make_jpeg(grey, TJPF_GRAY, TJSAMP_GRAY, 0), By::kUs);
  expect_as_opencv(make_jpeg(four, TJPF_CMYK, TJSAMP_444, 0), By::kOpenCv);
}

TEST(PictureCodecs, ReadPgmAndPpmAsOpenCvDoes) {
  const std::pair<std::string, By> headers[] = {
      {"P5 45 37 255\n", By::kUs},        {"P6\n# made by hand\n45\t37 # not 9 9\n255\r", By::kUs},
      {"P5 45 37 15\n", By::kOpenCv},     {"P6 45 37 65535\n", By::kOpenCv},
      {"P6 45 75 255\n", By::kOpenCv},  // a row too short
      {"P6 45 0 255\n", By::kOpenCv},     {"P6 99999999999 1 255\n", By::kOpenCv},
      {"P5 45 # no height", By::kOpenCv},
  };
  for (const auto& [header, by] : headers) {
    SCOPED_TRACE(header);
    Bytes bytes = noise(45 * 74 * 3);
    if (header.back() == 't') bytes.clear();
    bytes.insert(bytes.begin(), header.begin(), header.end());
    expect_as_opencv(bytes, by);
  }
}

TEST(PictureCodecs, TurnPicturesUprightAsOpenCvDoes) {
  const Bytes jpeg = make_jpeg(scene(), TJPF_BGR, TJSAMP_420, 0);
  for (int orientation = 0; orientation <= 9; ++orientation) {
    for (const bool is_big_endian : {false, true}) {
      SCOPED_TRACE(testing::Message() << orientation << (is_big_endian ? " MM" : " II"));
      const By by = orientation >= 1 && orientation <= 8 ? By::kUs : By::kOpenCv;
      const Bytes data = exif(orientation, is_big_endian);
      expect_as_opencv(with_app1(jpeg, kExifName, data), by);
      expect_as_opencv(make_png({PNG_COLOR_TYPE_RGB, 8, false, false}, data), by);
    }
  }
}

TEST(PictureCodecs, LeaveWhatIsOddOrDamagedToOpenCv) {
  const Bytes jpeg = make_jpeg(scene(), TJPF_BGR, TJSAMP_420, 0);
  const Bytes progressive = make_jpeg(scene(), TJPF_BGR, TJSAMP_420, TJFLAG_PROGRESSIVE);
  const Bytes png = make_png({PNG_COLOR_TYPE_RGB, 8, false, false}, {});
  const Bytes turned = with_app1(jpeg, kExifName, exif(6, true));
  const auto part = [](const Bytes& bytes, size_t percent) {
    return Bytes(bytes.begin(),
                 bytes.begin() + static_cast<ptrdiff_t>(bytes.size() * percent / 100));
  };
  Bytes wrong_sum = png;
  wrong_sum[wrong_sum.size() - 16] ^= 1;
  const Bytes half_exif(turned.begin() + 12, turned.begin() + 30);
  const std::string other_name = "http://ns.adobe.com/xap/1.0/";
  const struct {
    const char* name;
    Bytes bytes;
    By by;
  } cases[] = {
      {"half a JPEG", part(jpeg, 50), By::kOpenCv},
      {"nearly a JPEG", part(jpeg, 95), By::kOpenCv},
      {"half a progressive JPEG", part(progressive, 50), By::kOpenCv},
      {"a JPEG's beginning", part(jpeg, 2), By::kOpenCv},
      {"half a PNG", part(png, 50), By::kOpenCv},
      {"a PNG with a wrong sum", wrong_sum, By::kOpenCv},
      {"a PNG's beginning", part(png, 1), By::kOpenCv},
      {"another segment", with_app1(jpeg, other_name, {0, 'x'}), By::kUs},
      {"another segment before", with_app1(turned, other_name, {0, 'x'}), By::kUs},
      {"half the Exif data", with_app1(jpeg, kExifName, half_exif), By::kOpenCv},
      {"no byte order", with_app1(jpeg, kExifName, {'I', 'M', 0, 42, 0, 0, 0, 8}), By::kOpenCv},
      {"Exif data twice", with_app1(turned, kExifName, exif(8, true)), By::kUs},
      {"an orientation of another type", with_app1(jpeg, kExifName, exif(6, false, 4)),
       By::kOpenCv},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    expect_as_opencv(c.bytes, c.by);
  }
}

TEST(PictureCodecs, WriteWhatOpenCvWrites) {
  const cv::Mat whole = scene();
  const cv::Mat part = whole(cv::Rect(3, 2, 20, 30));  // its rows do not follow one another
  for (const cv::Mat& picture : {whole, part}) {
    for (const std::string extension : {".png", ".jpg", ".jpe", ".bmp"}) {
      SCOPED_TRACE(extension);
      Bytes expected;
      ASSERT_TRUE(cv::imencode(extension, picture, expected));
      const Bytes bytes = encode_picture(extension, picture);
      const cv::Mat read = cv::imdecode(bytes, cv::IMREAD_COLOR);
      ASSERT_FALSE(read.empty());
      EXPECT_EQ(cv::norm(read, cv::imdecode(expected, cv::IMREAD_COLOR), cv::NORM_INF), 0);
    }
  }
  EXPECT_TRUE(encode_picture(".jpg", cv::Mat(1, 70000, CV_8UC3, cv::Scalar())).empty());
}

// ----- Videos ------------------------------------------------------------------------------------

class Videos : public testing::Test {
 protected:
  Videos() { std::filesystem::create_directory(directory_); }
  ~Videos() override { std::filesystem::remove_all(directory_); }

  static cv::Mat frame(cv::Size size, int index) {
    cv::Mat picture(size, CV_8UC3, cv::Scalar(90, 120, 60));
    cv::circle(picture, {size.width * (index + 1) / (kCount + 2), size.height / 2}, 20,
               cv::Scalar(30, 200, 240), cv::FILLED);
    return picture;
  }
  std::string save(const std::string& name, const char* codec, cv::Size size) const {
    cv::VideoWriter writer(directory_ + name, cv::CAP_FFMPEG,
                           cv::VideoWriter::fourcc(codec[0], codec[1], codec[2], codec[3]), kRate,
                           size);
    EXPECT_TRUE(writer.isOpened());
    for (int i = 0; i < kCount; ++i) writer.write(frame(size, i));
    return directory_ + name;
  }

  static constexpr int kCount = 30;
  static constexpr double kRate = 12.5;
  const std::string directory_ =
      testing::TempDir() + "kelnn_videos_" + std::to_string(getpid()) + "/";
};

TEST_F(Videos, AreReadAsOpenCvReadsThemAndSayWhenTheyAreCutOff) {
  const struct {
    const char *name, *codec;
    cv::Size size;
    int left;  // frames of 60 % of the file, at least
    const char* complaint;
  } cases[] = {{"a.avi", "MJPG", {320, 240}, 10, "cut off, "},
               {"a.mp4", "mp4v", {322, 242}, 0, "moov atom not found"},
               {"a.mkv", "MJPG", {318, 178}, 10, "cut off, "},
               {"a.webm", "VP80", {326, 182}, 10, "cut off, "}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = save(c.name, c.codec, c.size);
    cv::VideoCapture capture(path, cv::CAP_FFMPEG);
    std::unique_ptr<FrameSource> source = open_frames(path, {});
    EXPECT_EQ(source->frames_per_second(), kRate);
    EXPECT_EQ(source->count(), kCount);
    cv::Mat expected;
    Frame frame;
    for (int i = 0; i < kCount; ++i) {
      if (i % 3 == 2) {
        ASSERT_TRUE(source->skip() && capture.grab());
        continue;
      }
      ASSERT_TRUE(source->read(&frame) && capture.read(expected));
      EXPECT_EQ(frame.index, i);
      EXPECT_NEAR(frame.seconds, i / kRate, 1e-3);
      ASSERT_EQ(frame.pixels.size(), c.size);
      EXPECT_EQ(cv::norm(frame.pixels, expected, cv::NORM_INF), 0);
    }
    EXPECT_FALSE(source->read(&frame));

    std::filesystem::resize_file(path, std::filesystem::file_size(path) * 6 / 10);
    int count = 0;
    try {
      source = open_frames(path, {});
      while (source->read(&frame)) ++count;
      ADD_FAILURE() << "all is well, after " << count << " frames";
    } catch (const Failure& failure) {
      EXPECT_THAT(failure.what(), testing::HasSubstr(c.complaint));
    }
    EXPECT_GE(count, c.left);
    EXPECT_LT(count, kCount);
  }
}

TEST_F(Videos, AreWrittenWholeOrNotAtAll) {
  const auto write = [](const std::string& path, cv::Size size) {
    const std::unique_ptr<FrameSink> sink = make_video(path, kRate);
    for (int i = 0; i < kCount; ++i) sink->write(frame(size, i));
    sink->finish();
  };
  rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit small = {1024, before.rlim_max};
  const struct {
    std::string name;
    cv::Size size;
    const char* codec;
  } cases[] = {{"a.avi", {320, 240}, "MJPG"},
               {"a.avi", {323, 241}, "MJPG"},
               {"a.mp4", {320, 240}, "avc1"},
               {"a.mp4", {323, 241}, "vp09"},
               {"a.webm", {323, 241}, "V_VP9"}};
  for (const auto& [name, size, codec] : cases) {
    SCOPED_TRACE(testing::Message() << name << " " << size);
    const std::string path = directory_ + name;
    write(path, size);
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    EXPECT_THROW(write(directory_ + "more/" + name, size), Failure);
    EXPECT_THROW(write(path, size), Failure);
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory_), {}), 1)
        << "nothing temporary stays, nor a directory for it";

    cv::VideoCapture capture(path);
    EXPECT_EQ(capture.get(cv::CAP_PROP_FPS), kRate);
    const Bytes file = read_file(path);
    EXPECT_THAT(std::string(file.begin(), file.end()), testing::HasSubstr(codec));
    cv::Mat read;
    for (int i = 0; i < kCount; ++i) {
      ASSERT_TRUE(capture.read(read));
      ASSERT_EQ(read.size(), size);
      EXPECT_LT(cv::norm(read, frame(size, i), cv::NORM_L1), 4.0 * 3 * size.area());
    }
    EXPECT_FALSE(capture.read(read));
    std::filesystem::remove(path);
  }
}

// ----- Frames that are read ahead

TEST(ReadAhead, GivesWhatWasReadAndToldAndThrownInItsOrder) {
  constexpr int kFrames = 7;
  std::atomic<int> read{0};
  ReadAhead* itself = nullptr;
  ReadAhead ahead([&](Frame* frame) {
    if (read == 3) itself->note(" half ");
    if (read == kFrames) throw Failure("cut off");
    frame->pixels.create(2, 2, CV_8UC3);
    frame->pixels.setTo(cv::Scalar::all(read));
    frame->index = read++;
    return true;
  });
  itself = &ahead;
  std::string told;
  const auto tell = [&](const std::string& message) { told += message; };
  const auto look = [&] {
    while (const Frame* frame = ahead.next(tell)) {
      const int index = static_cast<int>(frame->index);
      told += std::to_string(index);
      while (read < std::min(index + 2, kFrames)) std::this_thread::yield();  // the one after it
      EXPECT_LE(read, index + 4) << "not all of the recording";
      EXPECT_EQ(frame->pixels.at<cv::Vec3b>(1, 1), cv::Vec3b::all(static_cast<uchar>(index)));
    }
  };
  EXPECT_THROW(look(), Failure);
  EXPECT_THROW(look(), Failure) << "it does not wait for more";
  EXPECT_EQ(told, "012 half 3456");
}

TEST(ReadAhead, EndsWhileFramesWaitOrOneIsBeingRead) {
  for (const bool is_stuck : {false, true}) {
    ReadAhead* itself = nullptr;
    int read = 0;
    ReadAhead ahead([&](Frame* frame) {
      while (is_stuck && read == 1 && !itself->is_over()) std::this_thread::yield();
      frame->pixels.create(1, 1, CV_8U);
      frame->index = read++;
      return true;
    });
    itself = &ahead;
    ASSERT_NE(ahead.next({}), nullptr);
  }
}

}  // namespace
}  // namespace kelnn_cli
