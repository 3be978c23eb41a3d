// SPDX-License-Identifier: Apache-2.0
// The cry detector's features as a picture.
#include <fmt/format.h>

#include <opencv2/imgproc.hpp>

#include "drawing.h"

namespace kelnn_cli {
namespace {

constexpr int kRowWidth = 4, kChannelHeight = 8;  // of the matrix, in pixels
constexpr int kLeft = 90, kRight = 180, kTop = 50, kBottom = 64;
constexpr int kTick = 6;
// The bytes that the colours tell apart; most sounds stay between them.
constexpr int kDarkest = 64, kBrightest = 192;
constexpr double kRowsPerSecond = 100.0;
constexpr int kPlainFont = cv::FONT_HERSHEY_SIMPLEX;
constexpr double kTextSize = 0.5, kTitleSize = 0.6;
const cv::Scalar kWhite(255, 255, 255), kInk(40, 40, 40);

enum Align { kLeftAligned, kCentred, kRightAligned };  // twice the part of a text left of its place

// `at` is half way up the letters.
void write(cv::Mat* picture, const std::string& text, cv::Point at, Align align,
           double size = kTextSize) {
  int baseline = 0;
  const cv::Size extent = cv::getTextSize(text, kPlainFont, size, 1, &baseline);
  at.x -= extent.width * align / 2;
  at.y += extent.height / 2;
  cv::putText(*picture, text, at, kPlainFont, size, kInk, 1, cv::LINE_AA);
}

cv::Mat coloured(const cv::Mat& bytes) {
  constexpr double kScale = 255.0 / (kBrightest - kDarkest);
  cv::Mat shades, colours;
  bytes.convertTo(shades, CV_8U, kScale, -kDarkest * kScale);
  cv::applyColorMap(shades, colours, cv::COLORMAP_VIRIDIS);
  return colours;
}

// Where the matrix lies in the picture.
cv::Rect plot_area(const kel_nn::SoundFeatures& matrix) {
  return {kLeft, kTop, matrix.rows() * kRowWidth, matrix.channels() * kChannelHeight};
}

void draw_matrix(cv::Mat* picture, const kel_nn::SoundFeatures& matrix) {
  cv::Mat upright(matrix.channels(), matrix.rows(), CV_8U), enlarged;
  for (int row = 0; row < matrix.rows(); ++row) {
    const uint8_t* const bytes = matrix.bytes() + ptrdiff_t{row} * matrix.channels();
    for (int channel = 0; channel < matrix.channels(); ++channel) {
      upright.at<uint8_t>(matrix.channels() - 1 - channel, row) = bytes[channel];
    }
  }
  const cv::Rect area = plot_area(matrix);
  cv::resize(upright, enlarged, area.size(), 0, 0, cv::INTER_NEAREST);
  coloured(enlarged).copyTo((*picture)(area));
  cv::rectangle(*picture, area + cv::Size(2, 2) - cv::Point(1, 1), kInk);
}

void draw_time_axis(cv::Mat* picture, const kel_nn::SoundFeatures& matrix, double start) {
  const cv::Rect area = plot_area(matrix);
  const int bottom = area.br().y;
  for (int tick = 0; tick <= 10 * matrix.rows() / static_cast<int>(kRowsPerSecond); ++tick) {
    const int x = area.x + static_cast<int>(tick * kRowsPerSecond / 10 * kRowWidth);
    const bool has_label = tick % 5 == 0;
    cv::line(*picture, {x, bottom}, {x, bottom + (has_label ? kTick : kTick / 2)}, kInk);
    if (!has_label) continue;
    write(picture, fmt::format("{:.1f}", start + tick / 10.0), {x, bottom + 18}, kCentred);
  }
  write(picture, "seconds", {area.x + area.width / 2, bottom + 44}, kCentred);
}

void draw_frequency_axis(cv::Mat* picture, const kel_nn::SoundFeatures& matrix) {
  const cv::Rect area = plot_area(matrix);
  for (const int hz : {100, 250, 500, 750, 1000, 1500, 2000, 3000, 4000, 5000, 6000, 7000}) {
    const double channels_up = matrix.channel_at(hz) + 0.5;  // a channel's centre is half way up it
    const int y = area.br().y - cvRound(channels_up * kChannelHeight);
    cv::line(*picture, {area.x - kTick, y}, {area.x - 1, y}, kInk);
    write(picture, std::to_string(hz), {area.x - kTick - 6, y}, kRightAligned);
  }
  write(picture, "Hz", {area.x - kTick - 6, area.y - 10}, kRightAligned);
}

void draw_colour_scale(cv::Mat* picture, const cv::Rect& plot) {
  const cv::Rect area(plot.br().x + 30, plot.y, 20, plot.height);
  constexpr int kSpan = kBrightest - kDarkest;
  cv::Mat ramp(area.height, area.width, CV_8U);
  for (int y = 0; y < area.height; ++y) {
    ramp.row(y) =
        cv::Scalar(kBrightest - cvRound(y * static_cast<double>(kSpan) / (area.height - 1)));
  }
  coloured(ramp).copyTo((*picture)(area));
  cv::rectangle(*picture, area + cv::Size(2, 2) - cv::Point(1, 1), kInk);
  const struct {
    int byte;
    const char* label;
  } ticks[] = {{kDarkest, "64 or less"},
               {96, "96"},
               {128, "128, mean"},
               {160, "160"},
               {kBrightest, "192 or more"}};
  for (const auto& tick : ticks) {
    const int y = area.y + cvRound((kBrightest - tick.byte) * (area.height - 1) / kSpan);
    cv::line(*picture, {area.br().x, y}, {area.br().x + kTick, y}, kInk);
    write(picture, tick.label, {area.br().x + kTick + 6, y}, kLeftAligned);
  }
  write(picture, "byte", {area.x + area.width / 2, area.y - 14}, kCentred);
}

// The font has no letters beyond ASCII, and the picture no room for more than so many.
std::string printable(std::string text) {
  constexpr size_t kMost = 90;
  for (char& c : text) {
    if (c < ' ' || c > '~') c = '?';
  }
  return text.size() <= kMost ? text : "..." + text.substr(text.size() - kMost);
}

}  // namespace

cv::Mat draw_features(const kel_nn::SoundFeatures& matrix, const std::string& title, double start) {
  const cv::Rect area = plot_area(matrix);
  cv::Mat picture(area.br().y + kBottom, area.br().x + kRight, CV_8UC3, kWhite);
  draw_matrix(&picture, matrix);
  draw_time_axis(&picture, matrix, start);
  draw_frequency_axis(&picture, matrix);
  draw_colour_scale(&picture, area);
  write(&picture, printable(title), {area.x, kTop / 2 - 4}, kLeftAligned, kTitleSize);
  return picture;
}

}  // namespace kelnn_cli
